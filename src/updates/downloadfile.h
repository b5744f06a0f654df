#pragma once

#include <QString>
#include <QTemporaryFile>
#include <QUrl>

#include <memory>

class QNetworkReply;

// Where a download's bytes go. Names come from the page or from an address, so anyone on the path
// chooses them: they are reduced to a plain file name, the body goes to a hidden temporary file
// beside the target, and only a body written whole is moved into place, under a name no existing
// file has. A failed, cancelled or retried attempt leaves every existing file as it was.
class DownloadFile
{
public:
    DownloadFile() = default;
    ~DownloadFile();
    DownloadFile(const DownloadFile&) = delete;
    DownloadFile& operator=(const DownloadFile&) = delete;

    // A plain file name: no folder parts, no control characters, not hidden, not "." or "..", not
    // empty (then `fallback`), and short enough for any Linux file system.
    static QString sanitizedName(const QString& name, const QString& fallback = QStringLiteral("download"));
    // `name` in `folder`, or the first free "name (2).ext", "name (3).ext", ...
    static QString freePath(const QString& folder, const QString& name);
    // Only the web's own schemes: a data: or file: source would copy whatever the page likes.
    static bool isDownloadable(const QUrl& url);

    // Starts a fresh temporary file in `folder`, dropping any earlier one. False if it can't be made.
    bool open(const QString& folder, const QString& name);
    // Every byte or nothing: false on a short write, after which the attempt is dead.
    bool write(const QByteArray& bytes);
    // Checks the finished reply (a 2xx answer, and as many bytes as its Content-Length said) and
    // moves the file into place. Returns the final path, or empty with errorString() set.
    QString commit(QNetworkReply* reply);
    // Removes the temporary file, if any. Never touches anything else.
    void discard();

    bool isOpen() const { return mFile && mFile->isOpen(); }
    // The temporary file while writing, the final file once committed.
    QString path() const { return mCommitted.isEmpty() && mFile ? mFile->fileName() : mCommitted; }
    QString errorString() const { return mError; }

private:
    std::unique_ptr<QTemporaryFile> mFile;
    QString mFolder;
    QString mName;
    QString mCommitted;
    QString mError;
    qint64 mWritten = 0;
};
