#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>

/// A tone's amplitude within samples of one channel.
inline double amplitudeOf(double frequency, std::span<const float> samples, int sampleRate)
{
    double sine = 0;
    double cosine = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / sampleRate;
        sine += static_cast<double>(samples[i]) * std::sin(phase);
        cosine += static_cast<double>(samples[i]) * std::cos(phase);
    }
    return 2 * std::hypot(sine, cosine) / static_cast<double>(samples.size());
}
