#pragma once

#include "app/cli/BRCommandLine.h"

#include <QString>

#include <optional>

/// What the command line said; what it did not say comes from the user defaults.
struct BRRecordArguments {
    std::optional<QString> geometry; ///< "WxH+X+Y".
    std::optional<QString> follow; ///< "WxH".
    std::optional<double> rate; ///< Frames per second.
    std::optional<QString> codec; ///< "lzo" or "rle".
    std::optional<int> lossyLevel;
    std::optional<double> duration; ///< Seconds.
    std::optional<QString> moviesFolder;
    bool hidesCursor = false;
    std::optional<QString> microphone; ///< Its UID; empty is the one that is chosen.
    bool recordsSystemAudio = false;
    bool selects = false; ///< Lets the user choose the area first.
    bool countsDown = false;
    bool hidesDesktop = false;
    bool showsBounds = false;
    bool showsClicks = false;
    bool showsKeys = false; ///< Those that the settings choose.
    bool highlightsCursor = false;
};

/// `tolvane record`: the whole engine without a window. Prints the captured movie's folder last.
int BRRunRecordCommand(const BRRecordArguments &arguments, const BRBackEnds &backEnds);
