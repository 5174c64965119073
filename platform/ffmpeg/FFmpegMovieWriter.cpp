#include "platform/ffmpeg/FFmpegMovieWriter.h"

#include "platform/ffmpeg/FFmpegEncodedFrame.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

// What a sample can cost in the index: its time 8, size 4, chunk 12 and 8, key frame 4 bytes.
constexpr std::int64_t kIndexBytesPerSample = 36;
// Everything in the index that does not grow with the samples, without the codec's own bytes.
constexpr std::int64_t kIndexBytes = 4096;

std::uint32_t readBigEndian(const uchar *bytes)
{
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16
        | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

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
    const QByteArray fileName = QFile::encodeName(path);
    const QString whatFailed = u"Could not create the movie file %1"_s.arg(path);
    AVFormatContext *made = nullptr;
    // "file:" keeps a path with a colon from being read as a protocol.
    const QByteArray url = "file:" + fileName;
    int status = avformat_alloc_output_context2(&made, nullptr, "mov", url.constData());
    Context context(made);
    if (status >= 0)
        status = setOptions(*context);
    if (status >= 0)
        status = avio_open(&context->pb, url.constData(), AVIO_FLAG_WRITE);
    if (status < 0)
        return PXFail(ffmpeg::error(status, whatFailed));
    return std::unique_ptr<FFmpegMovieWriter>(new FFmpegMovieWriter(path, std::move(context)));
}

FFmpegMovieWriter::FFmpegMovieWriter(QString path, Context context)
    : _path(std::move(path)), _context(std::move(context)), _packet(av_packet_alloc())
{
    if (!_packet) {
        avio_closep(&_context->pb);
        throw std::bad_alloc();
    }
}

FFmpegMovieWriter::~FFmpegMovieWriter()
{
    avio_closep(&_context->pb);
}

PXError FFmpegMovieWriter::failure(int status) const
{
    return ffmpeg::error(status, u"Could not write the movie %1"_s.arg(_path));
}

PXExpected<void> FFmpegMovieWriter::addVideoTrack(const PXTrackFormat &format)
{
    const auto &ours = dynamic_cast<const FFmpegTrackFormat &>(format);
    _track = avformat_new_stream(_context.get(), nullptr);
    if (!_track)
        return PXFail(failure(AVERROR(ENOMEM)));
    if (const int status = avcodec_parameters_copy(_track->codecpar, &ours.parameters());
        status < 0)
        return PXFail(failure(status));
    _track->time_base = {1, kPXCompressionTimeScale};
    _track->sample_aspect_ratio = {1, 1};
    return {};
}

PXExpected<void> FFmpegMovieWriter::beginMediaEdits()
{
    if (!_track)
        throw std::logic_error("a movie needs its track before its samples");
    if (const int status = avformat_init_output(_context.get(), nullptr); status < 0)
        return PXFail(failure(status));
    return {};
}

void FFmpegMovieWriter::setExpectedNumberOfSamples(std::uint64_t count)
{
    _expectedSamples = count;
}

PXExpected<void> FFmpegMovieWriter::writeHeader()
{
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    const auto samples = static_cast<std::int64_t>(
        std::min<std::uint64_t>(_expectedSamples, kMost / kIndexBytesPerSample));
    _reservedBytes = std::min(kMost,
                              samples * kIndexBytesPerSample + kIndexBytes
                                  + std::int64_t{2} * _track->codecpar->extradata_size);
    int status = av_opt_set_int(_context->priv_data, "moov_size", _reservedBytes, 0);
    if (status >= 0)
        status = avformat_write_header(_context.get(), nullptr);
    if (status < 0)
        return PXFail(failure(status));
    _hasHeader = true;
    return {};
}

PXExpected<void> FFmpegMovieWriter::addMediaSample(const PXEncodedFrame &frame)
{
    const auto &ours = dynamic_cast<const FFmpegEncodedFrame &>(frame);
    if (!_hasHeader) {
        if (auto written = writeHeader(); !written)
            return written;
    }
    if (const int status = av_packet_ref(_packet.get(), ours.packet()); status < 0)
        return PXFail(failure(status));
    _packet->stream_index = _track->index;
    if (!_firstDisplayTime)
        _firstDisplayTime = frame.displayTime();
    // Not the durations' sum: a frame that is missing must not shift those that follow.
    _packet->pts = frame.displayTime() - *_firstDisplayTime;
    _packet->dts = _packet->pts;
    _packet->duration = frame.decodeDuration();
    av_packet_rescale_ts(_packet.get(), {1, kPXCompressionTimeScale}, _track->time_base);
    if (const int status = av_interleaved_write_frame(_context.get(), _packet.get()); status < 0)
        return PXFail(failure(status));
    ++_samples;
    return {};
}

PXExpected<void> FFmpegMovieWriter::endMediaEdits()
{
    if (!_hasHeader)
        return {};
    if (const int status = av_interleaved_write_frame(_context.get(), nullptr); status < 0)
        return PXFail(failure(status));
    return {};
}

PXExpected<void> FFmpegMovieWriter::addMovieToStorage()
{
    if (!_hasHeader)
        return writeEmptyMovie();
    int status = 0;
    if (_samples > _expectedSamples)
        status = giveUpReservedRoom();
    if (status >= 0)
        status = av_write_trailer(_context.get());
    if (status >= 0) {
        avio_flush(_context->pb);
        status = _context->pb->error;
    }
    if (status < 0)
        return PXFail(failure(status));
    return {};
}

// The index may not fit into its place: that becomes an atom without meaning, and the muxer moves
// everything back to make room in front of it.
int FFmpegMovieWriter::giveUpReservedRoom()
{
    avio_flush(_context->pb);
    QFile file(_path);
    const QByteArray sizeOfFileType = file.open(QIODevice::ReadOnly) ? file.read(4) : QByteArray();
    if (sizeOfFileType.size() != 4)
        return AVERROR(EIO);
    const std::int64_t end = avio_tell(_context->pb);
    avio_seek(_context->pb,
              readBigEndian(reinterpret_cast<const uchar *>(sizeOfFileType.constData())), SEEK_SET);
    avio_wb32(_context->pb, static_cast<unsigned>(_reservedBytes));
    avio_write(_context->pb, reinterpret_cast<const unsigned char *>("free"), 4);
    avio_seek(_context->pb, end, SEEK_SET);
    av_opt_set_int(_context->priv_data, "moov_size", 0, 0);
    return av_opt_set(_context->priv_data, "movflags", "+faststart", 0);
}

// The muxer leaves out a track without samples, save in a movie of fragments. So that is what it
// writes, and what says that fragments follow ('mvex') is taken out again.
PXExpected<void> FFmpegMovieWriter::writeEmptyMovie()
{
    AVFormatContext *made = nullptr;
    int status = avformat_alloc_output_context2(&made, nullptr, "mov", _context->url);
    Context context(made);
    if (status < 0)
        return PXFail(failure(status));
    status = setOptions(*context);
    if (status >= 0)
        status = av_opt_set(context->priv_data, "movflags", "empty_moov+skip_trailer", 0);
    AVStream *track = status >= 0 ? avformat_new_stream(context.get(), nullptr) : nullptr;
    if (!track)
        return PXFail(failure(status < 0 ? status : AVERROR(ENOMEM)));
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
        return PXFail(failure(status));

    movie.replace("mvex", "free");
    avio_write(_context->pb, reinterpret_cast<const unsigned char *>(movie.constData()), size);
    avio_flush(_context->pb);
    if (_context->pb->error < 0)
        return PXFail(failure(_context->pb->error));
    return {};
}
