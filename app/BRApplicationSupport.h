#pragma once

#include <QString>

#include <optional>

/// The folders in which the program keeps what is not a setting. Any thread.
namespace BRApplicationSupport {

/// The user's: `$XDG_DATA_HOME/Tolvane`. Not created here.
QString applicationSupportFolder();
/// Everybody's on this machine. Not created here.
QString sharedApplicationSupportFolder();

/// The folder `name` in the user's, created with all missing parents. None, with a log line, when
/// that fails.
std::optional<QString> folderInApplicationSupportFolder(const QString &name);

/// Where `name` is or would be in the user's folder, which is created when absent; `name` is not.
/// None, with a log line, when that fails.
std::optional<QString> pathInApplicationSupportFolder(const QString &name);

} // namespace BRApplicationSupport
