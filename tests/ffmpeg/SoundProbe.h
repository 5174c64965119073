#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

/// What other programs, ffmpeg and ffprobe, see and hear in a movie; and its atoms themselves.
/// Throw std::runtime_error where the program fails.
namespace SoundProbe {

struct Track {
    QString kind; ///< "audio", "video"
    QString tag; ///< Four characters.
    int sampleRate = 0;
    int channels = 0;
    std::int64_t duration = 0; ///< In units of 1 / timeScale seconds.
    int timeScale = 0;
    bool isEnabled = false;
    std::int64_t bitRate = 0;
};
std::vector<Track> tracks(const QString &path);

/// Interleaved samples of the sound track with that number among the sound tracks.
std::vector<float> decode(const QString &path, int track = 0);

/// Time, length, size and hash of every packet of the first video track, a line each.
QByteArray videoPackets(const QString &path);

/// What a program writes to standard output.
QByteArray run(const QString &program, const QStringList &arguments);

/// The bytes of these atoms of the movie's first track, one after the other.
QByteArray atoms(const QString &path, const QList<QByteArray> &names);

} // namespace SoundProbe
