#include "startupitemlookupworker.h"

#include <QThread>

QThread* StartupItemLookupWorker::workThread()
{
    // Never deleted: a running QThread may not be destroyed, and nothing here ever stops it.
    static QThread* thread = new QThread();
    return thread;
}

void StartupItemLookupWorker::doWork()
{
    // Login items are kept by the desktop's autostart folder on this system; there is nothing to do here.
}
