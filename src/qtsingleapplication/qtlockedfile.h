#pragma once

#include <QFile>

namespace QtLP_Private {

// A file whose lock tells processes apart: at most one writer, or any number of readers. The system
// drops the lock when the holder dies, so a crashed holder never blocks a later start.
class QtLockedFile : public QFile
{
public:
    enum LockMode { NoLock = 0, ReadLock, WriteLock };

    QtLockedFile();
    explicit QtLockedFile(const QString& name);
    ~QtLockedFile() override;

    bool open(OpenMode mode) override;

    bool lock(LockMode mode, bool block = true);
    bool unlock();
    bool isLocked() const;
    LockMode lockMode() const;

private:
    LockMode m_lock_mode;
};

} // namespace QtLP_Private
