// Popups on a real X screen with the real popup page: real windows land where the placement rules say
// for the records they carry, on any screen size, with or without a window manager.
#include <QtTest>

#include <QScreen>
#include <QtWebKitWidgets>

#include "desktop/mainwindow.h"
#include "guifixture.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "notifications/popupgeometry.h"
#include "notifications/popuptray.h"
#include "web/indexwindow.h"

namespace {

struct TrayStandIn : PopupTray {
    QRect geometry() override { return QRect(); }
    void addCloseQuickReplyWindowsOption() override { ++added; }
    void removeCloseQuickReplyWindowsOption() override { ++removed; }
    int added = 0, removed = 0;
};

NotificationWindowManager* manager() { return NotificationWindowManager::getInstance(); }

QVariant evaluate(NotificationWindow* w, const QString& script) { return w->webView()->page()->mainFrame()->evaluateJavaScript(script); }

} // namespace

class TestPopups : public QObject
{
    Q_OBJECT
private slots:
    void init() { mFixture.takeCalls(), mTray.added = mTray.removed = 0; }
    void cleanup() { QVERIFY(closeAll()); }

    void initTestCase()
    {
        QVERIFY(mFixture.start());
        PopupTray::setInstance(&mTray);
        QVERIFY(QTest::qWaitForWindowExposed(mFixture.mainWindow()));
        mScale = mFixture.mainWindow()->getScaleFactor();
        mOsScale = mFixture.mainWindow()->getOsScaleFactor();
        mAvailable = QGuiApplication::primaryScreen()->availableGeometry().size();
        QProcess xprop;
        xprop.start(QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK") });
        xprop.waitForFinished(5000);
        mWindowManager = xprop.readAllStandardOutput().contains("window id");

        const QSize standard(int(300 * mScale), int(200 * mScale));
        QList<PopupGeometry::StackedPopup> column;
        for (PopupGeometry::StackPlace p; (p = PopupGeometry::stackedPlace(column, standard, mAvailable, mOsScale)).column == 1;)
            column << PopupGeometry::StackedPopup { p.index, 1, p.y, standard.height(), QRect(QPoint(p.x, p.y), standard), p.x, true };
        mPerColumn = column.size();
        QVERIFY2(mPerColumn >= 3, "the tables need room for three popups in a column");
    }

    void cleanupTestCase() { PopupTray::setInstance(nullptr); }

    // Widths of the popups opened in turn (0: one the user drags out of the stack right after it opened),
    // and which one then closes, counted from 0 (-1: none).
    void placementAndReflow_data()
    {
        QTest::addColumn<QList<int>>("widths");
        QTest::addColumn<int>("closed");
        const QList<int> overflow = QVector<int>(mPerColumn + 2, 300).toList();
        QTest::newRow("dragged popup left out, another width after") << QList<int> { 300, 300, 0, 400, 300 } << -1;
        QTest::newRow("middle of one column") << QList<int> { 300, 300, 300 } << 1;
        QTest::newRow("first: the second column empties into the first") << overflow << 0;
        QTest::newRow("first, with a dragged popup between") << QList<int> { 300, 0, 300 } << 0;
    }

    void placementAndReflow()
    {
        QFETCH(QList<int>, widths);
        QFETCH(int, closed);
        QList<NotificationWindow*> windows;
        QList<PopupGeometry::StackedPopup> stack;
        QList<PopupGeometry::ReflowPopup> records; // where each window stands, then should stand after the close
        for (int width : widths) {
            const QSize size(int((width ? width : 300) * mScale), int(200 * mScale));
            const PopupGeometry::StackPlace want = PopupGeometry::stackedPlace(stack, size, mAvailable, mOsScale);
            NotificationWindow* window = openShown(QStringLiteral("p%1").arg(windows.size()), width ? width : 300);
            QVERIFY(window);
            QCOMPARE(window->property(PopupProperty::widgetIndex).toInt(), want.index);
            QCOMPARE(window->property(PopupProperty::column).toInt(), want.column);
            QCOMPARE(window->size(), size);
            QTRY_COMPARE(window->geometry().topLeft(), QPoint(want.x, want.y));
            if (width) {
                stack << PopupGeometry::StackedPopup { want.index, want.column, want.y, size.height(), window->geometry(),
                    window->frameGeometry().left(), true };
            } else {
                window->move(window->frameGeometry().left() - 150, window->frameGeometry().top() + 60);
                window->setProperty(PopupProperty::widgetMoved, true);
                QTRY_VERIFY(window->geometry().topLeft() != QPoint(want.x, want.y));
            }
            windows << window;
            records << PopupGeometry::ReflowPopup { want.index, want.column, !width, false, window->geometry(), window->frameGeometry() };
        }
        QCOMPARE(mTray.added, widths.size()); // every quick reply offers the tray's close entry
        if (closed < 0)
            return;
        const PopupGeometry::ReflowPopup gap = records.at(closed);
        const auto moves = PopupGeometry::reflow(records, gap.index, gap.client.top(), gap.column, mAvailable, mOsScale);
        QVERIFY(!moves.isEmpty());
        for (const PopupGeometry::ReflowMove& move : moves) {
            records[move.popup].client = move.to;
            records[move.popup].column = move.column;
        }
        QPointer<NotificationWindow> gone(windows.at(closed));
        gone->forceClose();
        QTRY_VERIFY(!gone);
        for (int i = 0; i < windows.size(); ++i) {
            if (i == closed)
                continue;
            QTRY_COMPARE(windows.at(i)->geometry(), records.at(i).client);
            QCOMPARE(windows.at(i)->property(PopupProperty::column).toInt(), records.at(i).column);
        }
    }

    // A thread's first message opens its popup, later ones join it; a compose window holds its key.
    void launchOpensOnceAndFeedsTheOpenWindow()
    {
        IndexWindow* page = mFixture.indexWindow();
        QVERIFY(page->launchQuickReply("t1", R"({"key":"t1","name":"Ann","message":"one","sound":false})", 300, 200, "Ann"));
        NotificationWindow* window = manager()->getNotificationWindow("t1");
        QVERIFY(window);
        const QString count = QStringLiteral("document.querySelectorAll('.message').length");
        QTRY_COMPARE(evaluate(window, count).toInt(), 1);
        QTRY_VERIFY(window->isVisible());
        const QRect placed = window->geometry();
        QVERIFY(page->launchQuickReply("t1", R"({"message":"two"})", 500, 500, QString()));
        QTRY_COMPARE(evaluate(window, count).toInt(), 2);
        QCOMPARE(manager()->notificationWindowCount(), 1);
        QCOMPARE(window->geometry(), placed);

        QVERIFY(page->launchQuickReply("native_compose_new_window-1", "{}", 300, 200, QString()));
        QTRY_VERIFY(manager()->hasNotificationWindow("native_compose_new_window-1"));
        QVERIFY(page->launchQuickReply("native_compose_new_window-1", R"({"message":"x"})", 300, 200, QString()));
        QCOMPARE(manager()->notificationWindowCount(), 1);

        // A reply reaches the main page as typed; a raw line separator would end the test's own script string.
        const QString reply = QString::fromUtf8("It's \"fine\" in C:\\temp\nsecond line\u2028third");
        const QString literal = QString::fromUtf8(QJsonDocument(QJsonArray { reply }).toJson(QJsonDocument::Compact))
                                    .replace(QChar(0x2028), QStringLiteral("\\u2028"));
        evaluate(window, QStringLiteral("document.getElementById('reply').value = %1[0]; updateSend();").arg(literal));
        evaluate(window, QStringLiteral("document.getElementById('send').click()"));
        QCOMPARE(pageCalls(QStringLiteral("reply")), QStringList { "t1|" + reply });
        QCOMPARE(evaluate(window, QStringLiteral("unsentText()")).toBool(), false); // sent: nothing holds a close back
    }

    // How a close is asked for, of which popup beside which, and whether the reply box holds text.
    void closeRequests_data()
    {
        QTest::addColumn<QString>("trigger");
        QTest::addColumn<QStringList>("keys"); // the one that closes, then the one opened after it
        QTest::addColumn<bool>("unsent");
        QTest::addColumn<bool>("closes");
        QTest::addColumn<bool>("followerMoves");
        QTest::addColumn<int>("trayRemoved");
        const QStringList two { "target", "follower" };
        const QString compose = QStringLiteral("native_compose_new_window");
        QTest::newRow("Ctrl+W, nothing unsent") << "ctrl-w" << two << false << true << true << 0;
        QTest::newRow("Ctrl+W, unsent reply: the page asks first") << "ctrl-w" << two << true << false << false << 0;
        QTest::newRow("Ctrl+W, unsent reply, then Discard") << "ctrl-w then discard" << two << true << true << true << 0;
        QTest::newRow("main window's Close, unsent reply") << "main close" << two << true << false << false << 0;
        QTest::newRow("closed by key from the main page") << "by key" << two << true << true << true << 0;
        QTest::newRow("forceClose twice") << "forceClose twice" << two << false << true << true << 0;
        QTest::newRow("last quick reply, beside a compose window") << "forceClose" << QStringList { "target", compose }
                                                                   << false << true << false << 1;
        QTest::newRow("compose beside one quick reply: reads as the last") << "forceClose" << QStringList { compose, "q1" } << false
                                                                        << true << false << 1;
        QTest::newRow("quick reply beside a live view") << "forceClose" << QStringList { "target", "phone_notif_live_view_1" }
                                                        << false << true << true << 0;
    }

    void closeRequests()
    {
        QFETCH(QString, trigger);
        QFETCH(QStringList, keys);
        QFETCH(bool, unsent);
        QFETCH(bool, closes);
        QFETCH(bool, followerMoves);
        NotificationWindow* target = openShown(keys.first());
        NotificationWindow* follower = openShown(keys.last());
        QVERIFY(target && follower);
        const QRect targetPlace = target->geometry();
        const QRect followerPlace = follower->geometry();
        if (unsent)
            evaluate(target, QStringLiteral("document.getElementById('reply').value = 'see you at'; updateSend();"));
        QPointer<NotificationWindow> guard(target);
        const QString asking = QStringLiteral("document.getElementById('confirm').className == 'confirm shown'");

        if (trigger.startsWith(QLatin1String("ctrl-w")) || trigger == QLatin1String("main close")) {
            QApplication::setActiveWindow(target);
            QTRY_VERIFY(target->isActiveWindow());
        }
        if (trigger.startsWith(QLatin1String("ctrl-w"))) {
            QTest::keyClick(target, Qt::Key_W, Qt::ControlModifier);
            if (trigger.endsWith(QLatin1String("discard"))) {
                QVERIFY(guard && evaluate(target, asking).toBool());
                evaluate(target, QStringLiteral("document.getElementById('discard').click()"));
            }
        } else if (trigger == QLatin1String("main close")) {
            mFixture.mainWindow()->closeActionClicked();
        } else if (trigger == QLatin1String("by key")) {
            manager()->closeNotificationWindow(keys.first());
        } else {
            target->forceClose();
            if (trigger.endsWith(QLatin1String("twice")))
                target->forceClose();
        }

        if (closes) {
            QTRY_VERIFY(!guard);
            QCOMPARE(pageCalls(QStringLiteral("mark-read")), QStringList { keys.first() + "|" });
        } else {
            // Refused: everything as it was, and the page shows its question with the text kept.
            QVERIFY(guard && target->isVisible());
            QVERIFY(pageCalls(QStringLiteral("mark-read")).isEmpty());
            QVERIFY(evaluate(target, asking).toBool());
            QCOMPARE(evaluate(target, QStringLiteral("document.getElementById('reply').value")).toString(), "see you at");
        }
        QTEST(mTray.removed, "trayRemoved");
        if (followerMoves)
            QTRY_COMPARE(follower->geometry().topLeft(), targetPlace.topLeft());
        else
            QCOMPARE(follower->geometry(), followerPlace);
    }
private:

    GuiFixture mFixture;
    TrayStandIn mTray;
    double mScale = 1.0;
    double mOsScale = 1.0;
    QSize mAvailable;
    bool mWindowManager = false;
    int mPerColumn = 0; // standard popups that fit in one column

    NotificationWindow* openShown(const QString& key, int width = 300)
    {
        const QString json = QStringLiteral("{\"key\":\"%1\",\"name\":\"%1\",\"message\":\"Still on?\",\"sound\":false}").arg(key);
        QPointer<NotificationWindow> window = manager()->createNotificationWindow(key, json, width, 200);
        if (!QTest::qWaitFor([&]() { return window && window->isVisible(); }, 10000) || !QTest::qWaitForWindowExposed(window))
            return nullptr;
        // The frame extents arrive after the window manager has reparented the window.
        if (mWindowManager && !QTest::qWaitFor([&]() { return window->frameGeometry().top() < window->geometry().top(); }, 5000))
            return nullptr;
        return window;
    }

    bool closeAll()
    {
        manager()->closeAllNotificationWindows();
        const QVariant popup(QStringLiteral("notification"));
        return QTest::qWaitFor([&]() {
            const QWidgetList all = QApplication::topLevelWidgets();
            return std::none_of(all.begin(), all.end(), [&](QWidget* w) { return w->property(PopupProperty::windowType) == popup; });
        }, 5000);
    }

    // The page's callbacks of one action since the last look, as "key|text".
    QStringList pageCalls(const QString& action)
    {
        const QString prefix = QStringLiteral("genericNativeNotificationButtonClickedCallbackHelper ");
        QStringList calls;
        for (const QString& call : mFixture.takeCalls()) {
            const QJsonObject o = QJsonDocument::fromJson(call.mid(prefix.size()).toUtf8()).object();
            if (call.startsWith(prefix) && o.value(QStringLiteral("action")).toString() == action)
                calls << o.value(QStringLiteral("key")).toString() + QLatin1Char('|') + o.value(QStringLiteral("text")).toString();
        }
        return calls;
    }
};

QTEST_MAIN(TestPopups)
#include "tst_popups.moc"
