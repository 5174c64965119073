#include "platform/ffmpeg/FFmpegSoundWriter.h"

#include "platform/ffmpeg/FFmpegSoundCodecs.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <new>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

// Where an encoder takes any number of frames: an eighth of a second, or less.
constexpr int kPacketsASecond = 8;
constexpr int kMostFramesAPacket = 4096;
// A fragment lasts half a second, so that with what the encoder holds back less than a second is
// lost when the program is killed.
constexpr int kHandOversASecond = 2;
// So much is converted at a time, whatever the caller has.
constexpr std::size_t kFramesAtATime = 16384;

// An encoder refuses what is no number, and everything after it. A device that gives such samples
// is silent there; far beyond full scale nothing is lost.
template <typename Sample>
std::span<const std::byte> mend(std::span<const std::byte> samples, std::vector<std::byte> &mended)
{
    constexpr Sample kLoudest = 1000;
    const auto isBad = [](Sample sample) { return !(std::abs(sample) <= kLoudest); };
    const auto sampleAt = [&](std::size_t i) {
        Sample sample;
        std::memcpy(&sample, samples.data() + i, sizeof sample);
        return sample;
    };
    bool hasBad = false;
    for (std::size_t i = 0; i < samples.size(); i += sizeof(Sample))
        hasBad |= isBad(sampleAt(i));
    if (!hasBad)
        return samples;
    mended.assign(samples.begin(), samples.end());
    constexpr Sample kSilence = 0;
    for (std::size_t i = 0; i < samples.size(); i += sizeof(Sample)) {
        if (isBad(sampleAt(i)))
            std::memcpy(mended.data() + i, &kSilence, sizeof kSilence);
    }
    return mended;
}

} // namespace

PXExpected<std::unique_ptr<FFmpegSoundWriter>>
FFmpegSoundWriter::create(const QString &path, PXSoundFileKind kind, const PXSoundFormat &format,
                          const PXSoundEncoding &encoding)
{
    auto encoder = ffmpeg::openSoundEncoder(format, encoding, kind);
    if (!encoder)
        return PXFail(encoder.error());
    auto converter
        = SoundConverter::create({SoundConverter::interleaved(format.sampleType), format.sampleRate,
                                  SoundConverter::layoutOf(format.channels, format.channelMask)},
                                 {(*encoder)->sample_fmt, (*encoder)->sample_rate,
                                  SoundConverter::layoutOf((*encoder)->ch_layout)});
    if (!converter) {
        return PXFail(
            PXPOSIXError(EINVAL,
                         u"Could not convert sound of %1 channels to %2"_s.arg(format.channels)
                             .arg((*encoder)->ch_layout.nb_channels)));
    }
    auto muxer = MovieMuxer::create(path, path);
    if (!muxer)
        return PXFail(muxer.error());
    std::unique_ptr<FFmpegSoundWriter> writer(new FFmpegSoundWriter(
        kind, format, *std::move(encoder), std::move(converter), *std::move(muxer)));
    if (auto added = writer->addTrack(); !added)
        return PXFail(added.error());
    return writer;
}

FFmpegSoundWriter::FFmpegSoundWriter(PXSoundFileKind kind, const PXSoundFormat &format,
                                     ffmpeg::CodecContext encoder,
                                     std::unique_ptr<SoundConverter> converter,
                                     std::unique_ptr<MovieMuxer> muxer)
    : _kind(kind),
      _format(format),
      _encoder(std::move(encoder)),
      _converter(std::move(converter)),
      _muxer(std::move(muxer)),
      _packet(av_packet_alloc()),
      _lastPacket(av_packet_alloc()),
      _framesAPacket(_encoder->frame_size > 0 ? _encoder->frame_size
                                              : std::clamp(_encoder->sample_rate / kPacketsASecond,
                                                           1, kMostFramesAPacket))
{
    if (!_packet || !_lastPacket)
        throw std::bad_alloc();
}

PXExpected<void> FFmpegSoundWriter::addTrack()
{
    ffmpeg::Parameters parameters(avcodec_parameters_alloc());
    if (!parameters)
        throw std::bad_alloc();
    if (const int status = avcodec_parameters_from_context(parameters.get(), _encoder.get());
        status < 0)
        return PXFail(_muxer->failure(status));
    const auto track = _muxer->addTrack(*parameters, _encoder->time_base);
    if (!track)
        return PXFail(track.error());
    _track = *track;
    _track->disposition |= AV_DISPOSITION_DEFAULT;
    // Edits are told in the movie's units: with the track's own they lose nothing.
    _muxer->setOption("movie_timescale", _encoder->sample_rate);
    // The index in front waits for the first fragment: the encoder's delay, which is in it, is
    // told by the first packet.
    if (_kind == PXSoundFileKind::Fragmented)
        _muxer->setOption("movflags", "+frag_custom+delay_moov+skip_trailer");
    return _muxer->writeHeader();
}

PXSoundFormat FFmpegSoundWriter::storedFormat() const
{
    PXSoundFormat stored;
    stored.sampleRate = _encoder->sample_rate;
    stored.channels = _encoder->ch_layout.nb_channels;
    stored.channelMask = SoundConverter::maskOf(_encoder->ch_layout);
    switch (av_get_packed_sample_fmt(_encoder->sample_fmt)) {
    case AV_SAMPLE_FMT_S16:
        stored.sampleType = PXSampleType::Int16;
        break;
    case AV_SAMPLE_FMT_S32:
        stored.sampleType = PXSampleType::Int32;
        break;
    default:
        stored.sampleType = PXSampleType::Float32;
        break;
    }
    return stored;
}

PXExpected<void> FFmpegSoundWriter::write(std::span<const std::byte> samples)
{
    const auto bytesPerFrame = static_cast<std::size_t>(_format.bytesPerFrame());
    if (_isFinished || samples.size() % bytesPerFrame != 0)
        throw std::logic_error("a sound file takes whole frames until it is finished");
    if (_failure)
        return PXFail(*_failure);
    return remember(ffmpeg::withinMemory([&]() -> PXExpected<void> {
        while (!samples.empty()) {
            const auto part = std::min(samples.size(), kFramesAtATime * bytesPerFrame);
            if (auto done = convert(samples.first(part)); !done)
                return done;
            if (auto done = encodeWaiting(_framesAPacket); !done)
                return done;
            samples = samples.subspan(part);
        }
        return {};
    }));
}

PXExpected<void> FFmpegSoundWriter::writeSilence(std::int64_t frames)
{
    return remember(ffmpeg::withinMemory([&]() -> PXExpected<void> {
        const auto bytesPerFrame = static_cast<std::size_t>(_format.bytesPerFrame());
        const std::vector<std::byte> silence(kFramesAtATime * bytesPerFrame);
        while (frames > 0) {
            const auto part = std::min(frames, static_cast<std::int64_t>(kFramesAtATime));
            const auto bytes = static_cast<std::size_t>(part) * bytesPerFrame;
            if (auto written = write(std::span(silence).first(bytes)); !written)
                return written;
            frames -= part;
            // By now the encoder's last packet is silent, and so would be all that follow: an hour
            // that was missed is there in a second.
            const std::int64_t packets = frames / _framesAPacket;
            if (packets > 0 && _encoder->sample_rate == _format.sampleRate) {
                if (auto done = repeatLastPacket(packets); !done)
                    return done;
                frames -= packets * _framesAPacket;
            }
        }
        return {};
    }));
}

PXExpected<void> FFmpegSoundWriter::finish()
{
    if (_isFinished)
        throw std::logic_error("a sound file is finished once");
    _isFinished = true;
    if (_failure)
        return PXFail(*_failure);
    return remember(ffmpeg::withinMemory([this] { return endFile(); }));
}

PXExpected<void> FFmpegSoundWriter::remember(PXExpected<void> done)
{
    if (!done)
        _failure = done.error();
    return done;
}

PXExpected<void> FFmpegSoundWriter::convert(std::span<const std::byte> samples)
{
    const std::size_t frames = samples.size() / static_cast<std::size_t>(_format.bytesPerFrame());
    if (_format.sampleType == PXSampleType::Float32)
        samples = mend<float>(samples, _mended);
    else if (_format.sampleType == PXSampleType::Float64)
        samples = mend<double>(samples, _mended);
    const auto *plane = reinterpret_cast<const std::uint8_t *>(samples.data());
    if (const int status = _converter->push(&plane, static_cast<int>(frames)); status < 0)
        return PXFail(_muxer->failure(status));
    return {};
}

/// Whole packets, as long as there are that many frames.
PXExpected<void> FFmpegSoundWriter::encodeWaiting(int atLeast)
{
    while (_converter->available() >= atLeast) {
        if (auto done = encode(std::min(_framesAPacket, _converter->available())); !done)
            return done;
        if (auto done = handOverWhenDue(); !done)
            return done;
    }
    return {};
}

PXExpected<void> FFmpegSoundWriter::encode(int frames)
{
    // Filled up with silence where the codec has packets of one size only.
    const bool takesLess = _encoder->frame_size == 0
        || (_encoder->codec->capabilities
            & (AV_CODEC_CAP_SMALL_LAST_FRAME | AV_CODEC_CAP_VARIABLE_FRAME_SIZE))
            != 0;
    const ffmpeg::Frame frame(av_frame_alloc());
    if (!frame)
        throw std::bad_alloc();
    frame->format = _encoder->sample_fmt;
    frame->sample_rate = _encoder->sample_rate;
    frame->nb_samples = takesLess ? frames : _framesAPacket;
    frame->pts = _framesEncoded;
    int status = av_channel_layout_copy(&frame->ch_layout, &_encoder->ch_layout);
    if (status >= 0)
        status = av_frame_get_buffer(frame.get(), 0);
    if (status >= 0) {
        av_samples_set_silence(frame->extended_data, 0, frame->nb_samples,
                               frame->ch_layout.nb_channels, _encoder->sample_fmt);
        status = _converter->pull(frame->extended_data, frames);
    }
    if (status >= 0)
        status = avcodec_send_frame(_encoder.get(), frame.get());
    if (status < 0)
        return PXFail(_muxer->failure(status));
    _framesEncoded += frame->nb_samples;
    return writePackets();
}

PXExpected<void> FFmpegSoundWriter::writePackets()
{
    while (true) {
        const int status = avcodec_receive_packet(_encoder.get(), _packet.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF)
            return {};
        if (status < 0)
            return PXFail(_muxer->failure(status));
        _packet->pts += _framesRepeated;
        _packet->dts += _framesRepeated;
        av_packet_unref(_lastPacket.get());
        if (const int kept = av_packet_ref(_lastPacket.get(), _packet.get()); kept < 0)
            return PXFail(_muxer->failure(kept));
        if (auto done = writePacket(); !done)
            return done;
    }
}

PXExpected<void> FFmpegSoundWriter::repeatLastPacket(std::int64_t times)
{
    for (; times > 0; --times) {
        _framesRepeated += _framesAPacket;
        _lastPacket->pts += _framesAPacket;
        _lastPacket->dts += _framesAPacket;
        if (const int status = av_packet_ref(_packet.get(), _lastPacket.get()); status < 0)
            return PXFail(_muxer->failure(status));
        if (auto done = writePacket(); !done)
            return done;
        if (auto done = handOverWhenDue(); !done)
            return done;
    }
    return {};
}

PXExpected<void> FFmpegSoundWriter::writePacket()
{
    _packet->stream_index = _track->index;
    av_packet_rescale_ts(_packet.get(), _encoder->time_base, _track->time_base);
    return _muxer->write(*_packet);
}

PXExpected<void> FFmpegSoundWriter::handOverWhenDue()
{
    const std::int64_t frames = _framesEncoded + _framesRepeated - _framesHandedOver;
    return frames >= _encoder->sample_rate / kHandOversASecond ? handOver() : PXExpected<void>();
}

PXExpected<void> FFmpegSoundWriter::handOver()
{
    auto done = _kind == PXSoundFileKind::Fragmented ? _muxer->endFragment() : _muxer->flush();
    if (done) {
        _framesHandedOver = _framesEncoded + _framesRepeated;
        _recordedBytes = _muxer->fileSize();
    }
    return done;
}

PXExpected<void> FFmpegSoundWriter::endFile()
{
    int status = _converter->finish();
    if (status >= 0) {
        if (auto done = encodeWaiting(1); !done)
            return done;
        // An encoder with a delay lets go of what it holds back.
        status = avcodec_send_frame(_encoder.get(), nullptr);
    }
    if (status < 0)
        return PXFail(_muxer->failure(status));
    if (auto done = writePackets(); !done)
        return done;
    auto done = _muxer->finish();
    _recordedBytes = _muxer->fileSize();
    return done;
}
