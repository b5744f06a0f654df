#pragma once

#include <QUrl>
#include <QWidget>

class QGraphicsWebView;
class Html5ApplicationViewerPrivate;

// Base of every hosted web surface: one page in a QGraphicsWebView inside a QGraphicsView.
class Html5ApplicationViewer : public QWidget
{
    Q_OBJECT
public:
    explicit Html5ApplicationViewer(QWidget* parent = nullptr);
    ~Html5ApplicationViewer() override;

    void loadFile(const QString& fileName);
    void loadUrl(const QUrl& url);
    QGraphicsWebView* webView() const;

private:
    Html5ApplicationViewerPrivate* m_d;
};
