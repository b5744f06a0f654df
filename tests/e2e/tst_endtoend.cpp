// The whole program against the development service host, as a user meets it: the real client and
// devhost, driven through the X display and followed through the devhost's request log.
#include <QtNetwork>
#include <QtTest>

#include "stagedprogram.h"

namespace {

constexpr int waitMs = 30000;
// The demo messenger's five conversations: one popup each, titled with the contact's name.
const QString popupTitles = QStringLiteral("^(Maya Lindqvist|Dad|Jonah Price|Pharmacy|Priya Nair)$");

// Stack order: columns from the right edge, each from the top down.
bool stackOrder(const QRect& a, const QRect& b)
{
    return std::make_pair(-a.x(), a.y()) < std::make_pair(-b.x(), b.y());
}

// Empty when the popups stand as a tidy stack: equal sizes, the first column at the right edge, each
// column from the top of the screen with gaps no wider than a title bar and a spacing.
QString stackProblem(QList<QRect> popups, int screenWidth)
{
    std::sort(popups.begin(), popups.end(), stackOrder);
    for (int i = 0; i < popups.size(); ++i) {
        const QRect& popup = popups.at(i);
        const bool columnTop = i == 0 || popup.x() != popups.at(i - 1).x();
        const int gap = columnTop ? popup.y() : popup.y() - popups.at(i - 1).bottom() - 1;
        const int rightGap = screenWidth - popup.x() - popup.width();
        if (popup.size() != popups.first().size() || gap < 0 || gap > (columnTop ? 120 : 80) || (i == 0 && (rightGap < 0 || rightGap > 60)))
            return QStringLiteral("popup %1 of %2 at %3,%4").arg(i + 1).arg(popups.size()).arg(popup.x()).arg(popup.y());
    }
    return popups.isEmpty() ? QStringLiteral("no popups") : QString();
}

bool pushEvent(const QByteArray& json)
{
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(QStringLiteral("http://" KESTRELGAP_SERVICE_HOST "/demo/events")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    std::unique_ptr<QNetworkReply> reply(network.post(request, json));
    return QTest::qWaitFor([&reply] { return reply->isFinished(); }, 10000) && reply->error() == QNetworkReply::NoError;
}

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { mDevHost.kill(); mDevHost.waitForFinished(5000); }
    void signInQuitAndComeBackSignedIn();

private:
    bool devHostSaw(const QString& requestPrefix) const;
    QMap<qulonglong, QRect> popups() const;
    void quitWithCtrlQAndYes();

    StagedProgram mClient;
    QProcess mDevHost;
    QStringList mRequests;
};

void TestEndToEnd::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs inside scripts/desktop-session.sh --wm");
    QVERIFY2(QFile::exists(StagedProgram::binary()), "the build stages the program");
    // Its stderr is followed below, and it says nothing there unless the user turned logging on.
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));
    mDevHost.setProcessChannelMode(QProcess::MergedChannels);
    connect(&mDevHost, &QProcess::readyReadStandardOutput, this, [this] {
        while (mDevHost.canReadLine())
            mRequests << QString::fromUtf8(mDevHost.readLine()).trimmed();
    });
    mDevHost.start(QStringLiteral(KESTRELGAP_DEVHOST_BINARY), {QStringLiteral("--listen"), QStringLiteral(KESTRELGAP_SERVICE_HOST)});
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("kestrelgap-devhost: serving")) || mDevHost.state() == QProcess::NotRunning, waitMs);
    QVERIFY2(mDevHost.state() == QProcess::Running, "the devhost couldn't listen on " KESTRELGAP_SERVICE_HOST);
}

bool TestEndToEnd::devHostSaw(const QString& requestPrefix) const
{
    return std::any_of(mRequests.cbegin(), mRequests.cend(), [&](const QString& line) { return line.startsWith(requestPrefix); });
}

QMap<qulonglong, QRect> TestEndToEnd::popups() const
{
    QMap<qulonglong, QRect> popups;
    for (qulonglong window : mClient.windows(popupTitles))
        popups.insert(window, StagedProgram::geometry(window));
    return popups;
}

void TestEndToEnd::quitWithCtrlQAndYes()
{
    const QSet<qulonglong> known = mClient.settledWindows();
    StagedProgram::keys(mClient.mainWindow(), QStringLiteral("ctrl+q"));
    // Yes is the confirmation's default button.
    const qulonglong box = mClient.newWindow(known);
    QVERIFY2(box != 0, "no confirmation after Ctrl+Q");
    StagedProgram::keys(box, QStringLiteral("Return"));
    QVERIFY(mClient.waitForExit());
}

void TestEndToEnd::signInQuitAndComeBackSignedIn()
{
    const QString autostart = QStandardPaths::writableLocation(QStandardPaths::ConfigLocation) + QStringLiteral("/autostart/kestrelgap.desktop");

    // First start: the start page finds the service and goes on to its sign-in page.
    QVERIFY(mClient.start());
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /signin 200")) || mClient.process().state() == QProcess::NotRunning, waitMs);
    QVERIFY2(mClient.process().state() == QProcess::Running, "the client ended at start: another one runs for this user");
    QTRY_VERIFY_WITH_TIMEOUT(mClient.mainWindow() != 0, waitMs);
    const QSize loginSize = StagedProgram::geometry(mClient.mainWindow()).size();
    QVERIFY2(loginSize.width() < 1000, qPrintable(QStringLiteral("login width %1").arg(loginSize.width())));

    // The sign-in page puts the focus in its form; Return signs in with the name filled in.
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /demo/events?for=signin")), waitMs);
    StagedProgram::keys(mClient.mainWindow(), QStringLiteral("Return"));
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("POST /signin 303")), waitMs);
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /demo/events?for=main")), waitMs);
    // The messenger is 1366 wide where the screen has room, else nearly all of it.
    const int screenWidth = StagedProgram::xdotool({QStringLiteral("getdisplaygeometry")}).section(QLatin1Char(' '), 0, 0).toInt();
    QVERIFY(screenWidth > 0);
    QTRY_VERIFY_WITH_TIMEOUT(StagedProgram::geometry(mClient.mainWindow()).width() >= qMin(1366, screenWidth - 100), waitMs);
    QVERIFY(StagedProgram::geometry(mClient.mainWindow()).height() > loginSize.height());

    // Five texts to five threads: a tidy stack of popups.
    QVERIFY(pushEvent(R"({"type":"text","count":5})"));
    QMap<qulonglong, QRect> shown;
    QTRY_VERIFY_WITH_TIMEOUT((shown = popups()).size() == 5, waitMs);
    QTRY_VERIFY2_WITH_TIMEOUT(stackProblem((shown = popups()).values(), screenWidth).isEmpty() && shown.size() == 5,
                              qPrintable(stackProblem(shown.values(), screenWidth)), waitMs);

    // Closing the top one of the first column: the ones below slide up into its place.
    const qulonglong top = shown.key(*std::min_element(shown.cbegin(), shown.cend(), stackOrder));
    StagedProgram::keys(top, QStringLiteral("ctrl+w"));
    QMap<qulonglong, QRect> left;
    QTRY_VERIFY2_WITH_TIMEOUT((left = popups()).size() == 4 && !left.contains(top) && stackProblem(left.values(), screenWidth).isEmpty(),
                              qPrintable(stackProblem(left.values(), screenWidth)), waitMs);
    const int moved = int(std::count_if(left.keyBegin(), left.keyEnd(), [&](qulonglong w) { return left[w].topLeft() != shown[w].topLeft(); }));
    QVERIFY2(moved > 0, "no popup moved into the gap");

    QVERIFY(pushEvent(R"({"type":"battery","level":45,"charging":true})"));
    QTRY_VERIFY_WITH_TIMEOUT(mClient.errors().contains(QStringLiteral("[showBatteryStatus] - status=45, isCharging=true")), waitMs);

    // The first launch registered start at log-in; a user who removed the entry keeps it removed.
    QVERIFY(QFile::remove(autostart));
    quitWithCtrlQAndYes();
    if (QTest::currentTestFailed())
        return;

    // Second start, logging off as a user leaves it: the session cookie comes back from the
    // client's own store, and nothing a text carries reaches stderr (the journal keeps it).
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), QStringLiteral("0"));
    mClient.clearErrors();
    mRequests.clear();
    QVERIFY(mClient.start());
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /main.html 200")), waitMs);
    QVERIFY(devHostSaw(QStringLiteral("GET /signin 302")) && !devHostSaw(QStringLiteral("POST /signin")));
    QTRY_VERIFY_WITH_TIMEOUT(StagedProgram::geometry(mClient.mainWindow()).width() > loginSize.width(), waitMs);
    QVERIFY2(!QFile::exists(autostart), "start at log-in registered again on the second start");

    QVERIFY(pushEvent(R"({"type":"text","from":"Maya Lindqvist","text":"the gate code is 4417"})"));
    QTRY_VERIFY_WITH_TIMEOUT(popups().size() == 1, waitMs);
    quitWithCtrlQAndYes();
    for (const QString& secret : {QStringLiteral("4417"), QStringLiteral("Lindqvist"), QStringLiteral("555 0134")})
        QVERIFY2(!mClient.errors().contains(secret), qPrintable(mClient.errors()));
}

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
