#pragma once

#include "foundation/PXError.h"
#include "platform/PXMediaPlatform.h"
#include "platform/PXScreenPlatform.h"
#include "platform/PXSoundPlatform.h"
#include "platform/PXSoundPlayer.h"

#include <QStringList>

#include <functional>
#include <memory>

/// The back ends that the program was built with.
struct BRBackEnds {
    std::function<PXExpected<std::unique_ptr<PXScreenPlatform>>()> openScreen;
    PXMediaPlatform &media;
    PXSoundPlatform &sound;
    /// One at a time.
    std::function<std::unique_ptr<PXSoundPlayer>()> makeSoundPlayer;
};

/// Whether the command shows a window, and so needs a QApplication.
bool BRCommandLineShowsWindow(int argc, char **argv);

/// Runs `tolvane COMMAND …` and answers the exit status (a `BRExitStatus`). Registers the factory
/// defaults before the command. Needs a QCoreApplication, whose event loop it runs for the commands
/// that take time.
int BRRunCommandLine(int argc, char **argv, const BRBackEnds &backEnds);
