#pragma once

#include <QString>

// Opening a downloaded file with the user's program for its type, and showing it selected in the
// file manager. Both answer at once; whatever the desktop does next happens on its own time.
class FileOpener
{
public:
    virtual ~FileOpener() = default;

    virtual void openFile(const QString& path) = 0;
    virtual void showInFolder(const QString& path) = 0;

    // The opener in force: a stand-in installed by a test, or the desktop's.
    static FileOpener* instance();
    // Not owned. nullptr restores the desktop's opener.
    static void setInstance(FileOpener* opener);

private:
    static FileOpener* systemOpener();
};
