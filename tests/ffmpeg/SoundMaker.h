#pragma once

#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <gtest/gtest.h>

#include <QString>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>
#include <vector>

/// A tone that rises from 200 Hz to 3 kHz within half a second, again and again: it correlates
/// with itself at one place only, and every codec keeps it.
inline std::vector<float> chirp(int sampleRate, int channels, int frames, double loudness = 0.5)
{
    std::vector<float> samples;
    for (int i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i % (sampleRate / 2)) / sampleRate;
        const double value = loudness * std::sin(2 * std::numbers::pi * (200 * t + 2800 * t * t));
        samples.insert(samples.end(), static_cast<std::size_t>(channels),
                       static_cast<float>(value));
    }
    return samples;
}

template <typename Sample>
std::vector<Sample> channelOf(std::span<const Sample> samples, int channels, int channel)
{
    std::vector<Sample> one;
    for (auto i = static_cast<std::size_t>(channel); i < samples.size();
         i += static_cast<std::size_t>(channels))
        one.push_back(samples[i]);
    return one;
}

/// By how many frames `heard` is late against `played` around the frame `place`, and how alike the
/// two are then, from 0 to 1.
struct Lag {
    int frames = 0;
    double likeness = 0;
};
inline Lag lagOf(std::span<const float> heard, std::span<const float> played, int place)
{
    constexpr int kWindow = 3000;
    constexpr int kFarthest = 1400;
    Lag best;
    for (int lag = -kFarthest; lag <= kFarthest; ++lag) {
        double product = 0;
        double heardPower = 0;
        double playedPower = 0;
        for (int i = place; i < place + kWindow; ++i) {
            const std::ptrdiff_t at = std::ptrdiff_t{i} + lag;
            if (at < 0 || at >= std::ssize(heard))
                continue;
            const double a = heard[static_cast<std::size_t>(at)];
            const double b = played[static_cast<std::size_t>(i)];
            product += a * b;
            heardPower += a * a;
            playedPower += b * b;
        }
        const double likeness = product / std::sqrt(heardPower * playedPower + 1e-12);
        if (likeness > best.likeness)
            best = {lag, likeness};
    }
    return best;
}

template <typename Sample>
PXExpected<void> writeSound(PXSoundWriter &writer, const std::vector<Sample> &samples, int channels,
                            std::size_t framesAtATime = 441)
{
    auto rest = std::span(samples);
    while (!rest.empty()) {
        const auto part = std::min(rest.size(), framesAtATime * static_cast<std::size_t>(channels));
        if (auto written = writer.write(std::as_bytes(rest.first(part))); !written)
            return written;
        rest = rest.subspan(part);
    }
    return {};
}

struct SoundFile {
    const char *codec;
    int sampleRate = 48000;
    int channels = 2;
    PXSoundFileKind kind = PXSoundFileKind::Ordinary;
};

/// A whole file with these samples, floats or 16-bit integers.
template <typename Sample>
void makeSoundFile(const QString &path, const SoundFile &file, const std::vector<Sample> &samples)
{
    constexpr PXSampleType type = sizeof(Sample) == 2 ? PXSampleType::Int16 : PXSampleType::Float32;
    PXSoundEncoding encoding;
    encoding.codec = PXFourCharCodeFromString(QString::fromLatin1(file.codec));
    const auto writer = FFmpegMediaPlatform().makeSoundWriter(
        path, file.kind, {file.sampleRate, file.channels, 0, type}, encoding);
    ASSERT_TRUE(writer) << writer.error().description.toStdString();
    ASSERT_TRUE(writeSound(**writer, samples, file.channels));
    ASSERT_TRUE((*writer)->finish());
}

/// All that the extraction gives, as that type.
template <typename Sample> std::vector<Sample> extract(const QString &path)
{
    constexpr PXSampleType type = sizeof(Sample) == 2 ? PXSampleType::Int16 : PXSampleType::Float32;
    const auto extraction = FFmpegMediaPlatform().makeSoundExtraction(path);
    if (!extraction) {
        ADD_FAILURE() << extraction.error().description.toStdString();
        return {};
    }
    (*extraction)->setSampleType(type);
    const auto channels = static_cast<std::size_t>((*extraction)->format().channels);
    std::vector<Sample> all;
    std::vector<Sample> part(1000 * channels);
    for (int frames = 1; frames > 0;) {
        frames = (*extraction)->fill(std::as_writable_bytes(std::span(part))).value();
        all.insert(all.end(), part.begin(),
                   part.begin()
                       + static_cast<std::ptrdiff_t>(static_cast<std::size_t>(frames) * channels));
    }
    return all;
}
