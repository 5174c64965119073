#include "platform/ffmpeg/FFmpegSoundExtraction.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

// Beyond it lies no sound, only what is no number.
constexpr double kLoudest = 1000;

} // namespace

PXExpected<std::unique_ptr<FFmpegSoundExtraction>>
FFmpegSoundExtraction::create(const QString &path)
{
    const auto movie = MovieReader::open(path);
    if (!movie)
        return PXFail(movie.error());
    std::vector<std::unique_ptr<SoundTrackReader>> tracks;
    for (const AVStream *track : (*movie)->tracks()) {
        if (track->codecpar->codec_type != AVMEDIA_TYPE_AUDIO || (*movie)->endOf(*track) <= 0)
            continue;
        auto reader = SoundTrackReader::open(path, track->index);
        if (!reader)
            return PXFail(reader.error());
        if (*reader)
            tracks.push_back(*std::move(reader));
    }
    if (tracks.empty()) {
        return PXFail({u"FFmpeg"_s,
                       AVERROR_STREAM_NOT_FOUND,
                       u"There is no sound that can be read in %1"_s.arg(path),
                       {},
                       {}});
    }
    return std::unique_ptr<FFmpegSoundExtraction>(new FFmpegSoundExtraction(std::move(tracks)));
}

FFmpegSoundExtraction::FFmpegSoundExtraction(std::vector<std::unique_ptr<SoundTrackReader>> tracks)
    : _tracks(std::move(tracks))
{
    for (const auto &track : _tracks) {
        const SoundConverter::Shape shape = track->shape();
        _format.sampleRate = std::max(_format.sampleRate, shape.sampleRate);
        if (shape.layout.nb_channels > _format.channels) {
            _format.channels = shape.layout.nb_channels;
            _format.channelMask = SoundConverter::maskOf(shape.layout);
        }
    }
}

int FFmpegSoundExtraction::bitsPerSample() const
{
    int widest = 0;
    for (const auto &track : _tracks)
        widest = std::max(widest, track->bitsPerSample());
    return widest;
}

void FFmpegSoundExtraction::setSampleType(PXSampleType type)
{
    if (_hasBegun)
        throw std::logic_error("the type of samples is chosen before the first");
    _format.sampleType = type;
}

bool FFmpegSoundExtraction::mayBeTooLoud() const
{
    const AVSampleFormat type = av_get_packed_sample_fmt(_tracks.front()->shape().type);
    return _tracks.size() > 1 || type == AV_SAMPLE_FMT_FLT || type == AV_SAMPLE_FMT_DBL;
}

PXExpected<void> FFmpegSoundExtraction::begin()
{
    const SoundConverter::Shape wanted{
        SoundConverter::interleaved(_format.sampleType), _format.sampleRate,
        SoundConverter::layoutOf(_format.channels, _format.channelMask)};
    SoundConverter::Shape read = wanted;
    if (mayBeTooLoud()) {
        read.type = AV_SAMPLE_FMT_DBL;
        _limiter.emplace(_format.channels);
        _sumConverter = SoundConverter::create(read, wanted);
        if (!_sumConverter)
            throw std::bad_alloc(); // Only types differ, so nothing else can be missing.
    }
    for (const auto &track : _tracks) {
        if (auto set = track->setOutput(read); !set)
            return set;
    }
    if (_sumConverter) {
        if (auto added = addUpNextBlock(); !added)
            return added;
        _limiter->limit({}, _nextBlock);
    }
    _hasBegun = true;
    return {};
}

PXExpected<int> FFmpegSoundExtraction::fill(std::span<std::byte> samples)
{
    const auto bytesPerFrame = static_cast<std::size_t>(_format.bytesPerFrame());
    if (samples.size() % bytesPerFrame != 0)
        throw std::logic_error("there must be room for whole frames");
    return ffmpeg::withinMemory([&]() -> PXExpected<int> {
        if (!_hasBegun) {
            if (const auto begun = begin(); !begun)
                return PXFail(begun.error());
        }
        auto *out = reinterpret_cast<std::uint8_t *>(samples.data());
        const int frames = static_cast<int>(samples.size() / bytesPerFrame);
        return _sumConverter ? fillFromSum(out, frames) : _tracks.front()->read(out, frames);
    });
}

PXExpected<int> FFmpegSoundExtraction::fillFromSum(std::uint8_t *samples, int frames)
{
    while (_sumConverter->available() < frames && !_nextBlock.empty()) {
        if (auto done = goOn(); !done)
            return PXFail(done.error());
    }
    return _sumConverter->pull(&samples, frames);
}

PXExpected<void> FFmpegSoundExtraction::goOn()
{
    std::swap(_block, _nextBlock);
    if (auto added = addUpNextBlock(); !added)
        return added;
    _limiter->limit(_block, _nextBlock);
    const auto *block = reinterpret_cast<const std::uint8_t *>(_block.data());
    const auto frames = static_cast<int>(_block.size()) / _format.channels;
    if (const int status = _sumConverter->push(&block, frames); status < 0)
        return PXFail(ffmpeg::error(status, u"Could not add up the sound tracks"_s));
    return {};
}

PXExpected<void> FFmpegSoundExtraction::addUpNextBlock()
{
    const int frames = SoundLimiter::framesOfBlock(_format.sampleRate);
    const auto channels = static_cast<std::size_t>(_format.channels);
    _nextBlock.assign(static_cast<std::size_t>(frames) * channels, 0.0);
    _track.resize(_nextBlock.size());
    int longest = 0;
    for (const auto &track : _tracks) {
        const auto read = track->read(reinterpret_cast<std::uint8_t *>(_track.data()), frames);
        if (!read)
            return PXFail(read.error());
        longest = std::max(longest, *read);
        for (std::size_t i = 0; i < static_cast<std::size_t>(*read) * channels; ++i)
            _nextBlock[i] += std::abs(_track[i]) <= kLoudest ? _track[i] : 0.0;
    }
    _nextBlock.resize(static_cast<std::size_t>(longest) * channels);
    return {};
}
