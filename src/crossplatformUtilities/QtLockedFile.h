#pragma once

#include <QFile>

namespace QtLP_Private {

// A file with an advisory fcntl lock over its whole length. The lock is per process: it tells
// processes apart, not threads.
class QtLockedFile : public QFile {
public:
    enum LockMode { NoLock = 0, ReadLock = 1, WriteLock = 2 };

    QtLockedFile();
    explicit QtLockedFile(const QString& name);
    ~QtLockedFile() override;

    bool open(QIODeviceBase::OpenMode mode) override;

    bool lock(LockMode mode, bool block = true);
    bool unlock();
    bool isLocked() const;
    LockMode lockMode() const;

private:
    LockMode m_lock_mode = NoLock;
};

} // namespace QtLP_Private
