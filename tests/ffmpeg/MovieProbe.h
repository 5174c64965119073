#pragma once

#include <QImage>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

/// What another program, ffmpeg, sees of a movie's first track; and the file's atoms themselves.
struct MovieProbe {
    /// Throws std::runtime_error where the file is no movie.
    static MovieProbe of(const QString &path);
    /// Every picture, decoded, as Format_RGB32.
    static std::vector<QImage> decode(const QString &path);

    int tracks = 0;
    QString codec; ///< Four characters.
    QString pixelFormat;
    int width = 0;
    int height = 0;
    int trackTimeScale = 0;
    int movieTimeScale = 0;
    QString colours; ///< "primaries/transfer/matrix", "" where untagged.
    std::vector<std::int64_t> times; ///< Of the samples, in the track's scale.
    std::vector<std::int64_t> durations;
    std::vector<bool> keyFrames;
    QStringList atoms; ///< At the top level, in the file's order.
};
