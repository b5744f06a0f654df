#include "startup.h"

#include <QApplication>
#include <QDateTime>
#include <QGraphicsWebView>
#include <QIcon>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>
#include <QWebInspector>
#include <QWebPage>
#include <QWebSettings>

#include <memory>

#include "core/logger.h"
#include "core/servicehost.h"
#include "core/upgradecleanup.h"
#include "core/windowholders.h"
#include "desktop/automaticstartup.h"
#include "desktop/mainwindow.h"
#include "desktop/manageloginitemsworker.h"
#include "desktop/winmenubaricon.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "qtsingleapplication/qtsingleapplication.h"
#include "resourceinit.h"
#include "web/indexwindow.h"
#include "web/simplecrypt.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
const QString logModule = QStringLiteral("main");
const char extraArgumentText[] = "-platform windows:dipawareness=0";

int signalPipe[2] = { -1, -1 };

void onEndSignal(int)
{
    // Only async-signal-safe calls here; the GUI thread does the rest.
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[0], &byte, 1);
    errno = saved;
}

QString joined(int argc, char** argv)
{
    QString text;
    for (int i = 0; i < argc; ++i)
        text += QString::fromLocal8Bit(argv[i]);
    return text;
}
}

const char* Startup::extraArgument()
{
    return extraArgumentText;
}

char** Startup::rewriteArguments(int argc, char** argv, int& newArgc)
{
    char** newArgv = new char*[argc + 1];
    newArgc = 0;
    if (argc > 0) {
        for (int i = 0; i < argc; ++i)
            newArgv[i] = argv[i];
        newArgc = argc;
    }
    Logger::Info(logModule, QStringLiteral("[main] - newArgc=") + QString::number(newArgc));
    // One element, blank and all; the platform plug-in may ignore it.
    newArgv[newArgc] = const_cast<char*>(extraArgumentText);
    ++newArgc;
    Logger::Info(logModule, QStringLiteral("[main] - newArgc=") + QString::number(newArgc));
    Logger::Info(logModule, QStringLiteral("[main] - newArgv=") + joined(newArgc, newArgv));
    return newArgv;
}

Startup::LaunchDecision Startup::decideLaunch(const QString& tsLastLaunch, const QString& startOnLaunch)
{
    LaunchDecision decision;
    decision.removeStartOnLaunch = !startOnLaunch.isEmpty();
    decision.firstLaunch = tsLastLaunch.isEmpty() && startOnLaunch.isEmpty();
    return decision;
}

void Startup::setUpTextCipher()
{
    // Every cookie value this program writes is in the hash form; the cipher was made before main().
    SimpleCrypt::setUpShared();
}

void Startup::showTrayIcon(bool firstLaunch)
{
    WinMenuBarIcon::getInstance(nullptr)->show();
    // The user gets start at log-in without being asked, once.
    if (firstLaunch)
        AutomaticStartup::setAutomaticStartup();
}

bool Startup::choosePlatform()
{
    // Windows are placed by absolute coordinates and popups stack by them, which a Wayland client
    // can't do: on a Wayland session the program runs on XWayland. A platform chosen on purpose
    // for a run without a display (offscreen, minimal) is kept.
    const QByteArray chosen = qgetenv("QT_QPA_PLATFORM");
    if (!chosen.isEmpty() && !chosen.startsWith("wayland"))
        return false;
    qputenv("QT_QPA_PLATFORM", "xcb");
    return true;
}

void Startup::restorePlatformChoice(bool chosenHere, const QByteArray& before)
{
    // Programs we start (xdg-open and what it opens) choose for themselves.
    if (!chosenHere)
        return;
    if (before.isNull())
        qunsetenv("QT_QPA_PLATFORM");
    else
        qputenv("QT_QPA_PLATFORM", before);
}

void Startup::quitOnEndSignals()
{
    // The session ends a tray program by SIGTERM or SIGHUP: leave as the user's Quit does, without
    // asking, so that what waits to be saved (the cookie jar's delayed save) is saved.
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, signalPipe) != 0) {
        Logger::Warn(logModule, QStringLiteral("[main] - no pipe for end signals"));
        return;
    }
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] {
        char bytes[16];
        while (::read(signalPipe[1], bytes, sizeof bytes) > 0) { }
        Logger::Info(logModule, QStringLiteral("[main] - end signal, quitting"));
        WinMenuBarIcon::getInstance(nullptr)->hide();
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onEndSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

void Startup::showHackWindow()
{
    NotificationWindowManager::getInstance()->getHackWindow()->showNormal();
}

int Startup::run(int argc, char** argv)
{
    Logger::Info(logModule, QStringLiteral("[main] - attempting to launch app"));
    Logger::Info(logModule, QStringLiteral("[main] - argc=") + QString::number(argc));
    Logger::Info(logModule, QStringLiteral("[main] - argv=") + joined(argc, argv));

    int newArgc = 0;
    char** newArgv = rewriteArguments(argc, argv, newArgc);

    // Everything paints in software; without this the xcb plug-in loads its GL integration (Mesa's
    // software GL where there is no GPU), some 50 MB resident that nothing here uses.
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
    const QByteArray platformBefore
        = qEnvironmentVariableIsSet("QT_QPA_PLATFORM") ? qgetenv("QT_QPA_PLATFORM") : QByteArray();
    const bool platformChosen = choosePlatform();
    auto* app = new QtSingleApplication(QStringLiteral("Kestrelgap"), newArgc, newArgv);
    restorePlatformChoice(platformChosen, platformBefore);
    if (app->sendMessage(QStringLiteral("Wake up"), 5000)) {
        delete app;
        return 0;
    }
    Logger::Debug(logModule, QStringLiteral("[main] - id=") + app->id());
    // From here on an end signal is a quit; it is acted on once the event loop runs.
    quitOnEndSignals();
    // The menu glyphs and the notification sounds live in the compiled-in resources.
    kestrelgapInitResources();

    setUpTextCipher();
    QGuiApplication::setQuitOnLastWindowClosed(false);
    QApplication::setWindowIcon(WinMenuBarIcon::trayIconImage());
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrelgap"));
    QCoreApplication::setOrganizationDomain(ServiceHost::bareHost());
    QCoreApplication::setApplicationName(QStringLiteral("Kestrelgap"));

    doUpgradeCleanup();
    Logger::Info(logModule, QStringLiteral("[main] - application path=") + QCoreApplication::applicationDirPath());

    int result = 0;
    {
        MainWindow mainWindow;
        mainWindow.showInitialWindow();
        mainWindowHolder::set(&mainWindow);
        IndexWindow* indexWindow = indexWindowHolder::get();

        if (Logger::isDebugCodeValid()) {
            Logger::Debug(logModule, QStringLiteral("[main] - show webinspect"));
            QWebPage* page = indexWindow->webView()->page();
            page->settings()->setAttribute(QWebSettings::DeveloperExtrasEnabled, true);
            auto* inspector = new QWebInspector();
            inspector->setPage(page);
        }

        const QString startOnLaunch = indexWindow->getSetting(QStringLiteral("start-on-launch"), QString());
        const QString tsLastLaunch = indexWindow->getSetting(QStringLiteral("ts-last-launch"), QString());
        Logger::Debug(logModule, QStringLiteral("[main] - startOnLaunch=") + startOnLaunch);
        Logger::Debug(logModule, QStringLiteral("[main] - tsLastLaunch=") + tsLastLaunch);
        const LaunchDecision decision = decideLaunch(tsLastLaunch, startOnLaunch);
        if (decision.removeStartOnLaunch)
            indexWindow->removeSetting(QStringLiteral("start-on-launch"));

        // Neither the tray icon nor the hidden helper window is needed to see the start page:
        // made here, they held its first paint back. They come once it has loaded; the first
        // launch's start-at-login entry is written now, before the launch time.
        if (decision.firstLaunch)
            AutomaticStartup::setAutomaticStartup();
        auto shown = std::make_shared<bool>(false);
        const auto showTheRest = [shown] {
            if (*shown)
                return;
            *shown = true;
            showTrayIcon(false);
            showHackWindow();
        };
        QObject::connect(indexWindow->webView()->page(), &QWebPage::loadFinished, app, showTheRest);
        QTimer::singleShot(2000, app, showTheRest);
        mainWindow.activateWindow();
        indexWindow->webView()->setFocus(Qt::MouseFocusReason);
        QApplication::setActiveWindow(mainWindowHolder::get());

        QObject::connect(app, SIGNAL(messageReceived(const QString&)), &mainWindow, SLOT(messageReceived(const QString&)));
        QObject::connect(app, SIGNAL(aboutToQuit()), &mainWindow, SLOT(aboutToQuit()));

        docleanup();
        indexWindow->setSetting(QStringLiteral("ts-last-launch"), QDateTime::currentDateTime().toString(Qt::TextDate));
        result = QApplication::exec();
    }
    delete app;
    return result;
}

void manageLoginItems()
{
    Logger::Info(logModule, QStringLiteral("[manageLoginItems] called"));
    auto* worker = new ManageLoginItemsWorker();
    QThread* thread = ManageLoginItemsWorker::workThread();
    worker->moveToThread(thread);
    QObject::connect(thread, &QThread::started, worker, &ManageLoginItemsWorker::doWork);
    QObject::connect(thread, &QThread::finished, worker, &QObject::deleteLater);
    thread->start(QThread::InheritPriority);
}
