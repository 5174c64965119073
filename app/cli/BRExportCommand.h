#pragma once

#include "app/cli/BRCommandLine.h"

#include <QString>
#include <QStringList>

#include <optional>

struct BRExportArguments {
    QStringList paths; ///< Movies of the library, captured-movie folders, raw frame files.
    QString outputPath; ///< A file, or a folder for files of the movies' names; empty is ".".
    std::optional<QString> videoCodec; ///< Four characters.
    std::optional<int> quality; ///< 0 to 100.
    std::optional<QString> size; ///< "WxH".
    std::optional<double> scale; ///< Percent.
    bool hasFullChroma = false;
    std::optional<QString> audioCodec; ///< "aac", "alac", "pcm", "ima4" or "ulaw".
    std::optional<int> audioBitRate; ///< 1000 bits a second.
    bool hasNoAudio = false;
};

/// `tolvane export MOVIE… [-o OUT.mov|FOLDER]`: movies that other programs play. One that fails
/// leaves the others alone.
int BRRunExportCommand(const BRExportArguments &arguments, const BRBackEnds &backEnds);
