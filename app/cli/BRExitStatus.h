#pragma once

#include "foundation/PXError.h"

/// How the command line ends; scripts rely on these numbers.
enum BRExitStatus {
    BRExitDone = 0,
    BRExitFailed = 1,
    BRExitWrongUsage = 2,
    BRExitNotFound = 3,
    BRExitNoDisplay = 4,
    BRExitNoSoundDevice = 5,
    BRExitNotWritable = 6, ///< Disk full, or no permission to write.
};

/// What a command was about to do when an error stopped it: a file that may not be read is a
/// failure, one that may not be written has a status of its own.
enum class BRAccess { Reading, Writing };

int BRExitStatusOfError(const PXError &error, BRAccess access);
