#include "html5applicationviewerprivate.h"

#include <QGraphicsScene>
#include <QGraphicsWebView>
#include <QResizeEvent>
#include <QWebFrame>
#include <QWebPage>

Html5ApplicationViewerPrivate::Html5ApplicationViewerPrivate(QWidget* parent)
    : QGraphicsView(parent)
{
    setScene(new QGraphicsScene());
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    m_webView = new QGraphicsWebView();
    m_webView->setAcceptTouchEvents(true);
    m_webView->setAcceptHoverEvents(true);
    setAttribute(Qt::WA_AcceptTouchEvents, true);
    scene()->addItem(m_webView);
    scene()->setActiveWindow(m_webView);
}

void Html5ApplicationViewerPrivate::offerQuitToDefaultPage()
{
    // Only the view's own page offers "Qt"; owners that replace the page before loading don't.
    // Asked at the first load, not here: the view would make a page only to be thrown away.
    if (m_quitOffered)
        return;
    m_quitOffered = true;
    QWebPage* page = m_webView->page();
    if (page->parent() == m_webView)
        connect(page->mainFrame(), &QWebFrame::javaScriptWindowObjectCleared, this,
            &Html5ApplicationViewerPrivate::addToJavaScript);
}

void Html5ApplicationViewerPrivate::quit()
{
    emit quitRequested();
}

void Html5ApplicationViewerPrivate::resizeEvent(QResizeEvent* event)
{
    m_webView->resize(QSizeF(event->size()));
}

void Html5ApplicationViewerPrivate::addToJavaScript()
{
    m_webView->page()->mainFrame()->addToJavaScriptWindowObject(QStringLiteral("Qt"), this, QWebFrame::QtOwnership);
}
