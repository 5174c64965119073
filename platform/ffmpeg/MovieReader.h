#pragma once

#include "platform/ffmpeg/FFmpegHandles.h"
#include "platform/ffmpeg/MovieAtoms.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// Reads a .mov packet by packet, with the times that its edits give them: 0 is where the movie
/// begins, what an encoder put in front is before it. A torn end of a movie in fragments is left
/// out. One thread at a time.
class MovieReader final {
public:
    /// Fails with an error that names the file where it is no whole movie.
    [[nodiscard]] static PXExpected<std::unique_ptr<MovieReader>> open(const QString &path);

    [[nodiscard]] const MovieAtoms &atoms() const { return _atoms; }
    [[nodiscard]] std::span<AVStream *const> tracks() const;
    /// Null where there is none.
    [[nodiscard]] AVStream *firstTrack(AVMediaType type) const;
    /// Where the track's last sample ends, in its time base.
    [[nodiscard]] std::int64_t endOf(const AVStream &track) const;
    /// Of all tracks together; may be a few too many.
    [[nodiscard]] std::uint64_t numberOfPackets() const;

    /// From here on the packets of other tracks are left out.
    void readOnly(const AVStream &track);
    /// Fills an empty packet; false at the end.
    PXExpected<bool> next(AVPacket &packet);

    [[nodiscard]] PXError failure(int status) const;

    /// Whether the codec stores samples as they are, each of the same size.
    [[nodiscard]] static bool isPCM(AVCodecID codec);
    /// How many frames of sound a packet of that size holds at most, 0 where nobody knows.
    [[nodiscard]] static int framesIn(const AVCodecParameters &sound, int packetSize);

private:
    MovieReader(QString path, MovieAtoms atoms);
    int openContext();
    int setMissingSizes();
    [[nodiscard]] QByteArray url() const;
    void setDurationOfLast(AVStream &track, AVPacket &packet) const;
    void setDurationInFragments(const AVStream &track, AVPacket &packet);

    QString _path;
    MovieAtoms _atoms;
    ffmpeg::Input _context;
    std::vector<std::int64_t> _firstTimes; ///< Of the tracks' packets; of a movie in fragments.
};
