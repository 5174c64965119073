#pragma once

#include "platform/PXSoundFile.h"
#include "platform/ffmpeg/SoundLimiter.h"
#include "platform/ffmpeg/SoundTrackReader.h"

#include <QString>

#include <memory>
#include <optional>
#include <vector>

/// The sound tracks of a movie, read side by side. A single one that is stored as integers is
/// converted straight into what the caller wants; what may be beyond full scale, the sum of several
/// or what a lossy codec made, goes through a limiter first, as 64-bit floats.
class FFmpegSoundExtraction final : public PXSoundExtraction {
public:
    static PXExpected<std::unique_ptr<FFmpegSoundExtraction>> create(const QString &path);

    [[nodiscard]] PXSoundFormat format() const override { return _format; }
    [[nodiscard]] int bitsPerSample() const override;
    void setSampleType(PXSampleType type) override;
    PXExpected<int> fill(std::span<std::byte> samples) override;

private:
    explicit FFmpegSoundExtraction(std::vector<std::unique_ptr<SoundTrackReader>> tracks);
    PXExpected<void> begin();
    [[nodiscard]] bool mayBeTooLoud() const;
    PXExpected<int> fillFromSum(std::uint8_t *samples, int frames);
    PXExpected<void> goOn();
    PXExpected<void> addUpNextBlock();

    std::vector<std::unique_ptr<SoundTrackReader>> _tracks;
    PXSoundFormat _format;
    bool _hasBegun = false;
    // Only of what may be too loud:
    std::unique_ptr<SoundConverter> _sumConverter; ///< From the sum to what the caller wants.
    std::optional<SoundLimiter> _limiter;
    std::vector<double> _block; ///< Of the sum,
    std::vector<double> _nextBlock; ///< and what follows it; both are empty at the end.
    std::vector<double> _track; ///< Scratch: one track's.
};
