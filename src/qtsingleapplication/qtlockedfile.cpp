#include "qtlockedfile.h"

namespace QtLP_Private {

QtLockedFile::QtLockedFile()
    : QFile()
    , m_lock_mode(NoLock)
{
}

QtLockedFile::QtLockedFile(const QString& name)
    : QFile(name)
    , m_lock_mode(NoLock)
{
}

bool QtLockedFile::open(OpenMode mode)
{
    // The file is only a name to lock on; truncating it would race with other holders.
    if (mode & QIODevice::Truncate) {
        qWarning("QtLockedFile::open(): Truncate mode not allowed.");
        return false;
    }
    return QFile::open(mode);
}

bool QtLockedFile::isLocked() const
{
    return m_lock_mode != NoLock;
}

QtLockedFile::LockMode QtLockedFile::lockMode() const
{
    return m_lock_mode;
}

} // namespace QtLP_Private
