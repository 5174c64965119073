#pragma once

#include <QString>

#include <optional>

/// The files that come with the program. Any thread.
namespace PXResources {

/// `TOLVANE_RESOURCES` where that is set, else "share/tolvane" beside the folder that holds the
/// program, else the one in the source tree that this was built from.
QString folder();

/// "Defaults" of type "plist" is the file "Defaults.plist"; an empty type adds no dot. None when
/// the folder has no such file.
std::optional<QString> pathForResource(const QString &name, const QString &type);

} // namespace PXResources
