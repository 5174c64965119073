#pragma once

#include "app/cli/BRCommandLine.h"

#include <QString>

/// Runs `tolvane play PATH`: a window that shows the capture until it is closed. Needs a
/// QApplication.
int BRRunPlayCommand(const QString &path, const BRBackEnds &backEnds);
