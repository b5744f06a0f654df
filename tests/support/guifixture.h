#pragma once

#include <QStringList>
#include <QUrl>
#include <QVariant>

class QWidget;

// Round trips through the window manager are slow on a loaded machine.
const int windowManagerTimeout = 20000;
// Mapped on the X server, not only asked to be.
bool exposed(QWidget* widget);
// A visible top-level widget of that class, e.g. Qt's own XEmbed tray window or balloon.
QWidget* visibleTopLevel(const char* className);

class IndexWindow;
class MainWindow;
class QWebFrame;

// The main window and its page as the program builds them, once per test program. The page is the
// recorder (tests/data/bridge/recorder.html) unless a test loads its own: whatever the native side
// calls in it lands in window.calls.
class GuiFixture
{
public:
    struct Options
    {
        bool stagedFolder = true; // run from the staged program folder, as the program does
        bool show = true;         // show the main window as at start
        bool trayIcon = false;    // show the tray icon
    };

    static const QUrl& recorderUrl();

    GuiFixture() = default;
    ~GuiFixture();
    GuiFixture(const GuiFixture&) = delete;
    GuiFixture& operator=(const GuiFixture&) = delete;

    // Builds everything and loads the recorder. Records a test failure and returns false when
    // something is missing (no staged folder, page not loaded).
    bool start(const Options& options);
    bool start() { return start(Options()); }
    bool startWithTray(bool show = true) { return start({true, show, true}); }

    MainWindow* mainWindow() const { return mMainWindow; }
    IndexWindow* indexWindow() const;
    QWebFrame* frame() const;

    // Loads a page and waits until it finished loading.
    bool load(const QUrl& url);
    bool loadHtml(const QString& html, const QUrl& baseUrl = QUrl(QStringLiteral("http://127.0.0.1/")));
    QVariant eval(const QString& script) const;
    // What the native side called in the recorder since the last take, in order.
    QStringList takeCalls();
    // The same without taking them: safe inside QTRY_*, which evaluates its expression once more.
    QStringList calls() const;

private:
    MainWindow* mMainWindow = nullptr;
};
