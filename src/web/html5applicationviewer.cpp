#include "html5applicationviewer.h"

#include <QFileInfo>
#include <QGraphicsWebView>
#include <QVBoxLayout>

#include "html5applicationviewerprivate.h"

Html5ApplicationViewer::Html5ApplicationViewer(QWidget* parent)
    : QWidget(parent)
    , m_d(new Html5ApplicationViewerPrivate(this))
{
    connect(m_d, &Html5ApplicationViewerPrivate::quitRequested, this, &QWidget::close);
    auto* layout = new QVBoxLayout();
    layout->addWidget(m_d);
    layout->setContentsMargins(0, 0, 0, 0);
    setLayout(layout);
}

Html5ApplicationViewer::~Html5ApplicationViewer()
{
    delete m_d;
}

void Html5ApplicationViewer::loadFile(const QString& fileName)
{
    m_d->offerQuitToDefaultPage();
    // Relative names resolve against the working directory, not the program's folder.
    m_d->webView()->setUrl(QUrl::fromLocalFile(QFileInfo(fileName).absoluteFilePath()));
}

void Html5ApplicationViewer::loadUrl(const QUrl& url)
{
    m_d->offerQuitToDefaultPage();
    m_d->webView()->setUrl(url);
}

QGraphicsWebView* Html5ApplicationViewer::webView() const
{
    return m_d->webView();
}

