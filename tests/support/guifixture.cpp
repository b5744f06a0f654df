#include "guifixture.h"

#include <QApplication>
#include <QGraphicsWebView>
#include <QSignalSpy>
#include <QTest>
#include <QWebFrame>
#include <QWebPage>
#include <QWindow>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "desktop/winmenubaricon.h"
#include "resourceinit.h"
#include "stagedfolder.h"
#include "web/html5applicationviewer.h"
#include "web/indexwindow.h"

namespace {
const int loadTimeoutMs = 15000;
}

const QUrl& GuiFixture::recorderUrl()
{
    static const QUrl url(QStringLiteral("qrc:///bridge/recorder.html"));
    return url;
}

bool exposed(QWidget* widget)
{
    return widget && widget->windowHandle() && widget->windowHandle()->isExposed();
}

QWidget* visibleTopLevel(const char* className)
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (qstrcmp(widget->metaObject()->className(), className) == 0 && widget->isVisible())
            return widget;
    return nullptr;
}

GuiFixture::~GuiFixture()
{
    mainWindowHolder::set(nullptr);
    delete mMainWindow;
}

bool GuiFixture::start(const Options& options)
{
    Q_INIT_RESOURCE(bridge);
    kestrelgapInitResources();
    if (options.stagedFolder && !StagedFolder::enter()) {
        QTest::qFail("the build did not stage the program folder", __FILE__, __LINE__);
        return false;
    }
    mMainWindow = new MainWindow();
    mainWindowHolder::set(mMainWindow);
    if (options.show)
        mMainWindow->showInitialWindow();
    if (options.trayIcon)
        WinMenuBarIcon::getInstance(nullptr)->show();
    if (!load(recorderUrl())) {
        QTest::qFail("the recorder page did not load", __FILE__, __LINE__);
        return false;
    }
    return true;
}

IndexWindow* GuiFixture::indexWindow() const
{
    return mMainWindow ? mMainWindow->indexWindow() : nullptr;
}

QWebFrame* GuiFixture::frame() const
{
    return indexWindow()->webView()->page()->mainFrame();
}

bool GuiFixture::load(const QUrl& url)
{
    QSignalSpy finished(indexWindow()->webView()->page(), &QWebPage::loadFinished);
    indexWindow()->loadUrl(url);
    return QTest::qWaitFor([&] { return !finished.isEmpty() && finished.last().first().toBool(); }, loadTimeoutMs);
}

bool GuiFixture::loadHtml(const QString& html, const QUrl& baseUrl)
{
    QSignalSpy finished(indexWindow()->webView()->page(), &QWebPage::loadFinished);
    frame()->setHtml(html, baseUrl);
    return QTest::qWaitFor([&] { return !finished.isEmpty(); }, loadTimeoutMs);
}

QVariant GuiFixture::eval(const QString& script) const
{
    return frame()->evaluateJavaScript(script);
}

QStringList GuiFixture::takeCalls()
{
    return eval(QStringLiteral("window.calls.splice(0, window.calls.length)")).toStringList();
}

QStringList GuiFixture::calls() const
{
    return eval(QStringLiteral("window.calls")).toStringList();
}
