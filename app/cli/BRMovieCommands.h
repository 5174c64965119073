#pragma once

#include "app/cli/BRCommandLine.h"

#include <QString>

#include <optional>

/// `tolvane list`: the movies of the library, after what was interrupted has been rescued.
int BRRunListCommand(const std::optional<QString> &moviesFolder, bool asJSON,
                     const BRBackEnds &backEnds);
/// `tolvane rename MOVIE NAME`.
int BRRunRenameCommand(const QString &movie, const QString &name, const BRBackEnds &backEnds);
/// `tolvane delete MOVIE`: into the trash, after asking; with `isSure` unasked and for good.
int BRRunDeleteCommand(const QString &movie, bool isSure);
/// `tolvane repair MOVIE`.
int BRRunRepairCommand(const QString &movie, const BRBackEnds &backEnds);
