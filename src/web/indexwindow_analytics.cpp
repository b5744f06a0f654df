// IndexWindow: analytics events, forwarded to the trackers that live in the hosted page.
#include "indexwindow.h"

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
}

void IndexWindow::logGoogleAnalyticsEvent(QString eventName, QString eventLabel)
{
    if (eventLabel.isEmpty())
        eventLabel = QStringLiteral("pc");
    // One arg() call for both, so a "%" in the name can't swallow the label.
    const QString jsCall = QStringLiteral("_gaq.push( ['_trackEvent','WebApp', '%1', '%2'] );").arg(eventName, eventLabel);
    Logger::Debug(logModule, QStringLiteral("[logGoogleAnalyticsEvent] jsCall=") + jsCall);
    evaluateInMainFrame(jsCall);
}

void IndexWindow::logKissMetricsEvent(QString eventName, QJsonObject* json)
{
    // A page may pass null where native callers always pass an object.
    QJsonObject empty;
    if (!json)
        json = &empty;
    json->insert(QStringLiteral("os"), QStringLiteral("pc"));
    QStringList entries;
    const QStringList keys = json->keys();
    for (const QString& key : keys)
        entries << QStringLiteral("'") + key + QStringLiteral("':'") + json->value(key).toString() + QStringLiteral("'");
    const QString object = QStringLiteral("{") + entries.join(QStringLiteral(", ")) + QStringLiteral("}");
    const QString jsCall = QStringLiteral("_kmq.push( ['record', '%1', %2] );").arg(eventName, object);
    Logger::Debug(logModule, QStringLiteral("[logKissMetricsEvent] jsCall=") + jsCall);
    evaluateInMainFrame(jsCall);
}

void IndexWindow::logAnalyticsEvent(QString eventName, QString eventLabel, QJsonObject* json)
{
    logGoogleAnalyticsEvent(eventName, eventLabel);
    logKissMetricsEvent(eventName, json);
}
