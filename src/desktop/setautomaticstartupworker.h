#pragma once

#include <QObject>

class QThread;

// Registers the program as a login item in the background, reporting how long each step took.
class SetAutomaticStartupWorker : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The process-wide thread these workers run on. It is started on first use and never stopped.
    static QThread* workThread();

signals:
    void workDone(int removeTimeDiff, int addTimeDiff);

public slots:
    void doWork();
};
