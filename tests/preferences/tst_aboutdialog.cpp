#include <QtTest>

#include <QGraphicsWebView>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "core/windowholders.h"
#include "preferences/aboutdialog.h"
#include "resourceinit.h"
#include "web/indexwindow.h"

namespace {

const char recordingPage[] = R"(<html><head><script>
  window.events = [];
  var _gaq = { push: function (a) { window.events.push('ga:' + a[2] + ':' + a[3]); } };
  var _kmq = { push: function (a) { window.events.push('km:' + a[1] + ':' + JSON.stringify(a[2])); } };
</script></head><body></body></html>)";

} // namespace

class TestAboutDialog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void layoutAndVersion();
    void checkIsCounted();

private:
    QStringList takeEvents();

    QTemporaryDir mPages;
    IndexWindow* mIndexWindow = nullptr;
};

void TestAboutDialog::initTestCase()
{
    kestrelgapInitResources();
    QFile page(mPages.filePath(QStringLiteral("recording.html")));
    QVERIFY(page.open(QIODevice::WriteOnly));
    page.write(recordingPage);
    page.close();

    mIndexWindow = new IndexWindow();
    indexWindowHolder::set(mIndexWindow);
    QSignalSpy loaded(mIndexWindow->webView()->page(), &QWebPage::loadFinished);
    mIndexWindow->loadUrl(QUrl::fromLocalFile(page.fileName()));
    QVERIFY(QTest::qWaitFor([&] { return !loaded.isEmpty() && loaded.last().first().toBool(); }, 10000));
}

void TestAboutDialog::init()
{
    takeEvents();
}

void TestAboutDialog::cleanupTestCase()
{
    delete mIndexWindow;
}

QStringList TestAboutDialog::takeEvents()
{
    QWebFrame* frame = mIndexWindow->webView()->page()->mainFrame();
    const QStringList events = frame->evaluateJavaScript(QStringLiteral("window.events")).toStringList();
    frame->evaluateJavaScript(QStringLiteral("window.events = [];"));
    return events;
}

void TestAboutDialog::layoutAndVersion()
{
    AboutDialog dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("About"));
    QCOMPARE(dialog.size(), QSize(300, 252));
    QStringList order;
    for (int i = 0; i < dialog.layout()->count(); ++i)
        order << dialog.layout()->itemAt(i)->widget()->objectName();
    QCOMPARE(order, QStringList({"application_icon", "application_name", "application_version", "checkForUpdateButton"}));
    // The translated word brings its own blank; the number is the build's.
    QCOMPARE(dialog.findChild<QLabel*>(QStringLiteral("application_version"))->text(), QStringLiteral("Version 2.89"));
}

void TestAboutDialog::checkIsCounted()
{
    AboutDialog dialog;
    QTest::mouseClick(dialog.findChild<QPushButton*>(QStringLiteral("checkForUpdateButton")), Qt::LeftButton);
    QCOMPARE(takeEvents(), QStringList({"ga:check-for-updates-qt:pc", "km:check-for-updates-qt:{\"os\":\"pc\"}"}));
}

QTEST_MAIN(TestAboutDialog)
#include "tst_aboutdialog.moc"
