#include <QtTest>

#include <QTemporaryDir>

#include "updates/downloadfile.h"

class TestDownloadFile : public QObject
{
    Q_OBJECT
private slots:
    void sanitizedName_data();
    void sanitizedName();
    void freePath_data();
    void freePath();
    void downloadable_data();
    void downloadable();
    void discardLeavesTheFolderAsItWas();
};

void TestDownloadFile::sanitizedName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("plain");

    QTest::newRow("ordinary") << "photo.jpg" << "photo.jpg";
    QTest::newRow("blanks inside stay") << "my photo.jpg" << "my photo.jpg";
    QTest::newRow("parent folder, hidden file") << "../.bashrc" << "bashrc";
    QTest::newRow("two folders up") << "../../x" << "x";
    QTest::newRow("absolute path") << "/etc/passwd" << "passwd";
    QTest::newRow("backslashes") << "..\\..\\evil.exe" << "evil.exe";
    QTest::newRow("autostart entry") << "../.config/autostart/innocent.desktop" << "innocent.desktop";
    QTest::newRow("control characters") << QStringLiteral("a\nb\tc\rd\x01.png") << "abcd.png";
    QTest::newRow("NUL inside") << QString::fromLatin1("ab\0cd.png", 9) << "abcd.png";
    QTest::newRow("right-to-left override") << QStringLiteral("photo\u202Egnp.exe") << "photognp.exe";
    QTest::newRow("empty") << "" << "download";
    QTest::newRow("dot") << "." << "download";
    QTest::newRow("dot dot") << ".." << "download";
    QTest::newRow("ends in a slash") << "photos/" << "download";
    QTest::newRow("only blanks and dots") << " . . " << "download";
    QTest::newRow("dots and blanks lead") << " ..  .hidden.png" << "hidden.png";
    QTest::newRow("accents stay") << QStringLiteral("\u00e9t\u00e9.jpg") << QStringLiteral("\u00e9t\u00e9.jpg");
    // 300 letters: cut to 200 bytes with the extension kept.
    QTest::newRow("long ASCII") << QString(300, 'a') + ".jpg" << QString(196, 'a') + ".jpg";
    // Two bytes each in UTF-8: 98 of them and ".jpg" make 200 bytes.
    QTest::newRow("long two-byte") << QString(300, QChar(0xe9)) + ".jpg" << QString(98, QChar(0xe9)) + ".jpg";
    QTest::newRow("emoji stay") << QStringLiteral("\U0001F600 party.png") << QStringLiteral("\U0001F600 party.png");
    // Four bytes each: 49 of them and ".png" make 200 bytes; none is cut in half.
    QTest::newRow("long emoji") << QString(QStringLiteral("\U0001F600")).repeated(60) + ".png"
                                << QString(QStringLiteral("\U0001F600")).repeated(49) + ".png";
    QTest::newRow("megabyte") << QString(1 << 20, 'a') << QString(200, 'a');
    QTest::newRow("blanks before the extension stay") << "a  .png" << "a  .png";
    QTest::newRow("cut ends at a blank") << QString(199, 'a') + ' ' + QString(10, 'b') << QString(199, 'a');
    // An "extension" of 30 characters is part of the name.
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

    QTest::newRow("free") << QStringList() << "a.png" << "a.png";
    QTest::newRow("taken") << QStringList { "a.png" } << "a.png" << "a (2).png";
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

void TestDownloadFile::downloadable_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("allowed");

    QTest::newRow("http") << "http://example.test/a.png" << true;
    QTest::newRow("https, upper case") << "HTTPS://example.test/a.png" << true;
    QTest::newRow("data") << "data:text/plain;base64,aGk=" << false;
    QTest::newRow("file") << "file:///etc/hostname" << false;
    QTest::newRow("ftp") << "ftp://example.test/a.png" << false;
    QTest::newRow("qrc") << "qrc:/html/start.html" << false;
    QTest::newRow("no host") << "http:///a.png" << false;
    QTest::newRow("empty") << "" << false;
}

void TestDownloadFile::downloadable()
{
    QFETCH(QString, url);
    QFETCH(bool, allowed);
    QCOMPARE(DownloadFile::isDownloadable(QUrl(url, QUrl::TolerantMode)), allowed);
}

void TestDownloadFile::discardLeavesTheFolderAsItWas()
{
    QTemporaryDir dir;
    QFile earlier(dir.filePath("a.png"));
    QVERIFY(earlier.open(QIODevice::WriteOnly) && earlier.write("earlier") == 7);
    earlier.close();
    DownloadFile file;
    QVERIFY(file.open(dir.path(), "a.png"));
    QVERIFY(file.write("new bytes"));
    file.discard();
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList { "a.png" });
    QVERIFY(earlier.open(QIODevice::ReadOnly));
    QCOMPARE(earlier.readAll(), QByteArray("earlier"));
}

QTEST_GUILESS_MAIN(TestDownloadFile)
#include "tst_downloadfile.moc"
