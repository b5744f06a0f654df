#include <QtTest>

#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>

#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "fakenotificationservice.h"
#include "guifixture.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "web/indexwindow.h"

namespace {

const QString delivered = QStringLiteral("processJSONFromNativeNotificationClickHelper ");

WinMenuBarIcon* tray()
{
    return WinMenuBarIcon::getInstance(nullptr);
}

QAction* entry(const QString& text)
{
    for (QAction* action : tray()->contextMenu()->actions())
        if (action->text() == text)
            return action;
    return nullptr;
}

} // namespace

class TestTray : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(mGui.startWithTray());
        mGui.eval("_gaq.push = _kmq.push = function () {};");
        // The service's own sound is only asked for on this route.
        page()->setNativeNotificationSetting("native-notification");
        QTRY_VERIFY_WITH_TIMEOUT(visibleTopLevel("QSystemTrayIconSys") && exposed(visibleTopLevel("QSystemTrayIconSys")), windowManagerTimeout);
    }

    void init()
    {
        mService.stop();
        page()->setJsonForWindows(QString());
        window()->showAlreadyRunningWindow();
        mGui.takeCalls();
    }

    void clicks_data()
    {
        QTest::addColumn<QString>("clicks");
        QTest::newRow("one opens the menu") << "1";
        QTest::newRow("two bring the window back, no menu") << "2";
    }

    void clicks()
    {
        QFETCH(QString, clicks);
        QApplication::setActiveWindow(window());
        QTRY_VERIFY_WITH_TIMEOUT(window()->isActiveWindow(), windowManagerTimeout);
        QTest::keyClick(window(), Qt::Key_W, Qt::ControlModifier);
        QTRY_VERIFY(!window()->isVisible());
        const QPoint at = tray()->geometry().center();
        // Through the X server, well inside the double-click time, so that its timestamps make one.
        QCOMPARE(QProcess::execute("xdotool", {"mousemove", QString::number(at.x()), QString::number(at.y()), "click",
                                                  "--repeat", clicks, "--delay", "60", "1"}), 0);
        if (clicks == "1")
            QTRY_VERIFY(tray()->contextMenu()->isVisible());
        QTRY_COMPARE_WITH_TIMEOUT(window()->isVisible(), clicks == "2", windowManagerTimeout);
        if (clicks == "2") {
            // Also once the double-click time has passed.
            QTest::qWait(QApplication::doubleClickInterval() + 200);
            QVERIFY(!tray()->contextMenu()->isVisible());
        }
        tray()->contextMenu()->hide();
        // Off the tray: a pointer already on a target never reports the move "xdotool mousemove" waits for.
        QCOMPARE(QProcess::execute("xdotool", {"mousemove", "1", "1"}), 0);
    }

    void balloonClick_data()
    {
        QTest::addColumn<int>("service"); // -1: none, so Qt's own balloon
        QTest::newRow("desktop's notification service") << int(FakeNotificationService::Answer);
        QTest::newRow("Qt's balloon") << -1;
        QTest::newRow("service refuses: Qt's balloon") << int(FakeNotificationService::Refuse);
        QTest::newRow("service hangs, then goes: Qt's balloon") << int(FakeNotificationService::Hang);
    }

    // Two balloons while the window is minimised: a click delivers the latest payload, once, and restores it.
    void balloonClick()
    {
        QFETCH(int, service);
        if (service >= 0)
            QVERIFY(mService.start(FakeNotificationService::Mode(service)));
        // A show or activation still on its way from the row before can undo these; ask until they hold.
        QTRY_VERIFY_WITH_TIMEOUT([this] { if (!exposed(window())) window()->showNormal(); return exposed(window()); }(),
            windowManagerTimeout);
        // Qt's state stays "minimised" even when an activation from before undid it: ask afresh.
        QElapsedTimer asked;
        QTRY_VERIFY_WITH_TIMEOUT([&] {
            if (!window()->isMinimized() || (exposed(window()) && (!asked.isValid() || asked.hasExpired(1000)))) {
                window()->setWindowState(window()->windowState() & ~Qt::WindowMinimized);
                window()->showMinimized();
                asked.start();
            }
            return window()->isMinimized() && !exposed(window()); }(), windowManagerTimeout);
        QElapsedTimer clock; // a service that hangs must not hold the window up
        clock.start();
        page()->showNotification("{\"thread\":1}", "Ann", "hi", true);
        page()->showNotification("{\"thread\":2}", "Bob", "yo", true);
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
        if (service == FakeNotificationService::Answer) {
            QTRY_COMPARE(mService.received.size(), 2);
            const auto shown = mService.received;
            // One on screen at a time, tied to the launcher and so to the desktop's settings for us.
            QCOMPARE(QStringList({QString::number(shown.at(1).replacesId), shown.at(1).summary,
                         shown.at(1).hints.value("desktop-entry").toString(), shown.at(1).hints.value("category").toString()}),
                QStringList({QString::number(shown.at(0).id), "Bob", "kestrelgap", "im.received"}));
            QVERIFY2(QImage(shown.at(1).appIcon).width() >= 48, qPrintable(shown.at(1).appIcon));
            // Another program's notification and a button that isn't the body don't count; the reply
            // after them shows when they have been read.
            mService.click(shown.at(1).id + 100);
            mService.click(shown.at(1).id, "snooze");
            mService.reply(shown.at(1).id, "x");
            QTRY_COMPARE(mGui.calls(), QStringList {delivered + "{\"thread\":2} reply:x"});
            mGui.takeCalls();
            mService.click(shown.at(1).id);
        } else {
            mService.stop();
            QTRY_VERIFY_WITH_TIMEOUT(visibleTopLevel("QBalloonTip"), windowManagerTimeout);
            QTest::mouseClick(visibleTopLevel("QBalloonTip"), Qt::LeftButton);
        }
        QTRY_COMPARE(mGui.calls(), QStringList {delivered + "{\"thread\":2}"});
        mGui.takeCalls();
        QTRY_VERIFY_WITH_TIMEOUT(window()->isVisible() && !window()->isMinimized(), windowManagerTimeout);
        // Delivered; a later activation only shows the window.
        window()->hide();
        page()->activated(QSystemTrayIcon::Trigger);
        QTRY_VERIFY(window()->isVisible());
        QCOMPARE(mGui.takeCalls(), QStringList());
    }

    void whatTheServiceIsGiven_data()
    {
        QTest::addColumn<QStringList>("capabilities");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("image"); // "file": a picture on disk
        QTest::addColumn<QString>("sound"); // the user's setting
        QTest::addColumn<QString>("reply"); // null: no Reply button asked; else typed
        QTest::addColumn<QString>("body");
        QTest::addColumn<QStringList>("given"); // sound and image hints, the actions beyond the default
        const QStringList none, sound {"sound"}, inlineReply {"inline-reply"};
        const QString t = "t", no, escapes = QString::fromUtf8("it's \"fine\" C:\\new\\ \\'\n\r\n\u2028\u2029</script><script>x()</script>");

        QTest::newRow("three signs decode") << none << "caf%C3%A9+%26+cr%C3%A8me%20" << "" << "1" << no << "caf\u00e9 & cr\u00e8me " << none;
        QTest::newRow("encoded, colon in the first words") << none << "Sale: 10%25 20%25 30%25" << "" << "1" << no << "Sale: 10% 20% 30%" << none;
        QTest::newRow("markup service") << QStringList {"body-markup"} << "<b>5 > 3 & 1</b>" << "" << "1" << no
                                        << "&lt;b&gt;5 &gt; 3 &amp; 1&lt;/b&gt;" << none;
        QTest::newRow("service sounds") << sound << t << "" << "1" << no << t << QStringList {"sound-name=message-new-instant"};
        QTest::newRow("service sounds, user wants silence") << sound << t << "" << "0" << no << t << QStringList {"suppress-sound=true"};
        QTest::newRow("local picture") << none << t << "file" << "1" << no << t << QStringList {"image-path=file"};
        QTest::newRow("missing picture") << none << t << "/nonexistent/face.png" << "1" << no << t << none;
        QTest::newRow("no button asked") << inlineReply << t << "" << "1" << no << t << none;
        QTest::newRow("inline reply") << inlineReply << t << "" << "1" << escapes << t << QStringList {"inline-reply,Reply"};
    }

    // A later balloon's payload is what a plain click would deliver; a reply keeps to its own.
    void whatTheServiceIsGiven()
    {
        QFETCH(QStringList, capabilities);
        QFETCH(QString, text);
        QFETCH(QString, image);
        QFETCH(QString, sound);
        QFETCH(QString, reply);
        QFETCH(QString, body);
        QFETCH(QStringList, given);

        const QString face = mDir.filePath("face.png");
        QVERIFY(QImage(8, 8, QImage::Format_RGB32).save(face));
        page()->setNotificationSoundEnabled(sound);
        window()->hide();
        QVERIFY(mService.start(FakeNotificationService::Answer, capabilities));
        // Once the service has told what it can, our own sound gives way to its.
        QTRY_COMPARE(page()->isNotificationSoundEnabledForThisOSVersion(), !capabilities.contains("sound"));
        page()->showNotification("{\"thread\":1}", "T", text, false, !reply.isNull(), image == "file" ? face : image);
        // Balloons still held back by the hanging service of a row before may come first.
        QTRY_VERIFY_WITH_TIMEOUT(!mService.received.isEmpty() && mService.received.last().summary == "T", windowManagerTimeout);
        const FakeNotificationService::Notification sent = mService.received.last();
        QCOMPARE(sent.body, body);
        QStringList seen;
        for (const char* name : {"sound-name", "sound-file", "suppress-sound", "image-path"})
            if (sent.hints.contains(name))
                seen << QString(name) + "=" + sent.hints.value(name).toString().replace(face, "file");
        if (sent.actions.size() > 2)
            seen << sent.actions.mid(2).join(',');
        QCOMPARE(seen, given);
        if (reply.isNull())
            return;
        page()->setJsonForWindows("{\"thread\":2}");
        mService.reply(sent.id, reply);
        QTRY_COMPARE(mService.closed, QList<uint> {sent.id});
        QTRY_COMPARE(mGui.calls(), QStringList {delivered + "{\"thread\":1} reply:" + reply});
    }

    // Without a compositor a transparent window is drawn black: the helper must leave the tray corner as it was.
    void helperWindowNeverShows()
    {
        QScreen* screen = QGuiApplication::primaryScreen();
        const QPoint corner = screen->geometry().bottomRight() - QPoint(4, 4);
        const QImage before = screen->grabWindow(0, corner.x(), corner.y(), 5, 5).toImage();
        QWidget* helper = NotificationWindowManager::getInstance()->getHackWindow();
        helper->showNormal();
        helper->activateWindow();
        // Requests reach the X server in order: once this one is on screen, the helper's would be too.
        QWidget marker;
        marker.setGeometry(10, 10, 20, 20);
        marker.show();
        QTRY_VERIFY_WITH_TIMEOUT(exposed(&marker), windowManagerTimeout);
        QCOMPARE(screen->grabWindow(0, corner.x(), corner.y(), 5, 5).toImage(), before);
    }

    void menuChoicesReachPage()
    {
        page()->updateClientLoginStateForMenuItems(true);
        tray()->addCloseQuickReplyWindowsOption();
        for (const char* choice : {"New Message...", "Phone Dialer", "Close All Popup Windows"})
            entry(choice)->trigger();
        QCOMPARE(mGui.takeCalls(), QStringList({"nativeAppWindowComposeSingleMessageHelper",
                                       "openPhoneLiveViewInNativeAppWindow {\"type\":\"dialer_view_standalone\"}"}));
        QVERIFY(!entry("Close All Popup Windows")->isVisible());
    }

    void quitConfirmation()
    {
        for (const auto answer : {QMessageBox::No, QMessageBox::Yes}) {
            QString text;
            QTimer::singleShot(0, [&] {
                QTRY_VERIFY(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
                auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
                text = box->text();
                box->button(answer)->click();
            });
            entry("Quit Kestrelgap")->trigger();
            QCOMPARE(text, QStringLiteral("Are you sure you want to quit Kestrelgap?"));
            QCOMPARE(tray()->trayIcon()->isVisible(), answer == QMessageBox::No);
        }
    }

private:
    IndexWindow* page() const { return mGui.indexWindow(); }
    MainWindow* window() const { return mGui.mainWindow(); }

    GuiFixture mGui;
    FakeNotificationService mService;
    QTemporaryDir mDir;
};

QTEST_MAIN(TestTray)
#include "tst_tray.moc"
