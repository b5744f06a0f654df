#pragma once

#include <QString>

// Opens a file with the program the user chose for its type, as the desktop's file manager would.
class FileOpener
{
public:
    virtual ~FileOpener() = default;

    // False when no program could be asked to open it.
    virtual bool openFile(const QString& path) = 0;

    // The opener in force: a stand-in installed by a test, or the system's.
    static FileOpener* instance();
    // Not owned. nullptr restores the system's opener.
    static void setInstance(FileOpener* opener);

private:
    static FileOpener* systemOpener();
};
