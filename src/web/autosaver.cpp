#include "autosaver.h"

#include <QMetaObject>
#include <QTimerEvent>

#include "core/logger.h"

namespace {
const QString logModule = QStringLiteral("autosaver");
}

AutoSaver::AutoSaver(QObject* parent)
    : QObject(parent)
{
}

AutoSaver::~AutoSaver()
{
    if (mTimer.isActive())
        Logger::Warn(
            logModule, QStringLiteral("[destructor] - AutoSaver: still active when destroyed, changes not saved."));
}

void AutoSaver::changeOccurred()
{
    if (!mFirstChange.isValid())
        mFirstChange.start();

    if (mFirstChange.elapsed() > longestWaitMs)
        saveIfNecessary();
    else
        mTimer.start(saveDelayMs, this);
}

void AutoSaver::saveIfNecessary()
{
    if (!mTimer.isActive())
        return;
    mTimer.stop();
    mFirstChange.invalidate();
    if (!QMetaObject::invokeMethod(parent(), "save", Qt::DirectConnection))
        Logger::Warn(logModule, QStringLiteral("[saveIfNecessary] - AutoSaver: error invoking slot save() on parent"));
}

void AutoSaver::timerEvent(QTimerEvent* event)
{
    if (event->timerId() == mTimer.timerId())
        saveIfNecessary();
    else
        QObject::timerEvent(event);
}
