// What the hosted page can ask of the popups: sizes of its choosing, calls back into the program
// from inside a call, hostile arguments. None of it may hang the program or take the screen's worth
// of memory.
#include <QtTest>
#include <QtWebKitWidgets>

#include "guifixture.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "../updates/standins.h"
#include "web/indexwindow.h"

namespace {

qint64 residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
    const int at = text.indexOf("VmRSS:");
    return at < 0 ? 0 : text.mid(at + 6, text.indexOf('\n', at) - at - 6).trimmed().split(' ').value(0).toLongLong();
}

NotificationWindowManager* manager()
{
    return NotificationWindowManager::getInstance();
}

QVariant evaluate(NotificationWindow* window, const QString& script)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript(script);
}

} // namespace

class TestPageFaults : public QObject
{
    Q_OBJECT
public slots:
    void ignoreUrl(const QUrl&) {}
private slots:
    void initTestCase();
    void cleanup();
    void pageChosenSize_data();
    void pageChosenSize();
    void quickReplyCalledFromItsOwnPayload();
    void everyBridgeSlot_data();
    void everyBridgeSlot();

private:
    GuiFixture mGui;
};

void TestPageFaults::initTestCase()
{
    QVERIFY(mGui.start());
    // The figures below are worked out for the offscreen screen at zoom 1.
    QCOMPARE(QGuiApplication::primaryScreen()->availableGeometry(), QRect(0, 0, 800, 600));
    QCOMPARE(manager()->scaleFactor(), 1.0);
}

void TestPageFaults::cleanup()
{
    manager()->closeAllNotificationWindows();
    QTRY_COMPARE(manager()->notificationWindowCount(), 0);
}

void TestPageFaults::pageChosenSize_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<QSize>("expected"); // within the free screen, at least 50 a side

    QTest::newRow("ordinary") << 300 << 200 << QSize(300, 200);
    QTest::newRow("100000 square") << 100000 << 100000 << QSize(800, 600);
    QTest::newRow("int max") << 2147483647 << 2147483647 << QSize(800, 600);
    QTest::newRow("int min") << int(-2147483647 - 1) << int(-2147483647 - 1) << QSize(50, 50);
    QTest::newRow("mixed") << -1 << 2147483647 << QSize(50, 600);
}

// Through the bridge call and through the popup's own resize, the same bounds.
void TestPageFaults::pageChosenSize()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(QSize, expected);
    const QString json = QStringLiteral(R"({"key":"s","name":"Ann","message":"hi","sound":false})");
    QVERIFY(mGui.indexWindow()->launchQuickReply(QStringLiteral("s"), json, width, height, QString()));
    NotificationWindow* window = manager()->getNotificationWindow(QStringLiteral("s"));
    QVERIFY(window);
    QCOMPARE(window->size(), expected);

    QTRY_COMPARE(evaluate(window, QStringLiteral("typeof qt")).toString(), QStringLiteral("object"));
    evaluate(window, QStringLiteral("qt.resizeWindow('s', 400, 300)"));
    QCOMPARE(window->size(), QSize(400, 300));
    evaluate(window, QStringLiteral("qt.resizeWindow('s', %1, %2)").arg(width).arg(height));
    QCOMPARE(window->size(), expected);
}

// A payload is script in the popup; this one calls back into launchQuickReply through the main page
// while the first call is still feeding the popup. Without a guard the program waits for itself for ever.
void TestPageFaults::quickReplyCalledFromItsOwnPayload()
{
    mGui.eval(QStringLiteral("window.reentered = null;"
                             "window.genericNativeNotificationButtonClickedCallbackHelper = function () {"
                             "  window.reentered = qtIndexWindow.launchQuickReply('t', '{}', 300, 200, ''); };"));
    IndexWindow* page = mGui.indexWindow();
    QVERIFY(page->launchQuickReply(QStringLiteral("t"), QStringLiteral(R"({"key":"t","message":"one"})"), 300, 200, QString()));
    NotificationWindow* window = manager()->getNotificationWindow(QStringLiteral("t"));
    QVERIFY(window);
    QTRY_COMPARE(evaluate(window, QStringLiteral("typeof processSecondJSONPayloadForAlreadyOpenedNotificationWindowHelper")).toString(),
                 QStringLiteral("function"));
    const QString payload = QStringLiteral("{}'); qt.genericNativeNotificationButtonClicked('{}'); ('");
    QVERIFY(page->launchQuickReply(QStringLiteral("t"), payload, 300, 200, QString()));
    QCOMPARE(mGui.eval(QStringLiteral("window.reentered")), QVariant(true));
    QCOMPARE(manager()->notificationWindowCount(), 1);
}

void TestPageFaults::everyBridgeSlot_data()
{
    QTest::addColumn<QString>("text");   // a script expression for every text argument
    QTest::addColumn<QString>("number"); // and for every number

    QTest::newRow("quotes, end of script") << R"("'\"); alert(1); //\\</script><script>qtIndexWindow.log('x')</script>")" << "2147483647";
    QTest::newRow("NUL, a megabyte") << R"("a\u0000b" + new Array(1048577).join("'"))" << "-2147483648";
    QTest::newRow("not strings, not numbers") << "null" << "NaN";
    QTest::newRow("objects, huge numbers") << "({toString: function () { return '../../.bashrc'; }})" << "-1e300";
}

// Every slot the page can reach, called from the page's script with hostile arguments: each call
// returns, the program stays up, and its memory stays within bounds.
void TestPageFaults::everyBridgeSlot()
{
    QFETCH(QString, text);
    QFETCH(QString, number);
    // Files and addresses are recorded instead of opened.
    RecordingFileOpener opener;
    for (const char* scheme : {"http", "https", "file", "mailto", "ftp", "data", "javascript"})
        QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), this, "ignoreUrl");
    // Whatever a slot opens modally is dismissed, as a user would.
    QTimer dismiss;
    connect(&dismiss, &QTimer::timeout, [] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            dialog->reject();
    });
    dismiss.start(50);

    const QMetaObject* meta = &IndexWindow::staticMetaObject;
    const qint64 before = residentKb();
    QStringList called;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.access() != QMetaMethod::Public || method.methodType() != QMetaMethod::Slot)
            continue;
        QStringList arguments;
        for (const QByteArray& type : method.parameterTypes())
            arguments << (type == "int" || type == "long" || type == "double" ? number : type == "bool" ? "true" : text);
        const QString call = QStringLiteral("qtIndexWindow['%1'](%2)").arg(QString::fromLatin1(method.methodSignature()), arguments.join(','));
        QElapsedTimer clock;
        clock.start();
        mGui.eval(QStringLiteral("try { %1; } catch (e) {}").arg(call));
        QVERIFY2(clock.elapsed() < 60000, qPrintable(call.left(200))); // a hang, not a slow machine
        called << QString::fromLatin1(method.name());
    }
    QVERIFY(called.contains(QStringLiteral("downloadFile")) && called.contains(QStringLiteral("launchQuickReply")));
    manager()->closeAllNotificationWindows();
    QTRY_COMPARE(manager()->notificationWindowCount(), 0);
    // A page-sized popup took gigabytes; a row of calls may cost a few copies of a megabyte.
    const qint64 grown = residentKb() - before;
    QVERIFY2(grown < 300 * 1024, qPrintable(QStringLiteral("%1 kB more").arg(grown)));
    QCOMPARE(mGui.eval(QStringLiteral("1 + 1")).toInt(), 2);
}

QTEST_MAIN(TestPageFaults)
#include "tst_pagefaults.moc"
