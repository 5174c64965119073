#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum class PXSampleType { Int16, Int32, Float32, Float64 };

constexpr int PXBytesPerSample(PXSampleType type)
{
    switch (type) {
    case PXSampleType::Int16:
        return 2;
    case PXSampleType::Int32:
    case PXSampleType::Float32:
        return 4;
    case PXSampleType::Float64:
        return 8;
    }
    return 0;
}

/// Interleaved samples in the machine's byte order.
struct PXSoundFormat {
    int sampleRate = 0; ///< Frames a second.
    int channels = 0; ///< Samples a frame.
    /// A bit for each channel's place, lowest first, in the order of the samples: front left 1,
    /// front right 2, front centre 4, low frequencies 8, back left 16, … (the channel mask of
    /// WAVEFORMATEXTENSIBLE). 0 where the places are not known.
    std::uint64_t channelMask = 0;
    PXSampleType sampleType = PXSampleType::Float32;

    [[nodiscard]] int bytesPerFrame() const { return channels * PXBytesPerSample(sampleType); }
    bool operator==(const PXSoundFormat &) const = default;
};

/// Samples on their way; valid during the call that hands them over.
struct PXSoundBuffer {
    std::span<const std::byte> samples; ///< Whole frames.
    int frames = 0;
    std::uint64_t hostTime = 0; ///< When the first was heard: CLOCK_MONOTONIC, nanoseconds.
};
