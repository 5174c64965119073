#include "platform/ffmpeg/FFmpegMovieWriter.h"

#include "platform/ffmpeg/FFmpegEncodedFrame.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <new>
#include <stdexcept>

namespace {

int setOptions(AVFormatContext &context)
{
    int status = av_opt_set_int(context.priv_data, "movie_timescale", kPXCompressionTimeScale, 0);
    if (status >= 0) {
        status = av_opt_set_int(context.priv_data, "video_track_timescale", kPXCompressionTimeScale,
                                0);
    }
    return status;
}

} // namespace

PXExpected<std::unique_ptr<FFmpegMovieWriter>> FFmpegMovieWriter::create(const QString &path)
{
    auto muxer = MovieMuxer::create(path, path);
    if (!muxer)
        return PXFail(muxer.error());
    return std::unique_ptr<FFmpegMovieWriter>(new FFmpegMovieWriter(*std::move(muxer)));
}

FFmpegMovieWriter::FFmpegMovieWriter(std::unique_ptr<MovieMuxer> muxer)
    : _muxer(std::move(muxer)), _packet(av_packet_alloc())
{
    if (!_packet)
        throw std::bad_alloc();
    _muxer->setOption("movie_timescale", kPXCompressionTimeScale);
    _muxer->setOption("video_track_timescale", kPXCompressionTimeScale);
}

PXExpected<void> FFmpegMovieWriter::addVideoTrack(const PXTrackFormat &format)
{
    const auto &ours = dynamic_cast<const FFmpegTrackFormat &>(format);
    const auto track = _muxer->addTrack(ours.parameters(), {1, kPXCompressionTimeScale});
    if (!track)
        return PXFail(track.error());
    _track = *track;
    _track->sample_aspect_ratio = {1, 1};
    return {};
}

PXExpected<void> FFmpegMovieWriter::beginMediaEdits()
{
    if (!_track)
        throw std::logic_error("a movie needs its track before its samples");
    return _muxer->check();
}

void FFmpegMovieWriter::setExpectedNumberOfSamples(std::uint64_t count)
{
    _expectedSamples = count;
}

PXExpected<void> FFmpegMovieWriter::addMediaSample(const PXEncodedFrame &frame)
{
    const auto &ours = dynamic_cast<const FFmpegEncodedFrame &>(frame);
    if (!_muxer->hasHeader()) {
        if (auto written = _muxer->writeHeaderWithRoomFor(_expectedSamples); !written)
            return written;
    }
    if (const int status = av_packet_ref(_packet.get(), ours.packet()); status < 0)
        return PXFail(_muxer->failure(status));
    _packet->stream_index = _track->index;
    if (!_firstDisplayTime)
        _firstDisplayTime = frame.displayTime();
    // Not the durations' sum: a frame that is missing must not shift those that follow.
    _packet->pts = frame.displayTime() - *_firstDisplayTime;
    _packet->dts = _packet->pts;
    _packet->duration = frame.decodeDuration();
    av_packet_rescale_ts(_packet.get(), {1, kPXCompressionTimeScale}, _track->time_base);
    return _muxer->write(*_packet);
}

PXExpected<void> FFmpegMovieWriter::endMediaEdits()
{
    return _muxer->flush();
}

PXExpected<void> FFmpegMovieWriter::addMovieToStorage()
{
    return _muxer->hasHeader() ? _muxer->finish() : writeEmptyMovie();
}

// The muxer leaves out a track without samples, save in a movie of fragments. So that is what it
// writes, and what says that fragments follow ('mvex') is taken out again.
PXExpected<void> FFmpegMovieWriter::writeEmptyMovie()
{
    AVFormatContext *made = nullptr;
    int status = avformat_alloc_output_context2(&made, nullptr, "mov", nullptr);
    const PXHandle<AVFormatContext, avformat_free_context> context(made);
    if (status < 0)
        return PXFail(_muxer->failure(status));
    status = setOptions(*context);
    if (status >= 0)
        status = av_opt_set(context->priv_data, "movflags", "empty_moov+skip_trailer", 0);
    AVStream *track = status >= 0 ? avformat_new_stream(context.get(), nullptr) : nullptr;
    if (!track)
        return PXFail(_muxer->failure(status < 0 ? status : AVERROR(ENOMEM)));
    status = avcodec_parameters_copy(track->codecpar, _track->codecpar);
    track->time_base = {1, kPXCompressionTimeScale};
    track->sample_aspect_ratio = {1, 1};
    if (status >= 0)
        status = avio_open_dyn_buf(&context->pb);
    if (status >= 0)
        status = avformat_write_header(context.get(), nullptr);
    if (status >= 0)
        status = av_write_trailer(context.get());
    std::uint8_t *bytes = nullptr;
    const int size = avio_close_dyn_buf(context->pb, &bytes);
    context->pb = nullptr;
    QByteArray movie(reinterpret_cast<const char *>(bytes), size);
    av_free(bytes);
    if (status < 0)
        return PXFail(_muxer->failure(status));

    movie.replace("mvex", "free");
    return _muxer->writeBytes(movie);
}
