#pragma once

#include "app/cli/BRCommandLine.h"
#include "foundation/PXGeometry.h"

#include <optional>

/// Has the user choose a rectangle of the main display, in its coordinates; none when it was
/// cancelled, also by a signal. `okButtonTitle` says what follows. Runs the event loop.
std::optional<PXRect> BRSelectScreenPortion(PXScreenPlatform &platform,
                                            PXWindowServer &windowServer,
                                            const QString &okButtonTitle);

/// `tolvane select`: prints the rectangle as `tolvane record --geometry` takes it. Status 1 where
/// it was cancelled.
int BRRunSelectCommand(bool asJSON, const BRBackEnds &backEnds);
