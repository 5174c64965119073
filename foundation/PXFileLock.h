#pragma once

#include "foundation/PXError.h"

#include <QString>

#include <memory>
#include <utility>

/// A lock between programs, on a file that is made for it. The system lets go of it when its holder
/// dies, by whatever cause. Destroying it lets go, and leaves the file; any thread.
class PXFileLock final {
public:
    enum class Mode {
        Shared, ///< Many may hold it at a time,
        Exclusive, ///< but nobody beside this one.
    };
    enum class IfHeld { Wait, GiveUp };

    /// Null where others hold it and `ifHeld` says to give up. The file stays, and is the user's
    /// alone; a link, or another user's file, is refused.
    [[nodiscard]] static PXExpected<std::unique_ptr<PXFileLock>> take(const QString &path,
                                                                      Mode mode, IfHeld ifHeld);
    ~PXFileLock();
    /// Whether its file was made for it, and not left by somebody before.
    [[nodiscard]] bool isNew() const { return _isNew; }
    /// Of an exclusive lock: so that nothing is left behind when it ends.
    void removeFile();
    PXFileLock(const PXFileLock &) = delete;
    PXFileLock &operator=(const PXFileLock &) = delete;

private:
    PXFileLock(QString path, int file, bool isNew)
        : _path(std::move(path)), _file(file), _isNew(isNew)
    {
    }

    const QString _path;
    const int _file;
    const bool _isNew;
};
