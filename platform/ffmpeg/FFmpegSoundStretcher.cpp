#include "platform/ffmpeg/FFmpegSoundStretcher.h"

#include "platform/ffmpeg/SoundConverter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

constexpr double kLargestRatio = 0.01;
// Frames for which a step holds; it is set again long before they are over. A power of two, as
// the resampler counts its steps: the sound's length comes out to a billionth.
constexpr int kStepHolds = 1 << 30;
constexpr int kPartsOfAFrame = 1024;

PXError failure(int status)
{
    return ffmpeg::error(status, u"Could not change the speed of the sound"_s);
}

} // namespace

PXExpected<std::unique_ptr<FFmpegSoundStretcher>>
FFmpegSoundStretcher::create(const PXSoundFormat &format)
{
    if (format.sampleType != PXSampleType::Float32)
        throw std::logic_error("only 32-bit floats are stretched");
    if (format.sampleRate <= 0 || format.channels <= 0) {
        return PXFail(PXPOSIXError(
            EINVAL,
            u"Could not change the speed of sound of %1 channels at %2 Hz"_s.arg(format.channels)
                .arg(format.sampleRate)));
    }
    AVChannelLayout layout = SoundConverter::layoutOf(format.channels, format.channelMask);
    SwrContext *made = nullptr;
    int status = swr_alloc_set_opts2(&made, &layout, AV_SAMPLE_FMT_FLT, format.sampleRate, &layout,
                                     AV_SAMPLE_FMT_FLT, format.sampleRate, 0, nullptr);
    ffmpeg::Resampler resampler(made);
    // The first one makes a resampler of what would only copy, and its filters: not later, in the
    // middle of the sound.
    if (status >= 0)
        status = swr_set_compensation(resampler.get(), 1, kStepHolds);
    if (status < 0)
        return PXFail(failure(status));
    return std::unique_ptr<FFmpegSoundStretcher>(
        new FFmpegSoundStretcher(format, std::move(resampler)));
}

FFmpegSoundStretcher::FFmpegSoundStretcher(const PXSoundFormat &format, ffmpeg::Resampler resampler)
    : _format(format), _resampler(std::move(resampler))
{
}

void FFmpegSoundStretcher::setStretch(double ratio)
{
    if (!(std::abs(ratio) <= kLargestRatio))
        throw std::logic_error("sound is stretched by a hundredth at most");
    _ratio = ratio;
}

// The resampler goes through the input in steps that are shorter by `share` than at the same
// speed, so that 1 / (1 - share) frames come out for one that goes in.
int FFmpegSoundStretcher::applyStretch()
{
    const double share = _ratio / (1.0 + _ratio);
    return swr_set_compensation(_resampler.get(), static_cast<int>(std::lround(share * kStepHolds)),
                                kStepHolds);
}

PXExpected<std::span<const float>> FFmpegSoundStretcher::process(std::span<const float> samples)
{
    const auto channels = static_cast<std::size_t>(_format.channels);
    if (samples.size() % channels != 0)
        throw std::logic_error("only whole frames are stretched");
    const int frames = static_cast<int>(samples.size() / channels);
    if (const int status = applyStretch(); status < 0)
        return PXFail(failure(status));
    const int most = swr_get_out_samples(_resampler.get(), frames);
    if (most < 0)
        return PXFail(failure(most));
    return ffmpeg::withinMemory([&]() -> PXExpected<std::span<const float>> {
        _stretched.resize(std::max(_stretched.size(), static_cast<std::size_t>(most) * channels));
        const auto *in = reinterpret_cast<const std::uint8_t *>(samples.data());
        auto *out = reinterpret_cast<std::uint8_t *>(_stretched.data());
        const int made = swr_convert(_resampler.get(), &out, most, &in, frames);
        if (made < 0)
            return PXFail(failure(made));
        return std::span<const float>(_stretched.data(), static_cast<std::size_t>(made) * channels);
    });
}

double FFmpegSoundStretcher::delay() const
{
    const std::int64_t base = std::int64_t{_format.sampleRate} * kPartsOfAFrame;
    return static_cast<double>(swr_get_delay(_resampler.get(), base)) / kPartsOfAFrame;
}
