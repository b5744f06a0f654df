#include <QtTest>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDesktopServices>

#include "platform/fileopener.h"

namespace {
const QString serviceName = QStringLiteral("org.freedesktop.FileManager1");
}

// Stands in for the desktop's file manager on the session bus, and for its program for file URLs.
class FakeDesktop : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public slots:
    void ShowItems(const QStringList& uris, const QString&) { asked << "selected " + uris.join(','); }
    void open(const QUrl& url) { asked << "opened " + url.toString(QUrl::FullyEncoded); }

public:
    QStringList asked;
};

class TestFileOpener : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { QDesktopServices::unsetUrlHandler(QStringLiteral("file")); }
    void action_data();
    void action();

private:
    FakeDesktop mDesktop;
};

void TestFileOpener::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "needs the private desktop's session bus");
    QVERIFY(QDBusConnection::sessionBus().registerObject(
        QStringLiteral("/org/freedesktop/FileManager1"), &mDesktop, QDBusConnection::ExportAllSlots));
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &mDesktop, "open");
}

void TestFileOpener::action_data()
{
    QTest::addColumn<QString>("action"); // show, show without a file manager, open
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("asked");

    QTest::newRow("file manager selects the file") << "show" << QStringLiteral("/tmp/my photo \u00e9t\u00e9.jpg")
                                                   << "selected file:///tmp/my%20photo%20%C3%A9t%C3%A9.jpg";
    QTest::newRow("no file manager: the folder opens") << "show bare" << "/tmp/d/my photo #1.jpg" << "opened file:///tmp/d";
    QTest::newRow("open with the associated program") << "open" << "/tmp/clip #2.mp4" << "opened file:///tmp/clip%20%232.mp4";
}

void TestFileOpener::action()
{
    QFETCH(QString, action);
    QFETCH(QString, path);
    QFETCH(QString, asked);

    mDesktop.asked.clear();
    QDBusConnection::sessionBus().unregisterService(serviceName);
    if (action == "show")
        QVERIFY(QDBusConnection::sessionBus().registerService(serviceName));
    if (action == "open")
        FileOpener::instance()->openFile(path);
    else
        FileOpener::instance()->showInFolder(path);
    QTRY_COMPARE(mDesktop.asked, QStringList { asked });
}

QTEST_MAIN(TestFileOpener)
#include "tst_fileopener.moc"
