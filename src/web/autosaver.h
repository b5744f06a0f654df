#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QObject>

// Batches saves of its parent: the parent's slot "save" runs once a burst of changes has gone
// quiet, or at the latest on the first change that comes after the longest wait.
class AutoSaver : public QObject
{
    Q_OBJECT

public:
    static constexpr int saveDelayMs = 3000;
    static constexpr int longestWaitMs = 2000;

    explicit AutoSaver(QObject* parent);
    ~AutoSaver() override;

    void saveIfNecessary();

public slots:
    void changeOccurred();

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    QBasicTimer mTimer;
    // Runs from the first change that is not saved yet; invalid while nothing is pending.
    QElapsedTimer mFirstChange;
};
