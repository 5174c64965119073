#include "platform/ffmpeg/MovieMuxer.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <QFile>

#include <algorithm>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

// What a packet can cost in the index: its time 8, size 4, chunk 12 and 8, key frame 4 bytes.
constexpr std::int64_t kIndexBytesPerPacket = 36;
// Everything in a track's index that does not grow with the packets, without the codec's own bytes.
constexpr std::int64_t kIndexBytesPerTrack = 4096;

std::uint32_t readBigEndian(const uchar *bytes)
{
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16
        | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

void mustSucceed(int status, const char *option)
{
    if (status < 0)
        throw std::logic_error(std::string("the muxer does not know ") + option);
}

} // namespace

PXExpected<std::unique_ptr<MovieMuxer>> MovieMuxer::create(const QString &path,
                                                           const QString &nameInErrors)
{
    AVFormatContext *made = nullptr;
    // "file:" keeps a path with a colon from being read as a protocol.
    const QByteArray url = "file:" + QFile::encodeName(path);
    int status = avformat_alloc_output_context2(&made, nullptr, "mov", url.constData());
    Context context(made);
    if (status >= 0)
        status = avio_open(&context->pb, url.constData(), AVIO_FLAG_WRITE);
    if (status < 0) {
        return PXFail(
            ffmpeg::error(status, u"Could not create the movie file %1"_s.arg(nameInErrors)));
    }
    return std::unique_ptr<MovieMuxer>(new MovieMuxer(path, nameInErrors, std::move(context)));
}

MovieMuxer::MovieMuxer(QString path, QString nameInErrors, Context context)
    : _path(std::move(path)), _nameInErrors(std::move(nameInErrors)), _context(std::move(context))
{
}

MovieMuxer::~MovieMuxer()
{
    avio_closep(&_context->pb);
}

PXError MovieMuxer::failure(int status) const
{
    return ffmpeg::error(status, u"Could not write the movie %1"_s.arg(_nameInErrors));
}

void MovieMuxer::setOption(const char *name, std::int64_t value)
{
    mustSucceed(av_opt_set_int(_context->priv_data, name, value, 0), name);
}

void MovieMuxer::setOption(const char *name, const char *value)
{
    mustSucceed(av_opt_set(_context->priv_data, name, value, 0), name);
}

PXExpected<AVStream *> MovieMuxer::addTrack(const AVCodecParameters &parameters,
                                            AVRational timeBase)
{
    AVStream *track = avformat_new_stream(_context.get(), nullptr);
    const int status
        = track ? avcodec_parameters_copy(track->codecpar, &parameters) : AVERROR(ENOMEM);
    if (status < 0)
        return PXFail(failure(status));
    track->time_base = timeBase;
    return track;
}

PXExpected<void> MovieMuxer::check()
{
    if (const int status = avformat_init_output(_context.get(), nullptr); status < 0)
        return PXFail(failure(status));
    return {};
}

PXExpected<void> MovieMuxer::writeHeader()
{
    if (const int status = avformat_write_header(_context.get(), nullptr); status < 0)
        return PXFail(failure(status));
    _hasHeader = true;
    return {};
}

PXExpected<void> MovieMuxer::writeHeaderWithRoomFor(std::uint64_t packets)
{
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    _expectedPackets = packets;
    _reservedBytes
        = static_cast<std::int64_t>(std::min<std::uint64_t>(packets, kMost / kIndexBytesPerPacket))
        * kIndexBytesPerPacket;
    for (unsigned i = 0; i < _context->nb_streams; ++i) {
        _reservedBytes += kIndexBytesPerTrack
            + std::int64_t{2} * _context->streams[i]->codecpar->extradata_size;
    }
    _reservedBytes = std::min(_reservedBytes, kMost);
    setOption("moov_size", _reservedBytes);
    return writeHeader();
}

PXExpected<void> MovieMuxer::write(AVPacket &packet)
{
    // Not the interleaving call: it holds packets back until every track has some, and nobody
    // but us knows how long a picture can stand.
    const int status = av_write_frame(_context.get(), &packet);
    av_packet_unref(&packet);
    if (status < 0)
        return PXFail(failure(status));
    ++_packets;
    return {};
}

PXExpected<void> MovieMuxer::endFragment()
{
    // The first time that writes the index, whose edits need the first packet's time; the data
    // follow with the second.
    if (_packets == 0)
        return {};
    int status = av_write_frame(_context.get(), nullptr);
    if (status >= 0)
        status = av_write_frame(_context.get(), nullptr);
    if (status < 0)
        return PXFail(failure(status));
    return flush();
}

PXExpected<void> MovieMuxer::flush()
{
    avio_flush(_context->pb);
    if (_context->pb->error < 0)
        return PXFail(failure(_context->pb->error));
    return {};
}

PXExpected<void> MovieMuxer::finish()
{
    int status = 0;
    if (_reservedBytes > 0 && _packets > _expectedPackets)
        status = giveUpReservedRoom();
    if (status >= 0)
        status = av_write_trailer(_context.get());
    if (status < 0)
        return PXFail(failure(status));
    return flush();
}

// The index may not fit into its place: that becomes an atom without meaning, and the muxer moves
// everything back to make room in front of it.
int MovieMuxer::giveUpReservedRoom()
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
    setOption("moov_size", std::int64_t{0});
    setOption("movflags", "+faststart");
    return 0;
}

std::uint64_t MovieMuxer::fileSize()
{
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, avio_size(_context->pb)));
}

PXExpected<void> MovieMuxer::writeBytes(const QByteArray &bytes)
{
    avio_write(_context->pb, reinterpret_cast<const unsigned char *>(bytes.constData()),
               static_cast<int>(bytes.size()));
    return flush();
}
