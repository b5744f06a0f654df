#include <QtTest>

#include <QGraphicsWebView>
#include <QSettings>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "core/servicehost.h"
#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/indexwindow.h"

class TestIndexWindow : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void classifyLoadedUrl_data();
    void classifyLoadedUrl();
    void messengerPageResizesAndReportsOsOnce();
    void getSetting_data();
    void getSetting();
    void soundFlag_data();
    void soundFlag();

private:
    MainWindow* mMainWindow = nullptr;
    IndexWindow* mIndexWindow = nullptr;
};

void TestIndexWindow::initTestCase()
{
    mMainWindow = new MainWindow();
    mMainWindow->showInitialWindow();
    mainWindowHolder::set(mMainWindow);
    mIndexWindow = indexWindowHolder::get();
    QVERIFY(mIndexWindow);
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("login"));
}

void TestIndexWindow::cleanupTestCase()
{
    delete mMainWindow;
}

void TestIndexWindow::classifyLoadedUrl_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("expected");

    const QString redirect = ServiceHost::redirectPageAddress();
    const QString signOutNext = "https://" + ServiceHost::signInHost() + "/logout?" + ServiceHost::signOutNextSuffix();
    using P = IndexWindow::LoadedPage;

    QTest::newRow("redirect page with query (prefix test)") << redirect + "?from=x" << int(P::RedirectPage);
    QTest::newRow("redirect wins over main.html") << redirect + "?next=main.html" << int(P::RedirectPage);
    QTest::newRow("redirect over plain http") << QString(redirect).replace(0, 5, "http") << int(P::Other);
    QTest::newRow("redirect in capitals") << redirect.toUpper() << int(P::Other);
    QTest::newRow("sign-out next") << signOutNext << int(P::SignOutNext);
    QTest::newRow("sign-out next with a tail (suffix test)") << signOutNext + "&x=1" << int(P::Other);
    QTest::newRow("messenger") << ServiceHost::httpsAddress("/web/main.html") << int(P::Messenger);
    QTest::newRow("messenger as local file") << "file:///tmp/main.html" << int(P::Messenger);
    QTest::newRow("messenger with query") << ServiceHost::httpsAddress("/main.html?x=1") << int(P::Other);
    QTest::newRow("messenger in capitals") << ServiceHost::httpsAddress("/MAIN.HTML") << int(P::Other);
    QTest::newRow("empty") << QString() << int(P::Other);
}

void TestIndexWindow::classifyLoadedUrl()
{
    QFETCH(QString, url);
    QTEST(int(IndexWindow::classifyLoadedUrl(url)), "expected");
}

void TestIndexWindow::messengerPageResizesAndReportsOsOnce()
{
    QTemporaryDir pages;
    QFile page(pages.filePath("main.html"));
    QVERIFY(page.open(QIODevice::WriteOnly));
    page.write("<script>window.events = [];"
               "var _gaq = { push: function (a) { window.events.push(a[2] + ':' + a[3]); } };"
               "var _kmq = { push: function () {} };</script>");
    page.close();
    auto load = [this, &pages] {
        QSignalSpy finished(mIndexWindow->webView()->page(), &QWebPage::loadFinished);
        mIndexWindow->loadUrl(QUrl::fromLocalFile(pages.filePath("main.html")));
        // A load still running is cancelled first and reports its own failure.
        return QTest::qWaitFor([&] { return !finished.isEmpty() && finished.last().first().toBool(); }, 10000);
    };
    auto events = [this] {
        return mIndexWindow->webView()->page()->mainFrame()->evaluateJavaScript("window.events").toStringList();
    };

    QVERIFY(load());
    QCOMPARE(mMainWindow->property("view").toString(), QStringLiteral("messenger"));
    const QStringList reported = events().filter("qt-os-info:");
    QCOMPARE(reported.size(), 1);
    QVERIFY(reported.first().endsWith(QLatin1String("-pc")));
    // A reload in the same process doesn't report the OS again.
    QVERIFY(load());
    QCOMPARE(events().filter("qt-os-info"), QStringList());
}

void TestIndexWindow::getSetting_data()
{
    QTest::addColumn<QVariant>("value"); // invalid: key absent
    QTest::addColumn<QString>("expected"); // the default is "fallback"

    QTest::newRow("absent gives the default") << QVariant() << "fallback";
    QTest::newRow("stored empty reads as absent") << QVariant(QString("")) << "fallback";
    QTest::newRow("stored zero is a value") << QVariant(QString("0")) << "0";
    QTest::newRow("stored blank is a value") << QVariant(QString(" ")) << " ";
    QTest::newRow("native int comes back as text") << QVariant(1366) << "1366";
}

void TestIndexWindow::getSetting()
{
    QFETCH(QVariant, value);
    const QString key = QStringLiteral("page-own-key");
    value.isValid() ? QSettings().setValue(key, value) : QSettings().remove(key);
    QTEST(mIndexWindow->getSetting(key, "fallback"), "expected");
    // Reading never writes.
    QCOMPARE(QSettings().contains(key), value.isValid());
}

void TestIndexWindow::soundFlag_data()
{
    QTest::addColumn<QVariant>("before"); // invalid: key absent
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("after");

    QTest::newRow("fresh store stores 0") << QVariant() << false << "0";
    QTest::newRow("stored empty becomes 0") << QVariant(QString("")) << false << "0";
    QTest::newRow("on") << QVariant(QString("1")) << true << "1";
    QTest::newRow("true is not on and stays") << QVariant(QString("true")) << false << "true";
}

void TestIndexWindow::soundFlag()
{
    QFETCH(QVariant, before);
    const QString key = QStringLiteral("play-notification-sound");
    before.isValid() ? QSettings().setValue(key, before) : QSettings().remove(key);
    QTEST(mIndexWindow->isNotificationSoundEnabled(), "enabled");
    QTEST(QSettings().value(key).toString(), "after");
}

QTEST_MAIN(TestIndexWindow)
#include "tst_indexwindow.moc"
