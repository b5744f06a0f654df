// Checks over the inputs that reach the program from outside (page, network, files, other
// processes). Built once per target with FUZZ_TARGET for libFuzzer (scripts/fuzz.sh), and once
// without it as a replay of every committed seed in tests/fuzz/corpus/<target>/.
#include <QtNetwork>

#include <cstdlib>
#include <cstring>

#include "core/logger.h"
#include "resourceinit.h"
#include "updates/documentlimits.h"
#include "updates/downloadfile.h"
#include "web/cookiejar.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

namespace {

void require(bool holds) { if (!holds) abort(); }

// A reply with status 200 whose body arrives as the target says.
class Reply : public QNetworkReply
{
public:
    Reply()
    {
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, 200);
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    void abort() override { ++aborts, setFinished(true); }
    void arrive(const QByteArray& piece) { body.append(piece), emit downloadProgress(body.size(), -1); }
    void announce(qint64 length) { setHeader(QNetworkRequest::ContentLengthHeader, length), emit metaDataChanged(); }
    QByteArray body;
    qint64 offset = 0;
    int aborts = 0;

protected:
    qint64 readData(char* out, qint64 maxSize) override
    {
        const qint64 count = qMin<qint64>(maxSize, body.size() - offset);
        if (count > 0)
            memcpy(out, body.constData() + offset, size_t(count)), offset += count;
        return count > 0 ? count : -1;
    }
};

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

// Cipher texts come from the cookie file: any bytes decipher or fail cleanly, and what the cipher
// writes, at any of its settings, reads back unchanged.
void simplecrypt(const QByteArray& input)
{
    SimpleCrypt::shared()->decryptToByteArray(input);
    decryptSharedText(QString::fromLatin1(input));
    if (input.isEmpty())
        return;
    SimpleCrypt writer(SimpleCrypt::shared()->key());
    writer.setCompressionMode(SimpleCrypt::CompressionMode(uchar(input[0]) % 3));
    writer.setProtectionMode(SimpleCrypt::IntegrityProtectionMode((uchar(input[0]) / 3) % 3));
    require(writer.decryptToByteArray(writer.encryptToByteArray(input.mid(1))) == input.mid(1));
    require(writer.lastError() == SimpleCrypt::ErrorNoError);
}

// "c.ini" as other programs may leave it: the jar loads, and hands out only named cookies.
void cookieini(const QByteArray& input)
{
    struct LoadedJar : CookieJar {
        using CookieJar::allCookies;
        using CookieJar::acceptPolicy;
    } jar;
    writeFile(QStandardPaths::writableLocation(QStandardPaths::DataLocation) + QStringLiteral("/c.ini"), input);
    jar.acceptPolicy(); // loads on first use
    for (const QNetworkCookie& cookie : jar.allCookies())
        require(!cookie.name().isEmpty());
}

// A balloon's text, URL-encoded or not: never emptied or lengthened; plain text shows as sent,
// and text encoded the page's two ways comes back exactly.
void notificationtext(const QByteArray& input)
{
    const QString text = QString::fromUtf8(input);
    const QString shown = IndexWindow::decodeNotificationText(text);
    require(shown.size() <= text.size() && (!shown.isEmpty() || text.isEmpty() || text.contains(QLatin1String("%00"))));
    require(text.count(QLatin1Char('%')) > 2 || shown == text);
    require(IndexWindow::decodeNotificationText(text + QStringLiteral(" 100%")) == text + QStringLiteral(" 100%"));
    if (text.contains(QChar(0)))
        return;
    for (const QString& encoded : { QString::fromLatin1(QUrl::toPercentEncoding(text, "!*'()")),
             QString::fromLatin1(QUrl::toPercentEncoding(text, " !*'()").replace(' ', '+')) })
        require(encoded.count(QLatin1Char('%')) <= 2 || IndexWindow::decodeNotificationText(encoded) == text);
}

// A download's name from the page or the address: a plain, visible name that stays in its folder.
void downloadname(const QByteArray& input)
{
    const QString folder = QStringLiteral("/home/u/Downloads");
    for (const QString& raw : { QString::fromUtf8(input),
             QString::fromUtf16(reinterpret_cast<const char16_t*>(input.constData()), input.size() / 2) }) {
        const QString name = DownloadFile::sanitizedName(raw);
        require(!name.isEmpty() && !name.startsWith(QLatin1Char('.')) && !name.contains(QLatin1Char('/'))
            && !name.contains(QLatin1Char('\\')) && name.toUtf8().size() <= 200 && name == name.trimmed());
        for (const uint c : name.toUcs4())
            require(QChar::category(c) != QChar::Other_Control && QChar::category(c) != QChar::Other_Format);
        require(QString::fromUtf8(name.toUtf8()) == name); // no half of a character
        require(QDir::cleanPath(folder + QLatin1Char('/') + name) == folder + QLatin1Char('/') + name);
        require(DownloadFile::sanitizedName(name) == name);
    }
}

// Fed in pieces of any size, a document past the cap is aborted once, one within it never, and
// no read hands out more than the cap. Input: repeat count, piece size (2), announced?, body.
void cappedreader(const QByteArray& input)
{
    if (input.size() < 4)
        return;
    const QByteArray body = input.mid(4).repeated(1 + uchar(input[0]));
    const int piece = 1 + (uchar(input[1]) << 8 | uchar(input[2])) * 4;
    Reply reply;
    DocumentLimits::guard(&reply);
    if (input[3] & 1)
        reply.announce(body.size());
    for (int at = 0; at < body.size() && reply.isRunning(); at += piece)
        reply.arrive(body.mid(at, piece));
    require(reply.aborts == (body.size() > DocumentLimits::maxBytes ? 1 : 0));
    require(DocumentLimits::read(&reply).size() <= DocumentLimits::maxBytes);
}

// Any settings file other programs may write: the logging switch is on only for the exact "1".
void settings(const QByteArray& input)
{
    writeFile(QSettings().fileName(), input);
    QSettings stored;
    require(Logger::isLoggingEnabled() == (stored.value(QStringLiteral("pref-debug-enabled")).toString() == "1"));
    Logger::isDebugCodeValid();
}

using Target = void (*)(const QByteArray&);
const QMap<QString, Target> targets { { "simplecrypt", simplecrypt }, { "cookieini", cookieini },
    { "notificationtext", notificationtext }, { "downloadname", downloadname }, { "cappedreader", cappedreader },
    { "settings", settings } };

void setUp(int argc, char** argv)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {}); // a line costs more than an input
    static int count = argc;
    new QCoreApplication(count, argv); // replies and settings want one
    SimpleCrypt::setUpShared();
    kestrelgapInitResources(); // this build's own version
}

} // namespace

#ifdef FUZZ_TARGET
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    setUp(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    targets.value(QStringLiteral(FUZZ_TARGET))(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    return 0;
}
#else
// Replays the seeds under $FUZZ_CORPUS; a failed check aborts on the seed it names last.
int main(int argc, char** argv)
{
    setUp(argc, argv);
    int replayed = 0;
    for (auto it = targets.cbegin(); it != targets.cend(); ++it) {
        const QDir seeds(qEnvironmentVariable("FUZZ_CORPUS") + QLatin1Char('/') + it.key());
        for (const QString& name : seeds.entryList(QDir::Files)) {
            QFile seed(seeds.filePath(name));
            require(seed.open(QIODevice::ReadOnly));
            fprintf(stderr, "%s\n", qPrintable(seed.fileName()));
            it.value()(seed.readAll());
            ++replayed;
        }
    }
    printf("replayed %d seeds\n", replayed);
    return replayed > 0 ? 0 : 1;
}
#endif
