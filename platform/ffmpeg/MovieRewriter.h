#pragma once

#include "platform/ffmpeg/MovieMuxer.h"
#include "platform/ffmpeg/MovieReader.h"
#include "platform/ffmpeg/ReplacementFile.h"

#include <QString>

#include <list>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

/// Makes a movie anew from the tracks of one or two others, none of them encoded again, and
/// puts it in place of the first.
class MovieRewriter final {
public:
    /// What `PXMediaPlatform` promises of the two.
    static PXExpected<void> insertSoundTrack(const QString &sourcePath, const QString &targetPath,
                                             const std::stop_token &stop);
    static PXExpected<void> flatten(const QString &path, const std::stop_token &stop);

private:
    /// A movie that is read, and the packet that it comes to next.
    struct Source {
        std::unique_ptr<MovieReader> reader;
        ffmpeg::Packet packet;
        std::vector<AVStream *> written; ///< For each of its tracks: the new movie's, or null.
        std::optional<std::int64_t> end; ///< Where what is inserted ends, in its track's time base.
        bool hasPacket = false;
    };

    MovieRewriter(QString path, std::stop_token stop)
        : _path(std::move(path)), _stop(std::move(stop))
    {
    }
    PXExpected<void> addSource(std::unique_ptr<MovieReader> reader,
                               std::optional<std::int64_t> end = {});
    PXExpected<void> rewrite();
    PXExpected<void> addTracks(Source &source);
    PXExpected<void> copyPackets();
    Source *sourceOfNextPacket();
    static PXExpected<void> readPacket(Source &source);
    static bool cutAtEnd(Source &source);

    QString _path;
    std::stop_token _stop;
    std::list<Source> _sources; ///< The first is the movie that is replaced.
    std::unique_ptr<MovieMuxer> _muxer;
};
