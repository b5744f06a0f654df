#pragma once

#include <QDialog>
#include <QFile>
#include <QMetaObject>
#include <QStringList>

#include "platform/fileopener.h"
#include "platform/updatehandover.h"

// Records what would have been opened or shown, instead of asking the desktop.
class RecordingFileOpener : public FileOpener
{
public:
    RecordingFileOpener() { FileOpener::setInstance(this); }
    ~RecordingFileOpener() override { FileOpener::setInstance(nullptr); }

    void openFile(const QString& path) override { opened.append(path); }
    void showInFolder(const QString& path) override { shown.append(path); }

    QStringList opened;
    QStringList shown;
};

// Records the hand-over and the installer as it stood then. The real script would end the process;
// here the dialog that handed over is closed instead, so the test can go on.
class RecordingHandOver : public UpdateHandOver
{
public:
    RecordingHandOver() { UpdateHandOver::setInstance(this); }
    ~RecordingHandOver() override { UpdateHandOver::setInstance(nullptr); }

    void start(QObject* owner, const QString& programFolder, const QString& pid, const QString& installer,
        const QString& volume) override
    {
        arguments = QStringList { programFolder, pid, installer, volume };
        QFile file(installer);
        if (file.open(QIODevice::ReadOnly))
            installerContent = file.readAll();
        ++count;
        QMetaObject::invokeMethod(owner, "reject", Qt::QueuedConnection);
    }

    int count = 0;
    QStringList arguments;
    QByteArray installerContent;
};
