#pragma once

#include "foundation/PXError.h"

#include <QString>

/// A file that is about to be replaced, kept under a hidden name beside its place.
/// Destroying this leaves it there: after a crash, too, nothing is lost.
class BRReplacedFile final {
public:
    BRReplacedFile() = default;

    /// Takes the file at `path` out of the way, if one is there. Fails for what is neither a
    /// regular file nor a link to one.
    [[nodiscard]] static PXExpected<BRReplacedFile> takeAway(const QString &path);

    /// Puts it back, unless something else has taken its place by now: then it stays hidden and
    /// the log says where.
    void putBack();
    /// The new file stands: the old one goes.
    void remove();

    /// Empty when there was nothing.
    [[nodiscard]] const QString &hiddenPath() const { return _hiddenPath; }

private:
    QString _path;
    QString _hiddenPath;
};
