#pragma once

#include <QFile>
#include <QGraphicsWebView>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWebFrame>
#include <QWebPage>

#include "web/indexwindow.h"

// A main page that records what the native side asks of it: tracker events and helper calls.
class RecordingPage
{
public:
    bool load(IndexWindow* window)
    {
        mFrame = window->webView()->page()->mainFrame();
        QFile file(mDir.filePath(QStringLiteral("recorder.html")));
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write(R"(<html><script>
  window.events = [];
  function record(text) { window.events.push(text); }
  var _gaq = { push: function (a) { record('ga:' + a[2] + ':' + a[3]); } };
  var _kmq = { push: function (a) { record('km:' + a[1] + ':' + JSON.stringify(a[2])); } };
  function nativeAppWindowComposeSingleMessageHelper() { record('compose'); }
  function openPhoneLiveViewInNativeAppWindow(o) { record('open:' + o.type); }
  function processJSONFromNativeNotificationClickHelper(json, reply) { record('json:' + json); }
</script></html>)");
        file.close();
        QSignalSpy finished(mFrame->page(), &QWebPage::loadFinished);
        window->loadUrl(QUrl::fromLocalFile(file.fileName()));
        return QTest::qWaitFor([&] { return !finished.isEmpty() && finished.last().first().toBool(); }, 10000);
    }

    QStringList events() const { return mFrame->evaluateJavaScript(QStringLiteral("window.events")).toStringList(); }
    void clear() { mFrame->evaluateJavaScript(QStringLiteral("window.events = [];")); }

private:
    QTemporaryDir mDir;
    QWebFrame* mFrame = nullptr;
};
