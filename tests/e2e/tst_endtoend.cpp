// The whole program against the local development service host, as a user meets it: the real
// client from its staged folder and the real devhost, driven through the X display with xdotool
// (keys and window geometry) and followed through the devhost's request log. The tray menu is read
// the way a user reads it: opened with the mouse, captured and put through OCR.
#include <QDir>
#include <QImage>
#include <QMap>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

#include "stagedfolder.h"

namespace {

constexpr int startTimeoutMs = 30000;
// The demo messenger's five conversations: one popup each, titled with the contact's name.
const QString popupTitles = QStringLiteral("^(Maya Lindqvist|Dad|Jonah Price|Pharmacy|Priya Nair)$");

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

// Empty when the popups stand as a tidy stack: equal sizes, columns filled from the top of the
// screen with no gap beyond a title bar and a spacing, the first column at the right edge.
QString stackProblem(const QList<QRect>& popups, int screenWidth)
{
    if (popups.isEmpty())
        return QStringLiteral("no popups");
    QMap<int, QList<QRect>> columns; // by left edge
    for (const QRect& popup : popups) {
        if (popup.size() != popups.first().size())
            return QStringLiteral("popups of different sizes");
        columns[popup.x()] << popup;
    }
    const int rightGap = screenWidth - (columns.lastKey() + popups.first().width());
    if (rightGap < 0 || rightGap > 60)
        return QStringLiteral("first column %1 px from the right edge").arg(rightGap);
    for (QList<QRect> column : columns) {
        std::sort(column.begin(), column.end(), [](const QRect& a, const QRect& b) { return a.y() < b.y(); });
        if (column.first().y() > 120)
            return QStringLiteral("column at x=%1 starts at y=%2").arg(column.first().x()).arg(column.first().y());
        for (int i = 1; i < column.size(); ++i) {
            const int gap = column.at(i).y() - column.at(i - 1).bottom() - 1;
            if (gap < 0 || gap > 80)
                return QStringLiteral("gap of %1 px at x=%2, y=%3").arg(gap).arg(column.at(i).x()).arg(column.at(i).y());
        }
    }
    return QString();
}

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void signInQuitAndComeBackSignedIn();

private:
    bool startDevHost();
    bool startClient();
    bool devHostSaw(const QString& requestPrefix) const;
    QList<qulonglong> clientWindows() const;
    // The visible popups by window, with their places on the screen.
    QMap<qulonglong, QRect> popups() const;
    bool pushEvent(const QByteArray& json);
    // The main window: the client's largest window that carries the program's name.
    qulonglong mainWindow() const;
    QSize windowSize(qulonglong window) const;
    QRect windowGeometry(qulonglong window) const;
    qulonglong activeClientWindow() const;
    void sendKeys(qulonglong window, const QString& keys);
    void quitWithCtrlQAndYes();
    // The tray menu row that names the battery, and whether the charging icon is drawn beside it.
    QString trayBatteryRow(bool* chargingIcon);
    QString autostartEntry() const;

    QString mXdotool;
    QString mTesseract;
    QTemporaryDir mTmp;
    QProcess mDevHost;
    QProcess mClient;
    QStringList mRequests;
    QString mClientLog;
};

void TestEndToEnd::initTestCase()
{
    mXdotool = QStandardPaths::findExecutable(QStringLiteral("xdotool"));
    QVERIFY2(!mXdotool.isEmpty(), "xdotool is needed to drive the client (scripts/install-deps.sh installs it)");
    mTesseract = QStandardPaths::findExecutable(QStringLiteral("tesseract"));
    QVERIFY2(!mTesseract.isEmpty(), "tesseract reads the tray menu (scripts/install-deps.sh installs it)");
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs inside scripts/desktop-session.sh --wm");
    QVERIFY2(StagedFolder::enter(), "the build stages the program folder");
    QVERIFY(QFileInfo(QStringLiteral(KESTRELGAP_DEVHOST_BINARY)).isExecutable());

    // A private TMPDIR keeps the client's single-instance lock and socket apart from any other
    // copy running on this machine for the same user.
    QVERIFY(mTmp.isValid());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), mTmp.path());
    mDevHost.setProcessEnvironment(environment);
    mClient.setProcessEnvironment(environment);
    // The client's stderr is followed below, and it says nothing unless the user turned logging on.
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), QStringLiteral("1"));

    mDevHost.setProcessChannelMode(QProcess::MergedChannels);
    connect(&mDevHost, &QProcess::readyReadStandardOutput, this, [this] {
        while (mDevHost.canReadLine())
            mRequests << QString::fromUtf8(mDevHost.readLine()).trimmed();
    });
    // The client's log is kept to follow what reached it, and still echoed for a failing run.
    connect(&mClient, &QProcess::readyReadStandardError, this, [this] {
        const QByteArray chunk = mClient.readAllStandardError();
        mClientLog += QString::fromUtf8(chunk);
        fputs(chunk.constData(), stderr);
    });
    mClient.setStandardOutputFile(QProcess::nullDevice());
}

void TestEndToEnd::cleanup()
{
    // A failed step must not leave either process behind for the next test.
    for (QProcess* process : {&mClient, &mDevHost}) {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(5000);
        }
    }
}

bool TestEndToEnd::startDevHost()
{
    mRequests.clear();
    mDevHost.start(QStringLiteral(KESTRELGAP_DEVHOST_BINARY),
                   {QStringLiteral("--listen"), QStringLiteral(KESTRELGAP_SERVICE_HOST)});
    if (!mDevHost.waitForStarted())
        return false;
    (void)QTest::qWaitFor([this] { return devHostSaw(QStringLiteral("kestrelgap-devhost: serving"))
                                    || mDevHost.state() == QProcess::NotRunning; },
                    startTimeoutMs);
    // Not running here means the port is taken, most likely by a devhost someone left running.
    return mDevHost.state() == QProcess::Running;
}

bool TestEndToEnd::startClient()
{
    mRequests.clear();
    // The test's private HOME and XDG folders pass on to the client: its settings and cookie
    // store live there and survive from one start to the next.
    mClient.setWorkingDirectory(StagedFolder::path());
    mClient.start(QDir(StagedFolder::path()).filePath(QStringLiteral("kestrelgap")), QStringList());
    return mClient.waitForStarted();
}

bool TestEndToEnd::devHostSaw(const QString& requestPrefix) const
{
    for (const QString& line : mRequests) {
        if (line.startsWith(requestPrefix))
            return true;
    }
    return false;
}

QList<qulonglong> TestEndToEnd::clientWindows() const
{
    QList<qulonglong> windows;
    const QString found = run(mXdotool, {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--pid"),
                                         QString::number(mClient.processId()), QStringLiteral("--name"),
                                         QStringLiteral("^Kestrelgap$")});
    for (const QString& id : found.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        windows << id.toULongLong();
    return windows;
}

qulonglong TestEndToEnd::mainWindow() const
{
    qulonglong best = 0;
    int bestArea = 0;
    for (qulonglong window : clientWindows()) {
        const QSize size = windowSize(window);
        if (size.width() * size.height() > bestArea) {
            bestArea = size.width() * size.height();
            best = window;
        }
    }
    return best;
}

QSize TestEndToEnd::windowSize(qulonglong window) const
{
    return windowGeometry(window).size();
}

QRect TestEndToEnd::windowGeometry(qulonglong window) const
{
    const QString shell =
        run(mXdotool, {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), QString::number(window)});
    const auto field = [&shell](const char* name) {
        return QRegularExpression(QStringLiteral("%1=(-?\\d+)").arg(QLatin1String(name))).match(shell).captured(1).toInt();
    };
    return QRect(field("X"), field("Y"), field("WIDTH"), field("HEIGHT"));
}

QMap<qulonglong, QRect> TestEndToEnd::popups() const
{
    QMap<qulonglong, QRect> popups;
    const QString found = run(mXdotool, {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--onlyvisible"),
                                         QStringLiteral("--pid"), QString::number(mClient.processId()),
                                         QStringLiteral("--name"), popupTitles});
    for (const QString& id : found.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        popups.insert(id.toULongLong(), windowGeometry(id.toULongLong()));
    return popups;
}

bool TestEndToEnd::pushEvent(const QByteArray& json)
{
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(QStringLiteral("http://" KESTRELGAP_SERVICE_HOST "/demo/events")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkReply* reply = network.post(request, json);
    const bool finished = QTest::qWaitFor([reply] { return reply->isFinished(); }, 10000);
    const bool ok = finished && reply->error() == QNetworkReply::NoError;
    delete reply;
    return ok;
}

void TestEndToEnd::sendKeys(qulonglong window, const QString& keys)
{
    // Real key events through the X server to the active window, as a user's keyboard sends them.
    run(mXdotool, {QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::number(window)});
    run(mXdotool, {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), keys});
}

void TestEndToEnd::quitWithCtrlQAndYes()
{
    const qulonglong main = mainWindow();
    QVERIFY(main != 0);
    sendKeys(main, QStringLiteral("ctrl+q"));
    // The confirmation box takes the focus; Yes is its default button. Return goes to whichever
    // window is active, so it waits until that is the box.
    qulonglong box = 0;
    QTRY_VERIFY_WITH_TIMEOUT((box = activeClientWindow()) != 0 && box != main, startTimeoutMs);
    run(mXdotool, {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), QStringLiteral("Return")});
    QVERIFY(mClient.waitForFinished(startTimeoutMs));
    QCOMPARE(mClient.exitStatus(), QProcess::NormalExit);
    QCOMPARE(mClient.exitCode(), 0);
}

QString TestEndToEnd::trayBatteryRow(bool* chargingIcon)
{
    *chargingIcon = false;
    // The tray icon: the client's small square window, embedded in the tray.
    qulonglong tray = 0;
    QSet<qulonglong> before;
    const QString all = run(mXdotool, {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--onlyvisible"),
                                       QStringLiteral("--pid"), QString::number(mClient.processId()), QString()});
    for (const QString& id : all.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QSize size = windowSize(id.toULongLong());
        before << id.toULongLong();
        if (size.width() == size.height() && size.width() >= 16 && size.width() <= 64)
            tray = id.toULongLong();
    }
    if (tray == 0)
        return QStringLiteral("no tray icon");
    const QSize traySize = windowSize(tray);
    run(mXdotool, {QStringLiteral("mousemove"), QStringLiteral("--window"), QString::number(tray),
                   QString::number(traySize.width() / 2), QString::number(traySize.height() / 2),
                   QStringLiteral("click"), QStringLiteral("3")});
    qulonglong menu = 0;
    (void)QTest::qWaitFor([&] {
        const QString now = run(mXdotool, {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("--onlyvisible"),
                                           QStringLiteral("--pid"), QString::number(mClient.processId()), QString()});
        for (const QString& id : now.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            if (!before.contains(id.toULongLong()))
                menu = id.toULongLong();
        }
        return menu != 0;
    }, startTimeoutMs);
    if (menu == 0)
        return QStringLiteral("no menu opened from the tray icon");
    QTest::qWait(300); // the menu's first paint

    const QString shot = mTmp.filePath(QStringLiteral("tray-menu.png"));
    const QString scaled = mTmp.filePath(QStringLiteral("tray-menu-ocr.png"));
    run(QStringLiteral("import"), {QStringLiteral("-window"), QString::number(menu), shot});
    run(mXdotool, {QStringLiteral("key"), QStringLiteral("Escape")});
    // Three times the size in grey reads far more reliably than screen-sized text.
    constexpr int scale = 3;
    run(QStringLiteral("convert"), {shot, QStringLiteral("-colorspace"), QStringLiteral("Gray"),
                                    QStringLiteral("-resize"), QStringLiteral("%1%").arg(scale * 100), scaled});
    const QString tsv = run(mTesseract, {scaled, QStringLiteral("-"), QStringLiteral("tsv")});

    // Words by line (block, paragraph, line), with the line's vertical extent.
    struct Line { QStringList words; int top = INT_MAX; int bottom = 0; };
    QMap<QString, Line> lines;
    for (const QString& row : tsv.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QStringList f = row.split(QLatin1Char('\t'));
        if (f.size() < 12 || f.at(0) != QLatin1String("5") || f.at(11).trimmed().isEmpty())
            continue;
        Line& line = lines[f.mid(2, 3).join(QLatin1Char('.'))];
        line.words << f.at(11).trimmed();
        line.top = qMin(line.top, f.at(7).toInt());
        line.bottom = qMax(line.bottom, f.at(7).toInt() + f.at(9).toInt());
    }
    const QImage image(shot);
    for (const Line& line : qAsConst(lines)) {
        const QString text = line.words.join(QLatin1Char(' '));
        if (!text.contains(QLatin1String("Battery")))
            continue;
        // The row's icon column: the charging bolt is the only icon drawn in that blue.
        const QColor bolt(0x1E, 0x88, 0xE5);
        int boltPixels = 0;
        for (int y = line.top / scale; y <= line.bottom / scale && y < image.height(); ++y) {
            for (int x = 0; x < qMin(32, image.width()); ++x) {
                const QColor c = image.pixelColor(x, y);
                boltPixels += qAbs(c.red() - bolt.red()) + qAbs(c.green() - bolt.green()) + qAbs(c.blue() - bolt.blue()) < 60;
            }
        }
        *chargingIcon = boltPixels > 10;
        return text;
    }
    return QStringLiteral("no battery row in the tray menu: ") + tsv.simplified().left(200);
}

QString TestEndToEnd::autostartEntry() const
{
    const QString config = qEnvironmentVariable("XDG_CONFIG_HOME", QDir::homePath() + QStringLiteral("/.config"));
    return config + QStringLiteral("/autostart/kestrelgap.desktop");
}

qulonglong TestEndToEnd::activeClientWindow() const
{
    const qulonglong active = run(mXdotool, {QStringLiteral("getactivewindow")}).trimmed().toULongLong();
    if (active == 0)
        return 0;
    const qint64 pid = run(mXdotool, {QStringLiteral("getwindowpid"), QString::number(active)}).trimmed().toLongLong();
    return pid == mClient.processId() ? active : 0;
}

void TestEndToEnd::signInQuitAndComeBackSignedIn()
{
    qInfo("starting the devhost");
    QVERIFY2(startDevHost(), "the devhost couldn't listen on " KESTRELGAP_SERVICE_HOST " (is another one running?)");

    // First start: the start page finds the service and goes on to its sign-in page.
    qInfo("first start");
    QVERIFY(startClient());
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /signin 200")) || mClient.state() == QProcess::NotRunning,
                             startTimeoutMs);
    // The single-instance guard is per user: a client already running for this user anywhere
    // (another desktop session) takes the wake-up, and this one ends at once.
    QVERIFY2(mClient.state() == QProcess::Running, "the client ended at start: another one runs for this user");
    QTRY_VERIFY_WITH_TIMEOUT(mainWindow() != 0, startTimeoutMs);
    const QSize loginSize = windowSize(mainWindow());
    QVERIFY2(loginSize.width() < 1000, qPrintable(QStringLiteral("login size %1x%2").arg(loginSize.width()).arg(loginSize.height())));

    // The sign-in page puts the focus in its form; Return signs in with the name filled in.
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /demo/events?for=signin")), startTimeoutMs);
    qInfo("signing in");
    sendKeys(mainWindow(), QStringLiteral("Return"));
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("POST /signin 303")), startTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /main.html 200")), startTimeoutMs);
    // The messenger page runs (it polls the service) and the window grows to messenger size.
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /demo/events?for=main")), startTimeoutMs);
    // 1366 wide where the screen has room (more with a scale factor above 1), else nearly all of it.
    const int screenWidth = run(mXdotool, {QStringLiteral("getdisplaygeometry")}).section(QLatin1Char(' '), 0, 0).toInt();
    QVERIFY(screenWidth > 0);
    QTRY_VERIFY_WITH_TIMEOUT(windowSize(mainWindow()).width() >= qMin(1366, screenWidth - 100), startTimeoutMs);
    QVERIFY(windowSize(mainWindow()).height() > loginSize.height());

    // Five texts to five threads, on the quick-reply route a fresh profile starts with.
    qInfo("five texts");
    QVERIFY(pushEvent(R"({"type":"text","count":5})"));
    QMap<qulonglong, QRect> shown;
    QTRY_VERIFY_WITH_TIMEOUT((shown = popups()).size() == 5, startTimeoutMs);
    // Placed before they show, but the window manager may still be settling the last one.
    QTRY_VERIFY2_WITH_TIMEOUT(stackProblem((shown = popups()).values(), screenWidth).isEmpty(),
                              qPrintable(stackProblem(shown.values(), screenWidth)), startTimeoutMs);
    QCOMPARE(shown.size(), 5);

    // Closing the top one of the first column: the ones below slide up into its place. Its reply
    // box is empty, so the page lets it go without asking.
    qulonglong top = shown.firstKey();
    for (auto it = shown.cbegin(); it != shown.cend(); ++it) {
        if (it.value().x() > shown.value(top).x() || (it.value().x() == shown.value(top).x() && it.value().y() < shown.value(top).y()))
            top = it.key();
    }
    qInfo("closing one popup");
    sendKeys(top, QStringLiteral("ctrl+w"));
    QMap<qulonglong, QRect> left;
    QTRY_VERIFY_WITH_TIMEOUT((left = popups()).size() == 4, startTimeoutMs);
    QVERIFY(!left.contains(top));
    QTRY_VERIFY2_WITH_TIMEOUT(stackProblem((left = popups()).values(), screenWidth).isEmpty() && left.size() == 4,
                              qPrintable(stackProblem(left.values(), screenWidth)), startTimeoutMs);
    int moved = 0;
    for (auto it = left.cbegin(); it != left.cend(); ++it)
        moved += it.value().topLeft() != shown.value(it.key()).topLeft() ? 1 : 0;
    QVERIFY2(moved > 0, "no popup moved into the gap");

    qInfo("battery");
    QVERIFY(pushEvent(R"({"type":"battery","level":45,"charging":true})"));
    QTRY_VERIFY_WITH_TIMEOUT(mClientLog.contains(QStringLiteral("[showBatteryStatus] - status=45, isCharging=true")),
                             startTimeoutMs);
    bool charging = false;
    const QString batteryRow = trayBatteryRow(&charging);
    QVERIFY2(batteryRow.contains(QLatin1String("Phone Battery: 45%")), qPrintable(batteryRow));
    QVERIFY2(charging, "no charging icon beside the battery row");

    // The first launch registered start at log-in. A user who then removes the entry by hand
    // (their desktop's start-up settings do just that) must not find it back after a restart.
    QVERIFY(QFile::exists(autostartEntry()));
    QVERIFY(QFile::remove(autostartEntry()));

    qInfo("quitting");
    quitWithCtrlQAndYes();
    if (QTest::currentTestFailed())
        return;

    // Second start: the session cookie comes back from the client's own store, so the sign-in
    // page hands straight on to the messenger without anyone signing in.
    // With logging off, as a user leaves it, nothing a text carries may reach stderr (the journal
    // or ~/.xsession-errors keep it).
    qInfo("second start");
    QSettings().setValue(QStringLiteral("pref-debug-enabled"), QStringLiteral("0"));
    mClientLog.clear();
    QVERIFY(startClient());
    QTRY_VERIFY_WITH_TIMEOUT(devHostSaw(QStringLiteral("GET /main.html 200")), startTimeoutMs);
    QVERIFY(devHostSaw(QStringLiteral("GET /signin 302")));
    QVERIFY(!devHostSaw(QStringLiteral("POST /signin")));
    QTRY_VERIFY_WITH_TIMEOUT(windowSize(mainWindow()).width() > loginSize.width(), startTimeoutMs);
    QVERIFY2(!QFile::exists(autostartEntry()), "start at log-in registered again on the second start");

    QVERIFY(pushEvent(R"({"type":"text","from":"Maya Lindqvist","text":"the gate code is 4417"})"));
    QTRY_VERIFY_WITH_TIMEOUT(popups().size() == 1, startTimeoutMs);
    quitWithCtrlQAndYes();
    for (const QString& secret : {QStringLiteral("4417"), QStringLiteral("Lindqvist"), QStringLiteral("555 0134")})
        QVERIFY2(!mClientLog.contains(secret), qPrintable(mClientLog));
}

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
