#pragma once

#include "foundation/PXError.h"
#include "foundation/PXFileLock.h"

#include <QString>

#include <memory>

/// Held on a captured movie's folder by whoever writes into it: a recording from its first byte to
/// its last, or a repair. It lies there as the file ".lock", which goes when it ends: one that lies
/// there though nobody holds it was left by a program that died. Destroying it lets go.
class BRMovieFolderLock final {
public:
    /// Takes the lock; null where somebody else holds it. Fails where the folder cannot be written
    /// to, or its file system has no locks.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRMovieFolderLock>>
    take(const QString &movieFolder);
    /// Whether there is one, held or left.
    [[nodiscard]] static bool isThere(const QString &movieFolder);

    /// Whether a program that died had left it.
    [[nodiscard]] bool wasLeft() const { return !_lock->isNew(); }

    ~BRMovieFolderLock() { _lock->removeFile(); }
    BRMovieFolderLock(const BRMovieFolderLock &) = delete;
    BRMovieFolderLock &operator=(const BRMovieFolderLock &) = delete;

private:
    explicit BRMovieFolderLock(std::unique_ptr<PXFileLock> lock) : _lock(std::move(lock)) { }

    const std::unique_ptr<PXFileLock> _lock;
};
