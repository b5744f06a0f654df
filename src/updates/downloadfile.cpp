#include "downloadfile.h"

#include <QDir>
#include <QFileInfo>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {
// Leaves room for " (999)" and for the temporary name within the 255 bytes of a file name.
const int longestNameBytes = 200;
const int longestExtension = 16;

bool isUnwanted(uint codePoint)
{
    const QChar::Category category = QChar::category(codePoint);
    return category == QChar::Other_Control || category == QChar::Other_Format || category == QChar::Other_Surrogate
        || category == QChar::Other_NotAssigned || codePoint == 0xFFFD;
}

bool taken(const QString& path)
{
    // A dangling link counts: a rename onto it would replace it.
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

QString shortened(QString base, const QString& extension)
{
    if ((base + extension).toUtf8().size() <= longestNameBytes)
        return base + extension;
    // Every character takes a byte at least: a megabyte of name is cut at once, not one by one.
    base.truncate(longestNameBytes);
    if (!base.isEmpty() && base.at(base.size() - 1).isHighSurrogate())
        base.chop(1);
    while (!base.isEmpty() && (base + extension).toUtf8().size() > longestNameBytes) {
        // A character beyond the 16-bit range goes whole, never half of it.
        base.chop(base.size() > 1 && base.at(base.size() - 1).isLowSurrogate() ? 2 : 1);
    }
    // The cut may leave blanks at the end.
    while (!base.isEmpty() && base.at(base.size() - 1).isSpace())
        base.chop(1);
    return base + extension;
}
} // namespace

DownloadFile::~DownloadFile()
{
    discard();
}

QString DownloadFile::sanitizedName(const QString& name, const QString& fallback)
{
    // Only the last part counts: a folder part, either way round, is never followed.
    const int cut = qMax(name.lastIndexOf(QLatin1Char('/')), name.lastIndexOf(QLatin1Char('\\')));
    QString plain;
    for (const uint codePoint : name.mid(cut + 1).toUcs4()) {
        if (!isUnwanted(codePoint))
            plain.append(QString::fromUcs4(&codePoint, 1));
    }
    // No hidden files, and nothing that names the folder itself or its parent.
    plain = plain.trimmed();
    while (plain.startsWith(QLatin1Char('.')))
        plain = plain.mid(1).trimmed();
    if (plain.isEmpty())
        return fallback;

    const int dot = plain.lastIndexOf(QLatin1Char('.'));
    const bool keepsExtension = dot > 0 && plain.size() - dot <= longestExtension;
    return keepsExtension ? shortened(plain.left(dot), plain.mid(dot)) : shortened(plain, QString());
}

QString DownloadFile::freePath(const QString& folder, const QString& name)
{
    const QString first = folder + QLatin1Char('/') + name;
    if (!taken(first))
        return first;
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    const QString base = dot > 0 ? name.left(dot) : name;
    const QString extension = dot > 0 ? name.mid(dot) : QString();
    for (int n = 2; n < 100000; ++n) {
        const QString candidate = folder + QLatin1Char('/') + base + QStringLiteral(" (%1)").arg(n) + extension;
        if (!taken(candidate))
            return candidate;
    }
    return QString();
}

bool DownloadFile::isDownloadable(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty()
        && (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}

bool DownloadFile::open(const QString& folder, const QString& name)
{
    discard();
    mFolder = folder;
    mName = sanitizedName(name);
    mCommitted.clear();
    mError.clear();
    mWritten = 0;
    // A fresh account may not have its download folder yet.
    QDir().mkpath(folder);
    mFile.reset(new QTemporaryFile(folder + QStringLiteral("/.kestrelgap-XXXXXX.part")));
    // Removal is ours: after the rename the object would otherwise delete the finished file.
    mFile->setAutoRemove(false);
    if (!mFile->open()) {
        mError = mFile->errorString();
        mFile.reset();
        return false;
    }
    // Asking for the name links the file into the folder at once (Linux may keep it unnamed until
    // then), so that a cut attempt can always be found and removed by that name.
    return !mFile->fileName().isEmpty();
}

bool DownloadFile::write(const QByteArray& bytes)
{
    if (!isOpen())
        return false;
    // Flushed at once: a full disk shows at the chunk that hit it, and the bytes are visible.
    const qint64 count = mFile->write(bytes);
    if (count != bytes.size() || !mFile->flush()) {
        mError = mFile->errorString();
        return false;
    }
    mWritten += count;
    return true;
}

QString DownloadFile::commit(QNetworkReply* reply)
{
    if (!isOpen()) {
        mError = QStringLiteral("no file");
        return QString();
    }
    // The last buffered bytes reach the disk only now, so a full disk may first show here.
    if (!mFile->flush()) {
        mError = mFile->errorString();
        discard();
        return QString();
    }
    mFile->close();

    const QVariant status = reply ? reply->attribute(QNetworkRequest::HttpStatusCodeAttribute) : QVariant();
    const QVariant length = reply ? reply->header(QNetworkRequest::ContentLengthHeader) : QVariant();
    if (!reply || reply->error() != QNetworkReply::NoError) {
        mError = reply ? reply->errorString() : QStringLiteral("no reply");
    } else if (status.isValid() && (status.toInt() < 200 || status.toInt() > 299)) {
        // A redirect that isn't followed, or an answer that is no body of the file.
        mError = QStringLiteral("http status ") + status.toString();
    } else if (length.isValid() && length.toLongLong() != mWritten) {
        mError = QStringLiteral("%1 of %2 bytes").arg(mWritten).arg(length.toLongLong());
    }
    if (!mError.isEmpty()) {
        discard();
        return QString();
    }

    // A name taken in the meantime moves on to the next free one; rename never replaces a file.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const QString target = freePath(mFolder, mName);
        if (target.isEmpty())
            break;
        if (QFile::rename(mFile->fileName(), target)) {
            QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser
                    | QFile::ReadGroup | QFile::ReadOther);
            mCommitted = target;
            mFile.reset();
            return target;
        }
    }
    mError = QStringLiteral("cannot move into place");
    discard();
    return QString();
}

void DownloadFile::discard()
{
    if (!mFile)
        return;
    mFile->close();
    QFile::remove(mFile->fileName());
    mFile.reset();
}
