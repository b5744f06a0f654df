// IndexWindow: the page's background login-item registration and its timing report.
#include "indexwindow.h"

#include <QThread>

#include "core/logger.h"
#include "core/properties.h"
#include "desktop/automaticstartup.h"
#include "desktop/setautomaticstartupworker.h"

namespace {
const QString logModule = QStringLiteral("indexwindow");
}

void IndexWindow::setAppToStartupAtLoginToMac()
{
    Logger::Info(logModule, QStringLiteral("[setAppToStartupAtLoginToMac] called"));
    auto* worker = new SetAutomaticStartupWorker();
    QThread* thread = SetAutomaticStartupWorker::workThread();
    worker->moveToThread(thread);
    connect(thread, &QThread::started, worker, &SetAutomaticStartupWorker::doWork);
    connect(thread, &QThread::finished, worker, &QObject::deleteLater);
    connect(worker, &SetAutomaticStartupWorker::workDone, this, &IndexWindow::logAnalyticsForSetAppToStartupAtLoginToMac);
    // Starting a thread that already runs does nothing; a later worker waits there without work.
    thread->start(QThread::InheritPriority);
}

void IndexWindow::logAnalyticsForSetAppToStartupAtLoginToMac(int removeTimeDiff, int addTimeDiff)
{
    Logger::Info(logModule, QStringLiteral("[logAnalyticsForSetAppToStartupAtLoginToMac] - removeTimeDiff=")
            + QString::number(removeTimeDiff) + QStringLiteral(", addTimeDiff=") + QString::number(addTimeDiff));
    logGoogleAnalyticsEvent(QStringLiteral("qt-get-app-startup-value-loading-app-") + Properties::getOsVersion(),
        AutomaticStartup::durationBucket(removeTimeDiff));
}
