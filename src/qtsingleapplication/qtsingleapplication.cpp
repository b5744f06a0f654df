#include "qtsingleapplication.h"

#include <QDebug>
#include <QWidget>

#include "core/logger.h"
#include "qtsingleapplication/qtlocalpeer.h"

namespace {
const QString logModule = QStringLiteral("qtsingleapplication");
}

QtSingleApplication::QtSingleApplication(int& argc, char** argv, bool GUIenabled)
    : QApplication(argc, argv)
{
    // Qt 5 has no application object without a GUI; the flag stays for callers of the old form.
    Q_UNUSED(GUIenabled)
    sysInit();
}

QtSingleApplication::QtSingleApplication(const QString& appId, int& argc, char** argv)
    : QApplication(argc, argv)
{
    sysInit(appId);
}

void QtSingleApplication::sysInit(const QString& appId)
{
    actWin = nullptr;
    peer = new QtLocalPeer(this, appId);
    connect(peer, &QtLocalPeer::messageReceived, this, &QtSingleApplication::messageReceived);
}

bool QtSingleApplication::isRunning()
{
    return peer->isClient();
}

bool QtSingleApplication::sendMessage(const QString& message, int timeout)
{
    return peer->sendMessage(message, timeout);
}

QString QtSingleApplication::id() const
{
    return peer->applicationId();
}

void QtSingleApplication::setActivationWindow(QWidget* aw, bool activateOnMessage)
{
    actWin = aw;
    if (activateOnMessage)
        connect(peer, &QtLocalPeer::messageReceived, this, &QtSingleApplication::activateWindow,
                Qt::UniqueConnection);
    else
        disconnect(peer, &QtLocalPeer::messageReceived, this, &QtSingleApplication::activateWindow);
}

QWidget* QtSingleApplication::activationWindow() const
{
    return actWin;
}

void QtSingleApplication::activateWindow()
{
    qDebug() << "[qtsingleapplication][activateWindow] - called";
    if (actWin) {
        qDebug() << "[qtsingleapplication][activateWindow] - show window.";
        actWin->setWindowState(actWin->windowState() & ~Qt::WindowMinimized);
        actWin->raise();
        actWin->activateWindow();
    }
}

void QtSingleApplication::onClickOnDock()
{
    // Stands for the dock-click hook of another platform; nothing registers it here.
    Logger::Debug(logModule, QStringLiteral("[onClickOnDock] - failed to register handler."));
}
