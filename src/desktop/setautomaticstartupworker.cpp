#include "setautomaticstartupworker.h"

#include <QThread>

QThread* SetAutomaticStartupWorker::workThread()
{
    // Never deleted: a running QThread may not be destroyed, and nothing here ever stops it.
    static QThread* thread = new QThread();
    return thread;
}

void SetAutomaticStartupWorker::doWork()
{
    // Login items are kept by the desktop's autostart folder on this system; there is nothing to do here.
}
