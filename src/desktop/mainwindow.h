#pragma once

#include <QMainWindow>
#include <QMargins>
#include <QRect>
#include <QTranslator>

#include <functional>

class IndexWindow;
class QAction;
class QMenu;
class QMenuBar;
class QSettings;
class QShortcut;

// Top-level frame around the hosted page. Closing it only hides it: the program lives in the tray.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);

    IndexWindow* indexWindow() const { return mIndexWindow; }
    QMenu* mainMenu() const { return mMainMenu; }
    QMenu* shortcutsMenu() const { return mShortcutsMenu; }

    // Screen-dependent zoom: the larger of 1:1 and the fit to a 1366x768 reference, to one decimal.
    static double computeOsScaleFactor(double originalScaleFactor, int screenWidth, int screenHeight);

    // The frames of the two shapes, from the screen, its work area (the screen less the panels) and
    // the window manager's frame margins. Where the work area is the whole screen the client area has
    // the reference figures exactly; where panels take part of it, the whole frame, title bar
    // included, keeps inside the work area.
    static QRect loginFrame(const QRect& screen, const QRect& workArea, const QMargins& frame, double scaleFactor);
    static QRect messengerFrame(const QRect& screen, const QRect& workArea, const QMargins& frame, double osScaleFactor);

    static constexpr double refWidth = 1366.0;
    static constexpr double refHeight = 768.0;
    static constexpr double zoomStep = 0.1;
    static constexpr int animationDuration = 100;
    static constexpr int maximiseDelay = 300;

public slots:
    void openMessengerActionClicked();
    void settingsActionClicked();
    void signoutActionClicked();
    void quitActionClicked();
    void minimizeActionClicked();
    void closeActionClicked();
    void showInitialWindow();
    void showWindow();
    void showAlreadyRunningWindow();
    void runShowAlreadyRunningWindow();
    void messageReceived(QString dummy);
    void composeNewActionClicked();
    void showAbout();
    void enableMenuOptionsForLoggedInUser();
    void disableMenuOptionsForLoggedInUser();
    void resizeWindowToMessengerSize(bool runAnimation);
    void resizeWindowToLoginSize(bool runAnimation);
    void aboutToQuit();
    void zoomIn();
    void zoomOut();
    void zoomNormal();
    void showFindDialog();
    void findValueChanged(QString text);
    double getOriginalScaleFactor();
    double getScaleFactor();
    double getOsScaleFactor();
    void resizeToFullScreen();
    void resizeToMaximized();
    void changeLanguageCode(QString currentLanguageCode, QString languageCode);

protected:
    void closeEvent(QCloseEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void createMenus();
    void applyZoom();
    void saveZoomSetting(double factor);
    void saveWindowSettings();
    void setUpScaleFactors();
    void installTranslators(QSettings& settings);
    void loadTranslators(const QString& languageCode);
    void animateGeometryTo(const QRect& target);
    using FrameRule = std::function<QRect(const QRect& screen, const QRect& workArea, const QMargins& frame)>;
    // Sets the client area for the rule's frame; once more when the manager's frame first shows up.
    QRect placeByRule(const FrameRule& rule, bool runAnimation);
    QMargins frameMargins() const;
    void startDelayedStateSwitch(const char* slot);
    void setLoggedInMenuOptionsEnabled(bool enabled);
    QWidget* activeNotificationWindow() const;
    void closePopupsAndHackWindow();

    IndexWindow* mIndexWindow;
    QMenuBar* mMenuBar;
    QMenu* mMainMenu;
    QAction* mOpenAction;
    QAction* mPreferencesAction;
    QAction* mSignOutAction;
    QAction* mQuitAction;
    QAction* mMinimizeAction;
    QAction* mAboutAction;
    QAction* mNewMessageAction;
    QAction* mCloseAction;
    QAction* mZoomInAction;
    QAction* mZoomOutAction;
    QAction* mActualSizeAction;
    QMenu* mShortcutsMenu;
    QShortcut* mZoomInShortcut;
    double originalScaleFactor;
    double scaleFactor;
    double osScaleFactor;
    FrameRule mPendingRule;
    QTranslator mQtTranslator;
    QTranslator mAppTranslator;
};
