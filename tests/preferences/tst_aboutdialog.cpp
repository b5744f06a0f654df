#include <QtTest>

#include <QGraphicsWebView>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QWebFrame>
#include <QWebPage>

#include "../updates/modalanswer.h"
#include "core/windowholders.h"
#include "httpserver.h"
#include "preferences/aboutdialog.h"
#include "resourceinit.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/latestinstalleddialog.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

namespace {

const QString documentPath = QStringLiteral("/prod-assets/desktop-client/versioncheck.json");

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
    void checkAnswers_data();
    void checkAnswers();

private:
    QStringList takeEvents();

    HttpServer mServer;
    QTemporaryDir mPages;
    IndexWindow* mIndexWindow = nullptr;
};

void TestAboutDialog::initTestCase()
{
    kestrelgapInitResources();
    QVERIFY(mServer.listen());
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
    mServer.clearReplies();
    VersionCheck::setDocumentUrlForTests(mServer.url(documentPath));
    mIndexWindow->setProperty("current_version", QVariant());
    takeEvents();
}

void TestAboutDialog::cleanupTestCase()
{
    VersionCheck::setDocumentUrlForTests(QUrl());
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

void TestAboutDialog::checkAnswers_data()
{
    QTest::addColumn<QByteArray>("body"); // empty: nothing listens for the request
    QTest::addColumn<QString>("answer");  // "latest", "prompt" or the message box's text
    QTest::addColumn<QStringList>("events");

    const QStringList checkEvents = {"ga:check-for-updates-qt:pc", "km:check-for-updates-qt:{\"os\":\"pc\"}"};
    QTest::newRow("up to date") << QByteArray(R"({"current_version_pc": 2.89, "download_path_pc": "x"})") << "latest"
                                << checkEvents;
    QTest::newRow("newer version")
        << QByteArray(R"({"current_version_pc": 2.9, "download_path_pc": "http://127.0.0.1/setup.run"})") << "prompt"
        << checkEvents + QStringList {"ga:user-prompted-to-install-update-qt:about-dialog",
               "km:user-prompted-to-install-update-qt:{\"os\":\"pc\",\"trigger\":\"about-dialog\"}"};
    QTest::newRow("unreadable document claims the latest") << QByteArray("<html>") << "latest" << checkEvents;
    QTest::newRow("service down") << QByteArray()
                                  << "Unable to check version number at this time.  Please try again later."
                                  << checkEvents;
}

void TestAboutDialog::checkAnswers()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, answer);
    QFETCH(QStringList, events);

    if (body.isEmpty()) {
        // A server that has gone: its port refuses the connection.
        HttpServer closed;
        const QUrl dead = closed.url(documentPath);
        VersionCheck::setDocumentUrlForTests(dead);
    } else {
        mServer.serve(documentPath, body, "application/json");
    }

    QStringList seen;
    ModalAnswer<LatestInstalledDialog> latest([&](LatestInstalledDialog* dialog) {
        seen << "latest";
        dialog->reject();
    });
    ModalAnswer<ConfirmDownloadUpdate> prompt([&](ConfirmDownloadUpdate* dialog) {
        seen << "prompt";
        QCOMPARE(dialog->downloadUrl(), QStringLiteral("http://127.0.0.1/setup.run"));
        dialog->reject();
    });
    ModalAnswer<QMessageBox> box([&](QMessageBox* dialog) {
        seen << dialog->text();
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Kestrelgap"));
        dialog->reject();
    });

    AboutDialog dialog;
    QTest::mouseClick(dialog.findChild<QPushButton*>(QStringLiteral("checkForUpdateButton")), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(seen, QStringList {answer}, 10000);
    QCOMPARE(takeEvents(), events);
}

QTEST_MAIN(TestAboutDialog)
#include "tst_aboutdialog.moc"
