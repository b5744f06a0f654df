#pragma once

#include <QApplication>

class QtLocalPeer;
class QWidget;

// The program's application object; it also joins the single-instance guard of its id.
class QtSingleApplication : public QApplication
{
    Q_OBJECT

public:
    QtSingleApplication(int& argc, char** argv, bool GUIenabled = true);
    QtSingleApplication(const QString& id, int& argc, char** argv);

    // True when another process of this id runs in the session. The first caller that finds none
    // becomes that process.
    bool isRunning();
    QString id() const;

    void setActivationWindow(QWidget* aw, bool activateOnMessage = true);
    QWidget* activationWindow() const;

    void onClickOnDock();

public Q_SLOTS:
    // True only when a running instance took the message.
    bool sendMessage(const QString& message, int timeout = 5000);
    void activateWindow();

Q_SIGNALS:
    void messageReceived(const QString& message);

private:
    void sysInit(const QString& appId = QString());

    QtLocalPeer* peer;
    QWidget* actWin;
};
