#pragma once

#include "platform/PXSoundFile.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include <memory>
#include <vector>

/// The library's resampler with its step changed a little; the sound goes on without a seam.
class FFmpegSoundStretcher final : public PXSoundStretcher {
public:
    static PXExpected<std::unique_ptr<FFmpegSoundStretcher>> create(const PXSoundFormat &format);

    void setStretch(double ratio) override;
    PXExpected<std::span<const float>> process(std::span<const float> samples) override;
    [[nodiscard]] double delay() const override;

private:
    FFmpegSoundStretcher(const PXSoundFormat &format, ffmpeg::Resampler resampler);
    int applyStretch();

    PXSoundFormat _format;
    ffmpeg::Resampler _resampler;
    double _ratio = 0;
    std::vector<float> _stretched;
};
