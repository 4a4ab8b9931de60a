#include "QtLockedFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace QtLP_Private {

namespace {

// Sets or clears the advisory lock over the whole file, now and in any length it grows to.
int setFileLock(int handle, short type, bool block) {
    struct flock lockRange {};
    lockRange.l_type = type;
    lockRange.l_whence = SEEK_SET;
    lockRange.l_start = 0;
    lockRange.l_len = 0;
    return ::fcntl(handle, block ? F_SETLKW : F_SETLK, &lockRange);
}

void warnFcntlFailed() {
    qWarning("QtLockedFile::lock(): fcntl: %s", std::strerror(errno));
}

} // namespace

QtLockedFile::QtLockedFile() = default;

QtLockedFile::QtLockedFile(const QString& name) : QFile(name) {}

QtLockedFile::~QtLockedFile() {
    if (isOpen())
        unlock();
}

bool QtLockedFile::open(QIODeviceBase::OpenMode mode) {
    // Truncation would happen before any lock is taken, behind the back of the process that holds it.
    if (mode & QIODevice::Truncate) {
        qWarning("QtLockedFile::open(): Truncate mode not allowed.");
        return false;
    }
    return QFile::open(mode);
}

bool QtLockedFile::lock(LockMode mode, bool block) {
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

    if (setFileLock(handle(), mode == ReadLock ? F_RDLCK : F_WRLCK, block) == -1) {
        // A lock held by another process is an answer, not a fault.
        if (errno != EINTR && errno != EAGAIN)
            warnFcntlFailed();
        return false;
    }
    m_lock_mode = mode;
    return true;
}

bool QtLockedFile::unlock() {
    if (!isOpen()) {
        qWarning("QtLockedFile::unlock(): file is not opened");
        return false;
    }
    if (!isLocked())
        return true;
    if (setFileLock(handle(), F_UNLCK, true) == -1) {
        warnFcntlFailed();
        return false;
    }
    m_lock_mode = NoLock;
    return true;
}

bool QtLockedFile::isLocked() const {
    return m_lock_mode != NoLock;
}

QtLockedFile::LockMode QtLockedFile::lockMode() const {
    return m_lock_mode;
}

} // namespace QtLP_Private
