#include <QtTest>

#include <QNetworkReply>
#include <QTemporaryDir>

#include "updates/downloadfile.h"

namespace {
// A finished reply with the status and Content-Length a server sent.
class FinishedReply : public QNetworkReply
{
public:
    FinishedReply(int status, qint64 length)
    {
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, status);
        if (length >= 0)
            setHeader(QNetworkRequest::ContentLengthHeader, length);
        open(QIODevice::ReadOnly);
        setFinished(true);
    }
    void abort() override {}
    qint64 readData(char*, qint64) override { return -1; }
};
} // namespace

class TestDownloadFile : public QObject
{
    Q_OBJECT
private slots:
    void sanitizedName_data();
    void sanitizedName();
    void freePath_data();
    void freePath();
    void downloadable();
    void commit_data();
    void commit();
};

void TestDownloadFile::sanitizedName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("plain");

    QTest::newRow("parent folder, hidden file") << "../.bashrc" << "bashrc";
    QTest::newRow("backslashes") << "..\\..\\evil.exe" << "evil.exe";
    QTest::newRow("control characters") << QStringLiteral("a\nb\tc\rd\x01.png") << "abcd.png";
    QTest::newRow("right-to-left override") << QStringLiteral("photo\u202Egnp.exe") << "photognp.exe";
    QTest::newRow("empty") << "" << "download";
    QTest::newRow("dot dot") << ".." << "download";
    // 300 letters: cut to 200 bytes with the extension kept.
    QTest::newRow("long ASCII") << QString(300, 'a') + ".jpg" << QString(196, 'a') + ".jpg";
    // Two bytes each in UTF-8: 98 of them and ".jpg" make 200 bytes.
    QTest::newRow("long two-byte") << QString(300, QChar(0xe9)) + ".jpg" << QString(98, QChar(0xe9)) + ".jpg";
    // Four bytes each: 49 of them and ".png" make 200 bytes; none is cut in half.
    QTest::newRow("long emoji") << QString(QStringLiteral("\U0001F600")).repeated(60) + ".png"
                                << QString(QStringLiteral("\U0001F600")).repeated(49) + ".png";
    QTest::newRow("megabyte") << QString(1 << 20, 'a') << QString(200, 'a');
    // An "extension" of 250 characters is part of the name.
    QTest::newRow("long extension") << "a." + QString(250, 'b') << "a." + QString(198, 'b');
}

void TestDownloadFile::sanitizedName()
{
    QFETCH(QString, name);
    QFETCH(QString, plain);
    QCOMPARE(DownloadFile::sanitizedName(name), plain);
}

void TestDownloadFile::freePath_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("free");

    QTest::newRow("taken twice") << QStringList { "a.png", "a (2).png" } << "a.png" << "a (3).png";
    QTest::newRow("no extension") << QStringList { "notes" } << "notes" << "notes (2)";
    QTest::newRow("two dots") << QStringList { "a.tar.gz" } << "a.tar.gz" << "a.tar (2).gz";
    QTest::newRow("a dangling link counts") << QStringList { "@link.png" } << "link.png" << "link (2).png";
}

void TestDownloadFile::freePath()
{
    QFETCH(QStringList, existing);
    QFETCH(QString, name);
    QFETCH(QString, free);

    QTemporaryDir dir;
    for (const QString& entry : existing) {
        if (entry.startsWith('@'))
            QVERIFY(QFile::link(dir.filePath("nowhere"), dir.filePath(entry.mid(1))));
        else
            QVERIFY(QFile(dir.filePath(entry)).open(QIODevice::WriteOnly));
    }
    QCOMPARE(DownloadFile::freePath(dir.path(), name), dir.filePath(free));
}

// The web's own schemes, in any case, and only with a host.
void TestDownloadFile::downloadable()
{
    QVERIFY(DownloadFile::isDownloadable(QUrl("HTTPS://example.test/a.png")));
    QVERIFY(!DownloadFile::isDownloadable(QUrl("ftp://example.test/a.png")));
    QVERIFY(!DownloadFile::isDownloadable(QUrl("http:///a.png")));
}

void TestDownloadFile::commit_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<qint64>("length"); // announced; -1 none
    QTest::addColumn<bool>("saved");

    // Five bytes are written each time.
    QTest::newRow("whole") << 200 << qint64(5) << true;
    QTest::newRow("no length") << 200 << qint64(-1) << true;
    QTest::newRow("shorter than announced") << 200 << qint64(6) << false;
    QTest::newRow("redirect") << 302 << qint64(5) << false;
}

void TestDownloadFile::commit()
{
    QFETCH(int, status);
    QFETCH(qint64, length);
    QFETCH(bool, saved);

    QTemporaryDir dir;
    DownloadFile file;
    QVERIFY(file.open(dir.path(), "a.run") && file.write("12345"));
    FinishedReply reply(status, length);
    QCOMPARE(file.commit(&reply), saved ? dir.filePath("a.run") : QString());
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), saved ? QStringList { "a.run" } : QStringList());
}

QTEST_GUILESS_MAIN(TestDownloadFile)
#include "tst_downloadfile.moc"
