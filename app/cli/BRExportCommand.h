#pragma once

#include "app/cli/BRCommandLine.h"

#include <QString>

#include <optional>

struct BRExportArguments {
    QString path; ///< A captured-movie folder or a raw frame file.
    QString outputPath;
    std::optional<QString> videoCodec; ///< Four characters.
    std::optional<int> quality; ///< 0 to 100.
    std::optional<QString> size; ///< "WxH".
    std::optional<double> scale; ///< Percent.
    bool hasFullChroma = false;
    std::optional<QString> audioCodec; ///< "aac", "alac", "pcm", "ima4" or "ulaw".
    std::optional<int> audioBitRate; ///< 1000 bits a second.
    bool hasNoAudio = false;
};

/// `tolvane export PATH -o OUT.mov`: a movie that other programs play.
int BRRunExportCommand(const BRExportArguments &arguments, const BRBackEnds &backEnds);
