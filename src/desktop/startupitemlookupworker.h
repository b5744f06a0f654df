#pragma once

#include <QObject>

class QThread;

// Looks up in the background whether the program is a login item.
class StartupItemLookupWorker : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The process-wide thread these workers run on. It is started on first use and never stopped.
    static QThread* workThread();

signals:
    void resultReady(bool state);

public slots:
    void doWork();
};
