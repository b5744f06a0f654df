#pragma once

#include <QGraphicsView>

class QGraphicsWebView;

// The graphics view behind Html5ApplicationViewer. The page scrolls itself, so the view never does.
class Html5ApplicationViewerPrivate : public QGraphicsView
{
    Q_OBJECT
public:
    explicit Html5ApplicationViewerPrivate(QWidget* parent = nullptr);

    QGraphicsWebView* webView() const { return m_webView; }
    void offerQuitToDefaultPage();

signals:
    void quitRequested();

public slots:
    void quit();

protected:
    void resizeEvent(QResizeEvent* event) override;

private slots:
    void addToJavaScript();

private:
    QGraphicsWebView* m_webView;
    bool m_quitOffered = false;
};
