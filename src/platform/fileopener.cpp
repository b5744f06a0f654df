#include "fileopener.h"

namespace {
FileOpener*& installedOpener()
{
    static FileOpener* opener = nullptr;
    return opener;
}
} // namespace

FileOpener* FileOpener::instance()
{
    FileOpener* opener = installedOpener();
    return opener ? opener : systemOpener();
}

void FileOpener::setInstance(FileOpener* opener)
{
    installedOpener() = opener;
}
