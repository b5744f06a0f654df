#pragma once

#include <QObject>

class QSignalMapper;

// The Quit and Preferences commands shared by the tray menu and the main window's menus.
class StatusBarIconActions : public QObject
{
    Q_OBJECT
public:
    explicit StatusBarIconActions(QObject* parent = nullptr);

public slots:
    void quitActionClicked();
    void showMacMenuBarIcon();
    void showPreferenceDialog();

private:
    QSignalMapper* mSignalMapper;
};
