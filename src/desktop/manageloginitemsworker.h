#pragma once

#include <QObject>

class QThread;

// Background upkeep of the program's login items, started once at launch.
class ManageLoginItemsWorker : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The process-wide thread these workers run on. It is started on first use and never stopped.
    static QThread* workThread();

public slots:
    void doWork();
};
