// A short day of messages through the bridge: popups over five threads opened and closed. Nothing
// crashes or stays stuck, and windows stay bounded. The long runs and their figures are bench/load's.
#include <QtTest>
#include <QtWidgets>

#include "desktop/winmenubaricon.h"
#include "guifixture.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"

class TestLoad : public QObject
{
    Q_OBJECT
private slots:
    void popupCycles()
    {
        GuiFixture fixture;
        GuiFixture::Options options;
        options.trayIcon = true;
        QVERIFY(fixture.start(options));
        NotificationWindowManager* manager = NotificationWindowManager::getInstance();
        QPointer<NotificationWindow> previous, window;
        for (int n = 0; n < 30; ++n) {
            const QString key = QStringLiteral("thread-%1").arg(n % 5);
            for (int text = 0; text < 2; ++text)
                QVERIFY(fixture.eval(QStringLiteral("qtIndexWindow.launchQuickReply('%1', JSON.stringify({key: '%1', name: 'C',"
                    " message: 'Message %2', sound: false}), 340, 200, 'C')").arg(key).arg(n)).toBool());
            QTRY_VERIFY((window = manager->getNotificationWindow(key)) && window->isVisible());
            QVERIFY(manager->notificationWindowCount() <= 2);
            if (n % 2 == 0) {
                previous = window;
                continue;
            }
            window->close(); // the title bar's close: asks the page before the window goes
            previous->close();
            QTRY_VERIFY(!window && !previous);
        }
        QCOMPARE(fixture.takeCalls().filter(QStringLiteral("\"action\":\"mark-read\"")).size(), 30);
        QCOMPARE(manager->notificationWindowCount(), 0);
        QCOMPARE(WinMenuBarIcon::getInstance(nullptr)->contextMenu()->actions().last()->text(), QStringLiteral("Quit Kestrelgap"));
        QCOMPARE(fixture.eval(QStringLiteral("qtIndexWindow.getSetting('load-probe', 'answered')")).toString(), "answered");
    }
};

QTEST_MAIN(TestLoad)
#include "tst_load.moc"
