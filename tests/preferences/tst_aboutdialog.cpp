#include <QtTest>

#include <QMessageBox>
#include <QPushButton>

#include "../updates/standins.h"
#include "core/windowholders.h"
#include "httpserver.h"
#include "preferences/aboutdialog.h"
#include "resourceinit.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/latestinstalleddialog.h"
#include "updates/versioncheck.h"
#include "web/indexwindow.h"

// "Check for updates" asks the server and answers with exactly one dialog.
class TestAboutDialog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { VersionCheck::setDocumentUrlForTests(QUrl()); }
    void checkAnswers_data();
    void checkAnswers();

private:
    HttpServer mServer;
    IndexWindow mIndexWindow;
};

void TestAboutDialog::initTestCase()
{
    kestrelgapInitResources();
    QVERIFY(mServer.listen());
    indexWindowHolder::set(&mIndexWindow);
}

void TestAboutDialog::checkAnswers_data()
{
    QTest::addColumn<QByteArray>("body"); // empty: nothing listens for the request
    QTest::addColumn<QString>("answer");  // "latest", "prompt" or the message box's text

    QTest::newRow("up to date") << QByteArray(R"({"current_version_pc": 2.89, "download_path_pc": "x"})") << "latest";
    QTest::newRow("newer version")
        << QByteArray(R"({"current_version_pc": 2.9, "download_path_pc": "http://127.0.0.1/setup.run"})") << "prompt";
    QTest::newRow("unreadable document claims the latest") << QByteArray("<html>") << "latest";
    QTest::newRow("service down") << QByteArray() << "Unable to check version number at this time.  Please try again later.";
}

void TestAboutDialog::checkAnswers()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, answer);

    const QString path = QStringLiteral("/prod-assets/desktop-client/versioncheck.json");
    HttpServer closed; // its port refuses the connection
    VersionCheck::setDocumentUrlForTests(body.isEmpty() ? closed.url(path) : mServer.url(path));
    mServer.serve(path, body, "application/json");
    mIndexWindow.setProperty("current_version", QVariant());

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
        dialog->reject();
    });
    AboutDialog dialog;
    QTest::mouseClick(dialog.findChild<QPushButton*>(QStringLiteral("checkForUpdateButton")), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(seen, QStringList { answer }, 10000);
}

QTEST_MAIN(TestAboutDialog)
#include "tst_aboutdialog.moc"
