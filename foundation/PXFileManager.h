#pragma once

#include "foundation/PXError.h"

#include <QString>

#include <functional>
#include <optional>

/// What the system's calls lack. Any thread; failures are `PXPOSIXError`s that name the path.
namespace PXFileManager {

/// Creates each missing folder on the way, one after the other; those made before a failure stay.
/// Fails with EEXIST where something other than a folder is in the way.
PXExpected<void> createAllDirectoriesForPath(const QString &path);

/// The absolute path without "." and ".." that the system would walk to: a link in front of ".."
/// is followed. Qt (QDir, QSaveFile) takes such steps out by their letters alone, and ends up in
/// another folder then.
QString resolvedPath(const QString &path);

/// `path` itself when nothing is there (not even a dangling link), else the first free one of
/// "name 2.ext", "name 3.ext", …; another program may take it before the caller does.
QString uniquePathForFileWithDesiredPath(const QString &path);

/// The first path at which nothing is, of those that `name` makes of `path` without its extension,
/// which is put back, and a counter from 0.
QString firstFreePath(const QString &path,
                      const std::function<QString(const QString &stem, int counter)> &name);

/// $XDG_RUNTIME_DIR, where it is the user's, who alone may write there: a program that is run as
/// root may still have that of the user before.
std::optional<QString> runtimeFolder();

/// A descriptor of the file at `path` for reading, which the caller closes. Fails with EISDIR for
/// a folder and with EINVAL for a device or a pipe; never waits for a pipe's other end.
PXExpected<int> openRegularFile(const QString &path);

} // namespace PXFileManager
