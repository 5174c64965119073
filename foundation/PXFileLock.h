#pragma once

#include "foundation/PXError.h"

#include <QString>

#include <memory>

/// A lock between programs, on a file that is made for it. The system lets go of it when its holder
/// dies, by whatever cause. Destroying it lets go; any thread.
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
    PXFileLock(const PXFileLock &) = delete;
    PXFileLock &operator=(const PXFileLock &) = delete;

private:
    explicit PXFileLock(int file) : _file(file) { }

    const int _file;
};
