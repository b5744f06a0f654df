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

    // Bound to the page the view has now; owners that replace the page don't offer "Qt".
    connect(m_webView->page()->mainFrame(), &QWebFrame::javaScriptWindowObjectCleared, this,
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
