// What the hosted page can ask of the popups: sizes of its choosing and calls back into the
// program from inside a call. None of it may hang the program or take the screen's worth of memory.
#include <QtTest>

#include <unistd.h>

#include <QDesktopServices>
#include <QDialog>
#include <QGraphicsWebView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaMethod>
#include <QScreen>
#include <QSettings>
#include <QTemporaryFile>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "notifications/popuptray.h"
#include "platform/fileopener.h"
#include "stagedfolder.h"
#include "web/indexwindow.h"

namespace {

struct TrayStandIn : PopupTray {
    QRect geometry() override { return QRect(); }
    void addCloseQuickReplyWindowsOption() override {}
    void removeCloseQuickReplyWindowsOption() override {}
};

NotificationWindowManager* manager()
{
    return NotificationWindowManager::getInstance();
}

// Opening or showing a file, or an address in the browser, is recorded instead of done.
struct NoDesktop : QObject, FileOpener {
    Q_OBJECT
public:
    NoDesktop()
    {
        FileOpener::setInstance(this);
        for (const char* scheme : { "http", "https", "file", "mailto", "ftp", "data", "javascript" })
            QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), this, "open");
    }
    ~NoDesktop() override { FileOpener::setInstance(nullptr); }
    void openFile(const QString&) override {}
    void showInFolder(const QString&) override {}
public slots:
    void open(const QUrl&) {}
};

qint64 residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

QVariant evaluate(NotificationWindow* window, const QString& script)
{
    return window->webView()->page()->mainFrame()->evaluateJavaScript(script);
}

} // namespace

class TestPageFaults : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void pageChosenSize_data();
    void pageChosenSize();
    void quickReplyCalledFromItsOwnPayload();
    void pageTextsStayOffStderr();
    void everyBridgeSlot_data();
    void everyBridgeSlot();

private:
    QWebFrame* mainPage() const { return mMainWindow->indexWindow()->webView()->page()->mainFrame(); }
    // The largest size a popup may have, in the page's units: the free area at the zoom in force.
    QSize largest() const { return QSize(int(mAvailable.width() / mScale), int(mAvailable.height() / mScale)); }

    MainWindow* mMainWindow = nullptr;
    TrayStandIn mTray;
    QRect mAvailable;
    double mScale = 1.0;
};

void TestPageFaults::initTestCase()
{
    mMainWindow = new MainWindow();
    QSignalSpy startPageDone(mMainWindow->indexWindow()->webView()->page(), &QWebPage::loadFinished);
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    QVERIFY(StagedFolder::enter());
    PopupTray::setInstance(&mTray);
    if (startPageDone.isEmpty())
        QVERIFY(startPageDone.wait(5000));
    mAvailable = QGuiApplication::primaryScreen()->availableGeometry();
    mScale = mMainWindow->getScaleFactor();
}

void TestPageFaults::cleanupTestCase()
{
    PopupTray::setInstance(nullptr);
    delete mMainWindow;
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
    QTest::addColumn<QString>("through"); // the bridge call, or the popup's own resize
    QTest::addColumn<QSize>("expected");  // 0: the largest, -1: the smallest

    const QSize largest(0, 0), smallest(-1, -1);
    for (const QString through : { QStringLiteral("launchQuickReply"), QStringLiteral("resizeWindow") }) {
        const QByteArray name = through.toUtf8() + ": ";
        QTest::newRow(name + "ordinary") << 300 << 200 << through << QSize(300, 200);
        QTest::newRow(name + "100000 square") << 100000 << 100000 << through << largest;
        QTest::newRow(name + "30000 square") << 30000 << 30000 << through << largest;
        QTest::newRow(name + "int max") << 2147483647 << 2147483647 << through << largest;
        QTest::newRow(name + "int min") << int(-2147483647 - 1) << int(-2147483647 - 1) << through << smallest;
        QTest::newRow(name + "zero") << 0 << 0 << through << smallest;
        QTest::newRow(name + "mixed") << -1 << 2147483647 << through << QSize(-1, 0);
    }
}

void TestPageFaults::pageChosenSize()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(QString, through);
    QFETCH(QSize, expected);

    const auto side = [](int wanted, int largest) { return wanted == 0 ? largest : wanted == -1 ? 50 : wanted; };
    const QSize want(side(expected.width(), largest().width()), side(expected.height(), largest().height()));
    const QString json = QStringLiteral(R"({"key":"s","name":"Ann","message":"hi","sound":false})");
    IndexWindow* page = mMainWindow->indexWindow();
    if (through == QLatin1String("launchQuickReply")) {
        QVERIFY(page->launchQuickReply(QStringLiteral("s"), json, width, height, QString()));
    } else {
        QVERIFY(page->launchQuickReply(QStringLiteral("s"), json, 300, 200, QString()));
        NotificationWindow* window = manager()->getNotificationWindow(QStringLiteral("s"));
        QVERIFY(window);
        QTRY_VERIFY(evaluate(window, QStringLiteral("typeof qt")).toString() == QLatin1String("object"));
        evaluate(window, QStringLiteral("qt.resizeWindow('s', %1, %2)").arg(width).arg(height));
    }
    NotificationWindow* window = manager()->getNotificationWindow(QStringLiteral("s"));
    QVERIFY(window);
    QCOMPARE(window->size(), QSize(int(want.width() * mScale), int(want.height() * mScale)));
}

// A payload is script in the popup; this one calls back into launchQuickReply through the main page
// while the first call is still feeding the popup. Without a guard the program waits for itself for ever.
void TestPageFaults::quickReplyCalledFromItsOwnPayload()
{
    mainPage()->evaluateJavaScript(QStringLiteral(
        "window.reentered = null;"
        "window.genericNativeNotificationButtonClickedCallbackHelper = function () {"
        "  window.reentered = qtIndexWindow.launchQuickReply('t', '{}', 300, 200, ''); };"));
    IndexWindow* page = mMainWindow->indexWindow();
    QVERIFY(page->launchQuickReply(QStringLiteral("t"), QStringLiteral(R"({"key":"t","message":"one"})"), 300, 200, QString()));
    NotificationWindow* window = manager()->getNotificationWindow(QStringLiteral("t"));
    QVERIFY(window);
    QTRY_VERIFY(evaluate(window, QStringLiteral("typeof processSecondJSONPayloadForAlreadyOpenedNotificationWindowHelper"))
                    .toString() == QLatin1String("function"));

    const QString payload = QStringLiteral("{}'); qt.genericNativeNotificationButtonClicked('{}'); ('");
    QVERIFY(page->launchQuickReply(QStringLiteral("t"), payload, 300, 200, QString()));
    QCOMPARE(mainPage()->evaluateJavaScript(QStringLiteral("window.reentered")).toBool(), true);
    QCOMPARE(manager()->notificationWindowCount(), 1);
}

// With logging off nothing the page sends reaches stderr, which a desktop session keeps in its
// journal: the process's own stderr is caught while a text, a name and a number go through.
void TestPageFaults::pageTextsStayOffStderr()
{
    QSettings().remove(QStringLiteral("pref-debug-enabled"));
    mainPage()->evaluateJavaScript(QStringLiteral("window.genericNativeNotificationButtonClickedCallbackHelper = function () {};"));
    const QString secret = QStringLiteral("Ann Example +15551234567 meet at the back door");
    QTemporaryFile caught;
    QVERIFY(caught.open());
    fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    QVERIFY(saved >= 0 && dup2(caught.handle(), STDERR_FILENO) >= 0);
    // Qt's own handler, as the program has it; the test's would send debug output to stdout.
    const QtMessageHandler testHandler = qInstallMessageHandler(nullptr);

    const QString json = QStringLiteral(R"({"key":"p","name":"%1","message":"%1","sound":false})").arg(secret);
    const QString literal = QString::fromUtf8(QJsonDocument(QJsonArray { json, secret }).toJson(QJsonDocument::Compact));
    mainPage()->evaluateJavaScript(QStringLiteral(
        "var a = %1;"
        "qtIndexWindow.launchQuickReply('p', a[0], 300, 200, a[1]);"
        "qtIndexWindow.launchQuickReply('p', a[0], 300, 200, a[1]);"
        "qtIndexWindow.showNotification(a[0], a[1], a[1], true, true);"
        "qtIndexWindow.log(a[1]); qtIndexWindow.logInfo('page', a[1]); qtIndexWindow.logError('page', a[1]);"
        "qtIndexWindow.setJsonForWindows(a[0]); qtIndexWindow.processJson(a[0], a[1]);"
        "qtIndexWindow.logAnalyticsEvent(a[1], a[1]);").arg(literal));
    // Until the popup's page has run its script with the payload; no early return while stderr is caught.
    const bool shown = QTest::qWaitFor([this] {
        NotificationWindow* popup = manager()->getNotificationWindow(QStringLiteral("p"));
        return popup && evaluate(popup, QStringLiteral("document.querySelectorAll('.message').length")).toInt() > 0;
    }, 10000);
    qInstallMessageHandler(testHandler);
    fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    QVERIFY(shown);

    caught.seek(0);
    const QByteArray output = caught.readAll();
    QVERIFY2(!output.contains("+15551234567") && !output.contains("back door"), output.constData());
}

void TestPageFaults::everyBridgeSlot_data()
{
    QTest::addColumn<QString>("text");   // a script expression for every text argument
    QTest::addColumn<QString>("number"); // and for every number

    QTest::newRow("quotes") << R"("'\"); alert(1); //\\")" << "1";
    QTest::newRow("end of script") << R"("</script><script>qtIndexWindow.log('x')</script>")" << "0";
    QTest::newRow("NUL inside") << R"("a\u0000b\u0000")" << "-1";
    QTest::newRow("megabyte") << "new Array(1048577).join('\\'')" << "2147483647";
    QTest::newRow("largest numbers") << R"("9".repeat(400))" << "-2147483648";
    QTest::newRow("not numbers") << "null" << "NaN";
    QTest::newRow("huge numbers") << R"("")" << "1e300";
    QTest::newRow("objects") << "({toString: function () { return '../../.bashrc'; }})" << "-1e300";
}

// Every slot the page can reach, called from the page's script with hostile arguments: each call
// returns, the program stays up, and its memory stays within bounds.
void TestPageFaults::everyBridgeSlot()
{
    QFETCH(QString, text);
    QFETCH(QString, number);

    NoDesktop desktop;
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
        const QString call = QStringLiteral("qtIndexWindow['%1'](%2)")
                                 .arg(QString::fromLatin1(method.methodSignature()), arguments.join(QLatin1Char(',')));
        QElapsedTimer clock;
        clock.start();
        mainPage()->evaluateJavaScript(QStringLiteral("try { %1; } catch (e) {}").arg(call));
        QVERIFY2(clock.elapsed() < 20000, qPrintable(call.left(200)));
        called << QString::fromLatin1(method.name());
    }
    QVERIFY(called.contains(QStringLiteral("downloadFile")) && called.contains(QStringLiteral("launchQuickReply")));
    manager()->closeAllNotificationWindows();
    QTRY_COMPARE(manager()->notificationWindowCount(), 0);
    // A page-sized popup took gigabytes; a row of calls may cost a few copies of a megabyte.
    const qint64 grown = residentKb() - before;
    QVERIFY2(grown < 300 * 1024, qPrintable(QStringLiteral("%1 kB more").arg(grown)));
    // The page is still there to answer.
    QCOMPARE(mainPage()->evaluateJavaScript(QStringLiteral("1 + 1")).toInt(), 2);
}

QTEST_MAIN(TestPageFaults)
#include "tst_pagefaults.moc"
