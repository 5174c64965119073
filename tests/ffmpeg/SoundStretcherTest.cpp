#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr int kRate = 48000;

std::vector<float> tone(int from, int frames)
{
    std::vector<float> samples;
    for (int i = from; i < from + frames; ++i) {
        const double value = 0.5 * std::sin(2 * std::numbers::pi * 440 * i / kRate);
        samples.insert(samples.end(), {static_cast<float>(value), static_cast<float>(-value)});
    }
    return samples;
}

} // namespace

// A minute of a tone whose speed changes every second: as long as it should be, and at no place
// does it do anything that a tone does not.
TEST(SoundStretcher, IsExactAndWithoutClicks)
{
    auto stretcher = FFmpegMediaPlatform().makeSoundStretcher({kRate, 2, 3}).value();
    std::vector<float> heard;
    double expected = 0;
    for (int second = 0; second < 60; ++second) {
        const double ratio
            = second % 7 == 0 ? 0 : (second % 2 == 0 ? 500e-6 : -500e-6) / (second % 5 + 1);
        stretcher->setStretch(ratio);
        // Pieces of sizes that no device promises.
        for (int done = 0; done < kRate;) {
            const int frames = std::min(kRate - done, 1 + done * 7 % 1999);
            const auto out = stretcher->process(tone(second * kRate + done, frames)).value();
            heard.insert(heard.end(), out.begin(), out.end());
            done += frames;
        }
        expected += kRate * (1 + ratio);
        EXPECT_NEAR(static_cast<double>(heard.size()) / 2 + stretcher->delay(), expected, 1.0)
            << second;
    }
    EXPECT_LT(stretcher->delay(), 64);

    // Each sample of a tone follows from the two before it; the speed bends that by little.
    const double factor = 2 * std::cos(2 * std::numbers::pi * 440 / kRate);
    double worst = 0;
    for (std::size_t i = 300; i + 4 < heard.size(); i += 2) {
        worst = std::max(worst, std::abs(heard[i + 4] - factor * heard[i + 2] + heard[i]));
        ASSERT_EQ(heard[i], -heard[i + 1]);
    }
    EXPECT_LT(worst, 5e-5);
}
