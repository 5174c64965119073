#include "platform/ffmpeg/SoundTrackReader.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <limits>
#include <new>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kBitsWithoutSize = 16;
constexpr int kFramesOfSilence = 4096; // At a time, however long the silence is.

ffmpeg::CodecContext openDecoder(const AVStream &track)
{
    const AVCodec *codec = avcodec_find_decoder(track.codecpar->codec_id);
    ffmpeg::CodecContext decoder(avcodec_alloc_context3(codec));
    if (!decoder)
        throw std::bad_alloc();
    if (!codec || avcodec_parameters_to_context(decoder.get(), track.codecpar) < 0)
        return nullptr;
    decoder->pkt_timebase = track.time_base;
    decoder->thread_count = 1;
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0)
        return nullptr;
    const bool isUsable = decoder->sample_fmt != AV_SAMPLE_FMT_NONE && decoder->sample_rate > 0
        && decoder->ch_layout.nb_channels > 0;
    return isUsable ? std::move(decoder) : nullptr;
}

} // namespace

PXExpected<std::unique_ptr<SoundTrackReader>> SoundTrackReader::open(const QString &path, int index)
{
    auto reader = MovieReader::open(path);
    if (!reader)
        return PXFail(reader.error());
    AVStream &track = *(*reader)->tracks()[static_cast<std::size_t>(index)];
    (*reader)->readOnly(track);
    auto decoder = openDecoder(track);
    if (!decoder)
        return nullptr;
    return std::unique_ptr<SoundTrackReader>(
        new SoundTrackReader(*std::move(reader), track, std::move(decoder)));
}

SoundTrackReader::SoundTrackReader(std::unique_ptr<MovieReader> reader, AVStream &track,
                                   ffmpeg::CodecContext decoder)
    : _reader(std::move(reader)),
      _track(track),
      _decoder(std::move(decoder)),
      _channels(_decoder->ch_layout.nb_channels),
      _packet(av_packet_alloc()),
      _frame(av_frame_alloc())
{
    if (!_packet || !_frame)
        throw std::bad_alloc();
}

SoundConverter::Shape SoundTrackReader::shape() const
{
    return {_decoder->sample_fmt, _decoder->sample_rate,
            SoundConverter::layoutOf(_decoder->ch_layout)};
}

int SoundTrackReader::bitsPerSample() const
{
    if (_decoder->bits_per_raw_sample > 0)
        return _decoder->bits_per_raw_sample;
    const bool hasSize = MovieReader::isPCM(_decoder->codec_id);
    return hasSize ? av_get_bytes_per_sample(_decoder->sample_fmt) * CHAR_BIT : kBitsWithoutSize;
}

PXExpected<void> SoundTrackReader::setOutput(const SoundConverter::Shape &shape)
{
    _converter = SoundConverter::create(this->shape(), shape);
    if (!_converter)
        return PXFail(_reader->failure(AVERROR(ENOSYS)));
    return {};
}

PXExpected<int> SoundTrackReader::read(std::uint8_t *samples, int frames)
{
    while (_converter->available() < frames && !_isAtEnd) {
        if (auto done = goOn(); !done)
            return PXFail(done.error());
    }
    const int pulled = _converter->pull(&samples, frames);
    if (pulled < 0)
        return PXFail(_reader->failure(pulled));
    return pulled;
}

/// A piece of silence, or what was decoded, or else the next packet to the decoder.
PXExpected<void> SoundTrackReader::goOn()
{
    if (_frame->nb_samples == 0 && avcodec_receive_frame(_decoder.get(), _frame.get()) < 0)
        return readPacket();
    if (const int status = convertFrame(); status < 0)
        return PXFail(_reader->failure(status));
    return {};
}

PXExpected<void> SoundTrackReader::readPacket()
{
    const auto read = _reader->next(*_packet);
    if (!read)
        return PXFail(read.error());
    int status = 0;
    if (!*read) {
        _isAtEnd = true;
        status = _converter->finish();
    } else {
        // A packet that is told to be shorter than it is ends the track: what the encoder filled
        // it up with is no sound.
        _end = std::numeric_limits<std::int64_t>::max();
        if (_packet->duration > 0) {
            _end = av_rescale_q_rnd(_packet->pts + _packet->duration, _track.time_base,
                                    {1, _decoder->sample_rate}, AV_ROUND_UP);
        }
        status = avcodec_send_packet(_decoder.get(), _packet.get());
        av_packet_unref(_packet.get());
        if (status != AVERROR(ENOMEM))
            return {}; // What cannot be decoded is missing.
    }
    if (status < 0)
        return PXFail(_reader->failure(status));
    return {};
}

int SoundTrackReader::convertFrame()
{
    const AVRational frames{1, _decoder->sample_rate};
    std::int64_t start = _position;
    if (_frame->pts != AV_NOPTS_VALUE)
        start = av_rescale_q(_frame->pts, _track.time_base, frames);
    // Times in coarser units than frames are only about right.
    if (std::abs(start - _position) < av_rescale_q(1, _track.time_base, frames))
        start = _position;
    if (start > _position) {
        const std::int64_t silence = std::min<std::int64_t>(start - _position, kFramesOfSilence);
        _position += silence;
        return _converter->pushSilence(static_cast<int>(silence));
    }
    // What lies before the place where we are has been heard, or precedes the movie. What is like
    // nothing that the track told of cannot be converted.
    const std::int64_t first = std::min<std::int64_t>(_position - start, _frame->nb_samples);
    const std::int64_t last = std::min<std::int64_t>(_end - start, _frame->nb_samples);
    int status = 0;
    if (last > first && _frame->format == _decoder->sample_fmt
        && _frame->sample_rate == _decoder->sample_rate
        && _frame->ch_layout.nb_channels == _channels) {
        _position += last - first;
        status = convertPart(static_cast<int>(first), static_cast<int>(last));
    }
    av_frame_unref(_frame.get());
    return status;
}

int SoundTrackReader::convertPart(int first, int last)
{
    const bool isPlanar = av_sample_fmt_is_planar(_decoder->sample_fmt) != 0;
    const std::ptrdiff_t skipped = std::ptrdiff_t{first}
        * av_get_bytes_per_sample(_decoder->sample_fmt) * (isPlanar ? 1 : _channels);
    std::vector<const std::uint8_t *> planes(_frame->extended_data,
                                             _frame->extended_data + (isPlanar ? _channels : 1));
    for (auto &plane : planes)
        plane += skipped;
    return _converter->push(planes.data(), last - first);
}
