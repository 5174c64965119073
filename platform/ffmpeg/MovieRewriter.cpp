#include "platform/ffmpeg/MovieRewriter.h"

#include <algorithm>
#include <cerrno>
#include <new>

using namespace Qt::StringLiterals;

PXExpected<void> MovieRewriter::flatten(const QString &path, const std::stop_token &stop)
{
    auto reader = MovieReader::open(path);
    if (!reader)
        return PXFail(reader.error());
    if ((*reader)->atoms().isIndexInFront && !(*reader)->atoms().isInFragments)
        return {};
    MovieRewriter rewriter(path, stop);
    if (auto added = rewriter.addSource(*std::move(reader)); !added)
        return added;
    if (!rewriter._sources.back().hasPacket)
        return {}; // The muxer would leave its empty tracks out.
    return rewriter.rewrite();
}

PXExpected<void> MovieRewriter::insertSoundTrack(const QString &sourcePath,
                                                 const QString &targetPath,
                                                 const std::stop_token &stop)
{
    auto source = MovieReader::open(sourcePath);
    if (!source)
        return PXFail(source.error());
    auto target = MovieReader::open(targetPath);
    if (!target)
        return PXFail(target.error());
    const AVStream *sound = (*source)->firstTrack(AVMEDIA_TYPE_AUDIO);
    if (!sound) {
        return PXFail({u"FFmpeg"_s,
                       AVERROR_STREAM_NOT_FOUND,
                       u"There is no sound track in %1"_s.arg(sourcePath),
                       {},
                       {}});
    }
    std::optional<std::int64_t> end;
    if (const AVStream *video = (*target)->firstTrack(AVMEDIA_TYPE_VIDEO)) {
        // Rounded down: the sound is never the longer one.
        end = av_rescale_q_rnd((*target)->endOf(*video), video->time_base, sound->time_base,
                               AV_ROUND_DOWN);
    }
    (*source)->readOnly(*sound);

    MovieRewriter rewriter(targetPath, stop);
    if (auto added = rewriter.addSource(*std::move(target)); !added)
        return added;
    if (auto added = rewriter.addSource(*std::move(source), end); !added)
        return added;
    if (!rewriter._sources.back().hasPacket)
        return {}; // No sound, or no picture for it.
    return rewriter.rewrite();
}

PXExpected<void> MovieRewriter::addSource(std::unique_ptr<MovieReader> reader,
                                          std::optional<std::int64_t> end)
{
    Source &source = _sources.emplace_back();
    source.reader = std::move(reader);
    source.end = end;
    source.packet.reset(av_packet_alloc());
    if (!source.packet)
        throw std::bad_alloc();
    return readPacket(source);
}

PXExpected<void> MovieRewriter::rewrite()
{
    auto file = ReplacementFile::of(_path);
    if (!file)
        return PXFail(file.error());
    auto muxer = MovieMuxer::create((*file)->path(), _path);
    if (!muxer)
        return PXFail(muxer.error());
    _muxer = *std::move(muxer);
    _muxer->setOption("movie_timescale", _sources.front().reader->atoms().timeScale);
    if (const AVStream *video = _sources.front().reader->firstTrack(AVMEDIA_TYPE_VIDEO))
        _muxer->setOption("video_track_timescale", video->time_base.den);
    std::uint64_t packets = 0;
    for (Source &source : _sources) {
        if (auto added = addTracks(source); !added)
            return added;
        packets += source.reader->numberOfPackets();
    }
    auto done = _muxer->writeHeaderWithRoomFor(packets);
    if (done)
        done = copyPackets();
    if (done)
        done = _muxer->finish();
    _muxer.reset();
    return done ? (*file)->replace() : done;
}

// Pictures and sound; a movie of ours has no tracks of another kind.
PXExpected<void> MovieRewriter::addTracks(Source &source)
{
    for (const AVStream *track : source.reader->tracks()) {
        source.written.push_back(nullptr);
        const bool isSound = track->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        if (track->discard == AVDISCARD_ALL
            || (!isSound && track->codecpar->codec_type != AVMEDIA_TYPE_VIDEO))
            continue;
        const auto added = _muxer->addTrack(*track->codecpar, track->time_base);
        if (!added)
            return PXFail(added.error());
        AVStream &written = **added;
        written.sample_aspect_ratio = track->sample_aspect_ratio;
        written.codecpar->sample_aspect_ratio = track->sample_aspect_ratio;
        written.disposition = track->disposition;
        if (isSound) {
            // Otherwise players take the second sound track for another language of the first.
            written.disposition |= AV_DISPOSITION_DEFAULT;
            if (!MovieReader::isPCM(track->codecpar->codec_id))
                written.codecpar->frame_size = MovieReader::framesIn(*track->codecpar, 0);
        }
        if (const int status = av_dict_copy(&written.metadata, track->metadata, 0); status < 0)
            return PXFail(_muxer->failure(status));
        source.written.back() = &written;
    }
    return {};
}

PXExpected<void> MovieRewriter::copyPackets()
{
    while (Source *source = sourceOfNextPacket()) {
        if (_stop.stop_requested())
            return PXFail(PXPOSIXError(ECANCELED, u"Could not write the movie %1"_s.arg(_path)));
        AVPacket &packet = *source->packet;
        const auto index = static_cast<std::size_t>(packet.stream_index);
        if (AVStream *written = source->written.at(index)) {
            av_packet_rescale_ts(&packet, source->reader->tracks()[index]->time_base,
                                 written->time_base);
            packet.stream_index = written->index;
            packet.pos = -1;
            if (auto done = _muxer->write(packet); !done)
                return done;
        }
        av_packet_unref(&packet);
        if (auto read = readPacket(*source); !read)
            return read;
    }
    return {};
}

// The one whose packet comes first, so that a player finds together what it plays together.
MovieRewriter::Source *MovieRewriter::sourceOfNextPacket()
{
    Source *first = nullptr;
    const auto timeBase = [](const Source &source) {
        return source.reader->tracks()[static_cast<std::size_t>(source.packet->stream_index)]
            ->time_base;
    };
    for (Source &source : _sources) {
        if (source.hasPacket
            && (!first
                || av_compare_ts(source.packet->dts, timeBase(source), first->packet->dts,
                                 timeBase(*first))
                    < 0))
            first = &source;
    }
    return first;
}

PXExpected<void> MovieRewriter::readPacket(Source &source)
{
    const auto read = source.reader->next(*source.packet);
    if (!read)
        return PXFail(read.error());
    source.hasPacket = *read && cutAtEnd(source);
    return {};
}

/// Whether anything is left of the packet.
bool MovieRewriter::cutAtEnd(Source &source)
{
    if (!source.end)
        return true;
    AVPacket &packet = *source.packet;
    const std::int64_t left = *source.end - packet.pts;
    if (left <= 0 || *source.end <= 0)
        return false;
    if (packet.duration <= left)
        return true;
    packet.duration = left;
    // Where samples are stored as they are, their number is the length.
    const AVStream &track = *source.reader->tracks()[static_cast<std::size_t>(packet.stream_index)];
    const AVCodecParameters &sound = *track.codecpar;
    if (MovieReader::isPCM(sound.codec_id)) {
        const int frames = MovieReader::framesIn(sound, packet.size);
        const std::int64_t kept = av_rescale_q(left, track.time_base, {1, sound.sample_rate});
        if (kept < frames)
            av_shrink_packet(&packet, packet.size / frames * static_cast<int>(kept));
    }
    return packet.size > 0;
}
