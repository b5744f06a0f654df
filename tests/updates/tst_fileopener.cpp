#include <QtTest>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDesktopServices>
#include <QTemporaryDir>

#include "platform/fileopener.h"

namespace {
const QString serviceName = QStringLiteral("org.freedesktop.FileManager1");
}

// Stand in for the desktop's file manager on the session bus, and its program for file URLs.
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public slots:
    void ShowItems(const QStringList& uris, const QString&) { shown.append(uris); }
public:
    QList<QStringList> shown;
};

class UrlRecorder : public QObject
{
    Q_OBJECT
public slots:
    void open(const QUrl& url) { opened.append(url); }
public:
    QList<QUrl> opened;
};

class TestFileOpener : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase() { QDesktopServices::unsetUrlHandler(QStringLiteral("file")); }
    void showInFolder_data();
    void showInFolder();
    void openFileUsesTheAssociatedProgram();

private:
    UrlRecorder mRecorder;
    FakeFileManager mFileManager;
    QTemporaryDir mDir;
};

void TestFileOpener::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "needs the private desktop's session bus");
    QVERIFY(QDBusConnection::sessionBus().registerObject(
        QStringLiteral("/org/freedesktop/FileManager1"), &mFileManager, QDBusConnection::ExportAllSlots));
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &mRecorder, "open");
}


void TestFileOpener::init()
{
    mRecorder.opened.clear();
    mFileManager.shown.clear();
    QDBusConnection::sessionBus().unregisterService(serviceName);
}

void TestFileOpener::showInFolder_data()
{
    QTest::addColumn<bool>("fileManager");
    QTest::addColumn<QString>("name");

    QTest::newRow("file manager selects the file, blanks and accents encoded") << true << "my photo \u00e9t\u00e9.jpg";
    QTest::newRow("no file manager: the folder opens") << false << "my photo #1.jpg";
}

void TestFileOpener::showInFolder()
{
    QFETCH(bool, fileManager);
    QFETCH(QString, name);

    if (fileManager)
        QVERIFY(QDBusConnection::sessionBus().registerService(serviceName));
    const QString path = mDir.filePath(name);
    FileOpener::instance()->showInFolder(path);

    if (fileManager) {
        QTRY_COMPARE(mFileManager.shown.size(), 1);
        QCOMPARE(mFileManager.shown.first(), QStringList { QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded) });
        QVERIFY(mRecorder.opened.isEmpty());
    } else {
        QTRY_COMPARE(mRecorder.opened.size(), 1);
        QCOMPARE(mRecorder.opened.first(), QUrl::fromLocalFile(mDir.path()));
        QVERIFY(mFileManager.shown.isEmpty());
    }
}

void TestFileOpener::openFileUsesTheAssociatedProgram()
{
    const QString path = mDir.filePath(QStringLiteral("clip #2.mp4"));
    FileOpener::instance()->openFile(path);
    QCOMPARE(mRecorder.opened, QList<QUrl> { QUrl::fromLocalFile(path) });
}

QTEST_MAIN(TestFileOpener)
#include "tst_fileopener.moc"
