#include "mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QGraphicsWebView>
#include <QInputDialog>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QShortcut>
#include <QSystemTrayIcon>
#include <QTimer>

#include "core/logger.h"
#include "core/properties.h"
#include "core/windowholders.h"
#include "desktop/statusbariconactions.h"
#include "notifications/notificationwindow.h"
#include "notifications/notificationwindowmanager.h"
#include "preferences/aboutdialog.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("mainwindow");

QJsonObject* locationJson(const QString& location)
{
    auto* json = new QJsonObject();
    json->insert(QStringLiteral("location"), location);
    return json;
}
}

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , mIndexWindow(nullptr)
    , mMenuBar(nullptr)
    , mMainMenu(nullptr)
    , mOpenAction(nullptr)
    , mPreferencesAction(nullptr)
    , mSignOutAction(nullptr)
    , mQuitAction(nullptr)
    , mMinimizeAction(nullptr)
    , mAboutAction(nullptr)
    , mNewMessageAction(nullptr)
    , mCloseAction(nullptr)
    , mZoomInAction(nullptr)
    , mZoomOutAction(nullptr)
    , mActualSizeAction(nullptr)
    , mShortcutsMenu(nullptr)
    , mZoomInShortcut(nullptr)
    , originalScaleFactor(1.0)
    , scaleFactor(1.0)
    , osScaleFactor(1.0)
{
    QSettings settings;
    installTranslators(settings);

    mIndexWindow = new IndexWindow();
    mIndexWindow->loadFile(IndexWindow::startPagePath());
    setCentralWidget(mIndexWindow);
    indexWindowHolder::set(mIndexWindow);

    // The program's, set up once at start: a copy of its own would decode every size again.
    setWindowIcon(QApplication::windowIcon());
    setWindowTitle(QStringLiteral("Kestrelgap"));
    createMenus();
    setUpScaleFactors();
}

void MainWindow::installTranslators(QSettings& settings)
{
    // Only the user's own choice counts here, never the system's locale: without one the program is English.
    QString languageCode = settings.value(QStringLiteral("language-code")).toString();
    if (languageCode.isEmpty())
        languageCode = QStringLiteral("en");
    loadTranslators(languageCode);
    // Installed once and only reloaded later, so their place in the lookup order never moves.
    QCoreApplication::installTranslator(&mQtTranslator);
    QCoreApplication::installTranslator(&mAppTranslator);
}

void MainWindow::loadTranslators(const QString& languageCode)
{
    // No search delimiters: "kestrelgap_de" must not fall back to a shorter name. A load that finds nothing
    // leaves the translator empty, so a code without a catalogue shows the English source texts.
    const QString noDelimiters = QStringLiteral("");
    mQtTranslator.load(QStringLiteral("qt_") + languageCode, QLibraryInfo::location(QLibraryInfo::TranslationsPath),
        noDelimiters);
    mAppTranslator.load(QStringLiteral("kestrelgap_") + languageCode, QStringLiteral(":/translations"), noDelimiters);
}

void MainWindow::changeLanguageCode(QString currentLanguageCode, QString languageCode)
{
    Logger::Debug(logModule, QStringLiteral("[changeLanguageCode] - currentLanguageCode=") + currentLanguageCode
            + QStringLiteral(", languageCode=") + languageCode);
    Logger::Debug(logModule, QStringLiteral("[changeLanguageCode] - translations path=")
            + QLibraryInfo::location(QLibraryInfo::TranslationsPath));
    loadTranslators(languageCode);
    // The menus are made anew in the new language, and new actions start signed out.
    const bool signedIn = mNewMessageAction->isEnabled();
    createMenus();
    if (signedIn)
        enableMenuOptionsForLoggedInUser();
}

void MainWindow::createMenus()
{
    const QString mainTitle = QStringLiteral("Kestrelgap   \u25BC ");
    const QString shortcutsTitle = tr("Shortcuts") + QStringLiteral("   \u25BC ");

    mMenuBar = new QMenuBar(mIndexWindow);
    mMenuBar->setStyleSheet(QStringLiteral("QMenuBar::item { background-color: #419ab1; color: white;padding:5px;"
                                           "border-radius:3px;margin:5px;margin-bottom:4px}"));
    setMenuBar(mMenuBar);

    // Actions of an earlier build are let go, not deleted.
    mNewMessageAction = new QAction(tr("New Message..."), nullptr);
    mOpenAction = new QAction(tr("Open Kestrelgap"), nullptr);
    mPreferencesAction = new QAction(tr("Preferences"), nullptr);
    mSignOutAction = new QAction(tr("Sign Out"), nullptr);
    mMinimizeAction = new QAction(tr("Minimize"), nullptr);
    mCloseAction = new QAction(tr("Close"), nullptr);
    mQuitAction = new QAction(tr("Quit"), nullptr);
    mAboutAction = new QAction(tr("About"), nullptr);
    mZoomInAction = new QAction(tr("Zoom In"), nullptr);
    mZoomOutAction = new QAction(tr("Zoom Out"), nullptr);
    mActualSizeAction = new QAction(tr("Actual Size"), nullptr);

    mNewMessageAction->setEnabled(false);
    mPreferencesAction->setEnabled(false);
    mSignOutAction->setEnabled(false);

    if (mMainMenu) {
        mMainMenu->clear();
    } else {
        mMainMenu = new QMenu(mainTitle, nullptr);
    }
    if (mShortcutsMenu) {
        mShortcutsMenu->setTitle(shortcutsTitle);
        mShortcutsMenu->clear();
    } else {
        mShortcutsMenu = new QMenu(shortcutsTitle, nullptr);
    }
    mMenuBar->addMenu(mMainMenu);
    mMenuBar->addMenu(mShortcutsMenu);

    mAboutAction->setMenuRole(QAction::AboutRole);
    mPreferencesAction->setMenuRole(QAction::PreferencesRole);
    mSignOutAction->setMenuRole(QAction::ApplicationSpecificRole);
    mQuitAction->setMenuRole(QAction::QuitRole);
    mQuitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    mOpenAction->setMenuRole(QAction::ApplicationSpecificRole);
    mMainMenu->addAction(mAboutAction);
    mMainMenu->addSeparator();
    mMainMenu->addAction(mPreferencesAction);
    mMainMenu->addAction(mSignOutAction);
    mMainMenu->addSeparator();
    mMainMenu->addAction(mQuitAction);

    mNewMessageAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_N));
    mMinimizeAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_M));
    mCloseAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    mActualSizeAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_0));
    mZoomInAction->setShortcut(QKeySequence::ZoomIn);
    mZoomOutAction->setShortcut(QKeySequence::ZoomOut);
    mShortcutsMenu->addAction(mNewMessageAction);
    mShortcutsMenu->addAction(mMinimizeAction);
    mShortcutsMenu->addAction(mCloseAction);
    mShortcutsMenu->addSeparator();
    mShortcutsMenu->addAction(mActualSizeAction);
    mShortcutsMenu->addAction(mZoomInAction);
    mShortcutsMenu->addAction(mZoomOutAction);

    // Ctrl+= is where most keyboards put "+" without Shift.
    mZoomInShortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Equal), this, nullptr, nullptr, Qt::WindowShortcut);

    connect(mAboutAction, &QAction::triggered, this, &MainWindow::showAbout);
    connect(mPreferencesAction, &QAction::triggered, this, &MainWindow::settingsActionClicked);
    connect(mSignOutAction, &QAction::triggered, this, &MainWindow::signoutActionClicked);
    connect(mQuitAction, &QAction::triggered, this, &MainWindow::quitActionClicked);
    connect(mOpenAction, &QAction::triggered, this, &MainWindow::openMessengerActionClicked);
    connect(mNewMessageAction, &QAction::triggered, this, &MainWindow::composeNewActionClicked);
    connect(mMinimizeAction, &QAction::triggered, this, &MainWindow::minimizeActionClicked);
    connect(mCloseAction, &QAction::triggered, this, &MainWindow::closeActionClicked);
    connect(mActualSizeAction, &QAction::triggered, this, &MainWindow::zoomNormal);
    connect(mZoomInAction, &QAction::triggered, this, &MainWindow::zoomIn);
    connect(mZoomInShortcut, &QShortcut::activated, this, &MainWindow::zoomIn);
    connect(mZoomOutAction, &QAction::triggered, this, &MainWindow::zoomOut);
}

void MainWindow::openMessengerActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[openMessengerActionClicked] called"));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("open-kg-main-window-qt"), QStringLiteral("kestrelgap-menu"),
        locationJson(QStringLiteral("kestrelgap-menu")));
    showAlreadyRunningWindow();
}

void MainWindow::settingsActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[settingsActionClicked] called"));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("preferences-clicked-from-kg-menu-qt"));
    auto* actions = new StatusBarIconActions(nullptr);
    actions->showPreferenceDialog();
}

void MainWindow::signoutActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[signoutActionClicked] called"));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("sign-out-clicked-from-kg-menu-qt"));
    mIndexWindow->signoutActionClicked();
}

void MainWindow::quitActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[quitActionClicked] called"));
    saveWindowSettings();
    mIndexWindow->logAnalyticsEvent(QStringLiteral("quit-kg-qt"));
    auto* actions = new StatusBarIconActions(nullptr);
    actions->quitActionClicked();
}

void MainWindow::minimizeActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[minimizeActionClicked] called"));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("minimize-app-qt"));
    showMinimized();
}

void MainWindow::closeActionClicked()
{
    // Ctrl+W belongs to whichever of our windows is active.
    const bool active = isActiveWindow();
    Logger::Info(logModule, QStringLiteral("[closeActionClicked] - isActiveWindow: ") + QVariant(active).toString());
    if (active) {
        mIndexWindow->logAnalyticsEvent(QStringLiteral("close-app-qt"));
        close();
        return;
    }
    if (QWidget* popup = activeNotificationWindow()) {
        mIndexWindow->logAnalyticsEvent(QStringLiteral("close-notif-qt"));
        popup->close();
    }
}

QWidget* MainWindow::activeNotificationWindow() const
{
    return NotificationWindowManager::getInstance()->getActiveNotificationWindow();
}

void MainWindow::composeNewActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[composeNewActionClicked] called"));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("compose-new-from-kg-menu-qt"));
    mIndexWindow->composeNewActionClicked();
}

void MainWindow::showAbout()
{
    Logger::Info(logModule, QStringLiteral("[showAbout] called"));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("about-kg-clicked-from-kg-menu-qt"));
    AboutDialog dialog;
    dialog.exec();
}

void MainWindow::enableMenuOptionsForLoggedInUser()
{
    setLoggedInMenuOptionsEnabled(true);
}

void MainWindow::disableMenuOptionsForLoggedInUser()
{
    setLoggedInMenuOptionsEnabled(false);
}

void MainWindow::setLoggedInMenuOptionsEnabled(bool enabled)
{
    mNewMessageAction->setEnabled(enabled);
    mPreferencesAction->setEnabled(enabled);
    mSignOutAction->setEnabled(enabled);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    Logger::Info(logModule, QStringLiteral("[closeEvent] called"));
    saveWindowSettings();
    // A hidden window comes back through the tray icon. Without a tray to hold one (asked each time:
    // a panel may come or go) the task bar has to, or the program would run on with no way back.
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        event->ignore();
        showMinimized();
        return;
    }
    hide();
}

void MainWindow::hideEvent(QHideEvent* event)
{
    Logger::Info(logModule, QStringLiteral("[hideEvent] called"));
    QMainWindow::hideEvent(event);
}

void MainWindow::showInitialWindow()
{
    resizeWindowToLoginSize(false);
    showWindow();
}

void MainWindow::showWindow()
{
    Logger::Info(logModule, QStringLiteral("[showWindow] - isMinimized=") + QVariant(isMinimized()).toString()
            + QStringLiteral(", isHidden=") + QVariant(isHidden()).toString());
    if (isMinimized() || isHidden())
        showNormal();
    Logger::Info(logModule, QStringLiteral("[showWindow] - isMaximized=") + QVariant(isMaximized()).toString());
    if (isMaximized())
        showMaximized();
    Logger::Info(logModule, QStringLiteral("[showWindow] - isFullScreen=") + QVariant(isFullScreen()).toString());
    if (isFullScreen())
        raise();
    raise();
    activateWindow();
}

void MainWindow::messageReceived(QString /*dummy*/)
{
    Logger::Info(logModule, QStringLiteral("[messageReceived] - isMinimized=") + QVariant(isMinimized()).toString()
            + QStringLiteral(", isHidden=") + QVariant(isHidden()).toString());
    if (isMinimized() || isHidden())
        showNormal();
    activateWindow();
}

void MainWindow::showAlreadyRunningWindow()
{
    Logger::Info(logModule,
        QStringLiteral("[showAlreadyRunningWindow] - is full screen=") + QVariant(isFullScreen()).toString());
    if (isFullScreen())
        QTimer::singleShot(maximiseDelay, this, SLOT(runShowAlreadyRunningWindow()));
    else
        runShowAlreadyRunningWindow();
}

void MainWindow::runShowAlreadyRunningWindow()
{
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void MainWindow::showFindDialog()
{
    Logger::Info(logModule, QStringLiteral("[showFindDialog] - triggered"));
    mIndexWindow->showMainWindow();
    mIndexWindow->logAnalyticsEvent(
        QStringLiteral("find-text-window-qt"), QStringLiteral("edit-menu"), locationJson(QStringLiteral("edit-menu")));
    auto* dialog = new QInputDialog(this);
    dialog->setOkButtonText(QStringLiteral("OK"));
    dialog->setCancelButtonText(QStringLiteral("Close"));
    dialog->setLabelText(QStringLiteral("Find:"));
    connect(dialog, &QInputDialog::textValueChanged, this, &MainWindow::findValueChanged);
    const int result = dialog->exec();
    Logger::Info(logModule, QStringLiteral("[showFindDialog] - output=") + QString::number(result));
    if (result == 0)
        mIndexWindow->webView()->findText(QString(), QWebPage::HighlightAllOccurrences);
}

void MainWindow::findValueChanged(QString text)
{
    Logger::Info(logModule, QStringLiteral("[findValueChanged] text=") + text);
    mIndexWindow->webView()->findText(QString(), QWebPage::HighlightAllOccurrences);
    mIndexWindow->webView()->findText(text, QWebPage::HighlightAllOccurrences);
}

void MainWindow::aboutToQuit()
{
    Logger::Debug(logModule, QStringLiteral("[aboutToQuit] called"));
    closePopupsAndHackWindow();
}

void MainWindow::closePopupsAndHackWindow()
{
    // The hidden helper window goes last.
    mIndexWindow->closeAllNotificationWindows();
    NotificationWindowManager::getInstance()->getHackWindow()->forceClose();
}
