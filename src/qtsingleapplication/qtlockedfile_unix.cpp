#include "qtlockedfile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace QtLP_Private {

namespace {

// Open-file-description locks rather than classic record locks: they belong to this file handle, not
// to the whole process, so two handles in one process exclude each other, and closing some other
// handle on the same file (a second peer with the same id) can't silently drop our lock.
bool setLock(int fd, short type, bool block)
{
    struct flock fl;
    std::memset(&fl, 0, sizeof fl);
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = 0;
    fl.l_len = 0; // the whole file, however it grows
    const int cmd = block ? F_OFD_SETLKW : F_OFD_SETLK;
    int rc;
    do {
        rc = ::fcntl(fd, cmd, &fl);
    } while (rc == -1 && errno == EINTR);
    return rc != -1;
}

bool heldByAnother(int error)
{
    return error == EAGAIN || error == EACCES;
}

} // namespace

bool QtLockedFile::lock(LockMode mode, bool block)
{
    if (!isOpen()) {
        qWarning("QtLockedFile::lock(): file is not opened");
        return false;
    }
    if (mode == NoLock)
        return unlock();
    if (mode == m_lock_mode)
        return true;
    if (m_lock_mode != NoLock)
        unlock();

    if (!setLock(handle(), mode == ReadLock ? F_RDLCK : F_WRLCK, block)) {
        const int error = errno;
        if (!heldByAnother(error))
            qWarning("QtLockedFile::lock(): fcntl: %s", std::strerror(error));
        return false;
    }
    m_lock_mode = mode;
    return true;
}

bool QtLockedFile::unlock()
{
    if (!isOpen()) {
        qWarning("QtLockedFile::unlock(): file is not opened");
        return false;
    }
    if (!isLocked())
        return true;

    if (!setLock(handle(), F_UNLCK, false)) {
        qWarning("QtLockedFile::unlock(): fcntl: %s", std::strerror(errno));
        return false;
    }
    m_lock_mode = NoLock;
    return true;
}

QtLockedFile::~QtLockedFile()
{
    if (isOpen())
        unlock();
}

} // namespace QtLP_Private
