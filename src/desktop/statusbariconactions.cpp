#include "statusbariconactions.h"

#include <QCoreApplication>
#include <QDir>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSignalMapper>

#include "core/logger.h"
#include "desktop/winmenubaricon.h"
#include "preferences/settingsdialog.h"

namespace {
const QString logModule = QStringLiteral("statusbariconactions");
}

StatusBarIconActions::StatusBarIconActions(QObject* parent)
    : QObject(parent)
    , mSignalMapper(new QSignalMapper(this))
{
}

void StatusBarIconActions::quitActionClicked()
{
    Logger::Info(logModule, QStringLiteral("[quitActionClicked] called"));
    QMessageBox box(nullptr);
    box.setText(tr("Are you sure you want to quit Kestrelgap?"));
    box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box.setDefaultButton(QMessageBox::Yes);
    box.button(QMessageBox::Yes)->setText(tr("Yes"));
    box.button(QMessageBox::No)->setText(tr("No"));
    if (box.exec() != QMessageBox::Yes)
        return;
    WinMenuBarIcon::getInstance(nullptr)->hide();
    QCoreApplication::quit();
}

void StatusBarIconActions::showMacMenuBarIcon()
{
    QDir dir(QDir::currentPath());
    dir.cdUp();
    QProcess::startDetached(dir.path()
        + QStringLiteral("/Library/LoginItems/KestrelgapMacStatusBarApp.app/Contents/MacOS/KestrelgapMacStatusBarApp"),
        QStringList());
}

void StatusBarIconActions::showPreferenceDialog()
{
    Logger::Info(logModule, QStringLiteral("[showPreferenceDialog] called"));
    SettingsDialog dialog(nullptr);
    dialog.exec();
}
