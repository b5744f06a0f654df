#pragma once

#include "seam.h"

#include <QString>

// Opening a downloaded file with the user's program for its type, and showing it selected in the
// file manager. Both answer at once; whatever the desktop does next happens on its own time.
class FileOpener : public Seam<FileOpener>
{
public:
    virtual ~FileOpener() = default;

    virtual void openFile(const QString& path) = 0;
    virtual void showInFolder(const QString& path) = 0;

private:
    friend class Seam<FileOpener>;
    static FileOpener* systemInstance();
};
