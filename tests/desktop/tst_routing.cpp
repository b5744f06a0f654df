#include <QtTest>

#include <QDBusConnectionInterface>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "fakenotificationservice.h"
#include "notifications/notificator.h"
#include "recordingpage.h"
#include "resourceinit.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

enum class Path { Service, TrayBalloon };

QWidget* visibleBalloon()
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qstrcmp(widget->metaObject()->className(), "QBalloonTip") == 0 && widget->isVisible())
            return widget;
    }
    return nullptr;
}

// Answers every message box that shows while it lives, and remembers what they said.
class BoxAnswerer : public QObject
{
public:
    BoxAnswerer()
    {
        connect(&mTimer, &QTimer::timeout, this, [this] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                seen << box->windowTitle() + QLatin1Char('|') + box->text() + QLatin1Char('|')
                        + QString::number(box->icon());
                box->button(QMessageBox::Ok)->click();
            }
        });
        mTimer.start(10);
    }
    QStringList seen;

private:
    QTimer mTimer;
};

} // namespace

Q_DECLARE_METATYPE(Path)

class TestRouting : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void twoBalloonsThenOneClick_data();
    void twoBalloonsThenOneClick();
    void clickRestoresMinimisedWindowAndDelivers_data();
    void clickRestoresMinimisedWindowAndDelivers();
    void activationWithoutPayloadOnlyRestores();
    void clicksOnOtherNotificationsAreIgnored();
    void serviceGetsOneReplacingNotification();
    void textDecoding_data();
    void textDecoding();
    void refusingServiceFallsBackToBalloon();
    void notificatorModes_data();
    void notificatorModes();
    void pageSideDelivery();

private:
    void usePath(Path path);
    void clickLatest(Path path);

    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
    RecordingPage mPage;
    FakeNotificationService* mService = nullptr;
};

void TestRouting::initTestCase()
{
    QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "run inside scripts/desktop-session.sh");
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "needs a private session bus");
    QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(QStringLiteral("org.freedesktop.Notifications")));
    QVERIFY2(StagedFolder::enter(), "the staged program folder is missing");
    kestrelgapInitResources();
    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mPage.load(mIndexWindow));
    WinMenuBarIcon::getInstance(nullptr)->show();
    QTRY_VERIFY(WinMenuBarIcon::getInstance(nullptr)->geometry().isValid());
    mService = new FakeNotificationService();
}

void TestRouting::cleanupTestCase()
{
    delete mService;
    delete mMainWindow;
}

void TestRouting::init()
{
    mService->stop();
    mService->clear();
    mService->setRefuseNotify(false);
    mService->setCapabilities({QStringLiteral("actions"), QStringLiteral("body")});
    mIndexWindow->setJsonForWindows(QString());
    if (QWidget* balloon = visibleBalloon())
        balloon->hide();
    mMainWindow->showAlreadyRunningWindow();
    mPage.clear();
}

void TestRouting::usePath(Path path)
{
    if (path == Path::Service)
        QVERIFY(mService->start());
}

void TestRouting::clickLatest(Path path)
{
    if (path == Path::Service) {
        QVERIFY(!mService->received().isEmpty());
        mService->click(mService->received().last().id);
    } else {
        QTRY_VERIFY(visibleBalloon());
        QTest::mouseClick(visibleBalloon(), Qt::LeftButton);
    }
}

void TestRouting::twoBalloonsThenOneClick_data()
{
    QTest::addColumn<Path>("path");
    QTest::newRow("notification service") << Path::Service;
    QTest::newRow("tray balloon") << Path::TrayBalloon;
}

void TestRouting::twoBalloonsThenOneClick()
{
    QFETCH(Path, path);
    usePath(path);
    mIndexWindow->showNotification(QStringLiteral("{\"thread\":1}"), QStringLiteral("Ann"), QStringLiteral("hi"), true);
    mIndexWindow->showNotification(QStringLiteral("{\"thread\":2}"), QStringLiteral("Bob"), QStringLiteral("yo"), true);
    clickLatest(path);
    QTRY_VERIFY(!mPage.events().isEmpty());
    QCOMPARE(mPage.events(), QStringList {QStringLiteral("json:{\"thread\":2}")});

    // The payload went with the first click; another finds nothing to deliver.
    mPage.clear();
    mIndexWindow->activated(QSystemTrayIcon::Trigger);
    QCOMPARE(mPage.events(), QStringList());
}

void TestRouting::clickRestoresMinimisedWindowAndDelivers_data()
{
    twoBalloonsThenOneClick_data();
}

void TestRouting::clickRestoresMinimisedWindowAndDelivers()
{
    QFETCH(Path, path);
    usePath(path);
    mMainWindow->showMinimized();
    QTRY_VERIFY(mMainWindow->isMinimized());
    mIndexWindow->showNotification(QStringLiteral("{\"thread\":7}"), QStringLiteral("Cy"), QStringLiteral("ok"), true);
    clickLatest(path);
    QTRY_VERIFY(!mMainWindow->isMinimized());
    QVERIFY(mMainWindow->isVisible());
    QTRY_COMPARE(mPage.events(), QStringList {QStringLiteral("json:{\"thread\":7}")});
}

void TestRouting::activationWithoutPayloadOnlyRestores()
{
    mMainWindow->hide();
    mIndexWindow->activated(QSystemTrayIcon::Trigger);
    QTRY_VERIFY(mMainWindow->isVisible());
    QCOMPARE(mPage.events(), QStringList());

    // Reasons the tray can't send are ignored outright.
    mMainWindow->hide();
    mIndexWindow->setJsonForWindows(QStringLiteral("{\"thread\":3}"));
    mIndexWindow->activated(static_cast<QSystemTrayIcon::ActivationReason>(5));
    QVERIFY(!mMainWindow->isVisible());
    QCOMPARE(mPage.events(), QStringList());
}

void TestRouting::clicksOnOtherNotificationsAreIgnored()
{
    usePath(Path::Service);
    mIndexWindow->showNotification(QStringLiteral("{\"thread\":4}"), QStringLiteral("Di"), QStringLiteral("x"), true);
    const uint ours = mService->received().last().id;
    // Another program's notification, and a button of ours that isn't the body.
    mService->click(ours + 100);
    mService->click(ours, QStringLiteral("reply"));
    mService->click(ours);
    QTRY_VERIFY(!mPage.events().isEmpty());
    QCOMPARE(mPage.events(), QStringList {QStringLiteral("json:{\"thread\":4}")});
}

void TestRouting::serviceGetsOneReplacingNotification()
{
    usePath(Path::Service);
    mIndexWindow->showNotification(QStringLiteral("{}"), QStringLiteral("First"), QStringLiteral("one"), false);
    mIndexWindow->showNotification(QStringLiteral("{}"), QStringLiteral("Second"), QStringLiteral("two"), false);
    const QList<FakeNotificationService::Notification> received = mService->received();
    QCOMPARE(received.size(), 2);
    QCOMPARE(received.at(1).replacesId, received.at(0).id);
    QCOMPARE(received.at(1).appName, QStringLiteral("Kestrelgap"));
    QCOMPARE(received.at(1).summary, QStringLiteral("Second"));
    QCOMPARE(received.at(1).timeout, 30000);
    QVERIFY(received.at(1).actions.size() == 2 && received.at(1).actions.first() == QLatin1String("default"));
    QVERIFY(!visibleBalloon());
}

void TestRouting::textDecoding_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("markupService");
    QTest::addColumn<QString>("shown");

    QTest::newRow("three signs decode") << QStringLiteral("a+b%20c%20d%20") << false << QStringLiteral("a b c d ");
    QTest::newRow("two signs stay") << QStringLiteral("a+b%20c%20") << false << QStringLiteral("a+b%20c%20");
    QTest::newRow("percentage") << QStringLiteral("Battery 15% (was 20%)") << false
                                << QStringLiteral("Battery 15% (was 20%)");
    QTest::newRow("encoded utf-8") << QStringLiteral("caf%C3%A9+%26+cr%C3%A8me") << false
                                   << QStringLiteral("caf\u00e9 & cr\u00e8me");
    QTest::newRow("empty") << QString() << false << QString();
    QTest::newRow("markup service sees plain text") << QStringLiteral("<b>5 > 3 & more</b>") << true
                                                    << QStringLiteral("&lt;b&gt;5 &gt; 3 &amp; more&lt;/b&gt;");
}

void TestRouting::textDecoding()
{
    QFETCH(QString, text);
    QFETCH(bool, markupService);
    QFETCH(QString, shown);

    if (markupService)
        mService->setCapabilities({QStringLiteral("actions"), QStringLiteral("body"), QStringLiteral("body-markup")});
    usePath(Path::Service);
    mIndexWindow->showNotification(QStringLiteral("{}"), QStringLiteral("T"), text, false);
    QCOMPARE(mService->received().size(), 1);
    QCOMPARE(mService->received().last().body, shown);
}

void TestRouting::refusingServiceFallsBackToBalloon()
{
    usePath(Path::Service);
    mService->setRefuseNotify(true);
    mIndexWindow->showNotification(QStringLiteral("{\"thread\":9}"), QStringLiteral("Ed"), QStringLiteral("z"), true);
    QTRY_VERIFY(visibleBalloon());
    clickLatest(Path::TrayBalloon);
    QTRY_COMPARE(mPage.events(), QStringList {QStringLiteral("json:{\"thread\":9}")});
}

void TestRouting::notificatorModes_data()
{
    QTest::addColumn<bool>("withTray");
    QTest::addColumn<int>("cls");
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<int>("balloons");

    const QString critical = QStringLiteral("Title|Text|") + QString::number(QMessageBox::Critical);
    QTest::newRow("no tray, critical") << false << int(Notificator::Critical) << QStringList {critical} << 0;
    QTest::newRow("no tray, information") << false << int(Notificator::Information) << QStringList() << 0;
    QTest::newRow("tray, critical") << true << int(Notificator::Critical) << QStringList() << 1;
    QTest::newRow("tray, information") << true << int(Notificator::Information) << QStringList() << 1;
}

void TestRouting::notificatorModes()
{
    QFETCH(bool, withTray);
    QFETCH(int, cls);
    QFETCH(QStringList, boxes);
    QFETCH(int, balloons);

    usePath(Path::Service);
    QSystemTrayIcon icon;
    Notificator notificator(QStringLiteral("Kestrelgap"), QStringLiteral("{}"), withTray ? &icon : nullptr, mIndexWindow);
    QCOMPARE(notificator.mode(), withTray ? int(Notificator::SystemTray) : int(Notificator::Unavailable));

    BoxAnswerer answerer;
    notificator.notify(Notificator::Class(cls), QStringLiteral("{\"n\":1}"), QStringLiteral("Title"),
        QStringLiteral("Text"));
    QCOMPARE(answerer.seen, boxes);
    QCOMPARE(mService->received().size(), balloons);
}

void TestRouting::pageSideDelivery()
{
    // The page may call these itself: a stored payload stays until the page clears it.
    mIndexWindow->setJsonForWindows(QStringLiteral("{\"a\":1}"));
    mIndexWindow->messageClicked();
    mIndexWindow->messageClicked();
    mIndexWindow->processJson(QStringLiteral("{\"b\":2}"), QStringLiteral("sent"));
    QCOMPARE(mPage.events(),
        (QStringList {QStringLiteral("json:{\"a\":1}"), QStringLiteral("json:{\"a\":1}"),
            QStringLiteral("json:{\"b\":2}:sent")}));
}

QTEST_MAIN(TestRouting)
#include "tst_routing.moc"
