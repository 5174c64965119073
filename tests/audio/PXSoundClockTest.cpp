#include "audio/PXSoundClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <ostream>
#include <random>

namespace {

constexpr int kRate = 48000;
constexpr double kStart = 1000; ///< Host seconds.

/// A source whose quartz is off and whose server is not sure of the time.
struct Source {
    const char *name;
    int framesPerBuffer;
    double ppm; ///< Above 0 it is fast.
    double wander; ///< Seconds, of a slow swing.
    double jitter; ///< Seconds, of each buffer.
};

void PrintTo(const Source &source, std::ostream *out)
{
    *out << source.name;
}

constexpr Source kSources[] = {
    {"exact", 96, 0, 0, 0},
    {"fast", 480, 200, 0, 0.0002},
    {"slow", 480, -200, 0, 0.0002},
    {"wandersInLargePieces", 1764, 0, 0.006, 0.002},
    {"fastAndWanders", 960, 200, 0.006, 0.001},
};

class PXSoundClockTest : public testing::TestWithParam<Source> {
protected:
    double trueTime(double frames) const
    {
        return kStart + frames / (kRate * (1 + GetParam().ppm * 1e-6));
    }
    double saidTime(double frames)
    {
        const double swing = std::sin(2 * std::numbers::pi * 0.3 * frames / kRate);
        return trueTime(frames) + GetParam().wander * swing + _jitter(_random) * GetParam().jitter;
    }
    PXSoundClock::Place advance(double said)
    {
        _frames += GetParam().framesPerBuffer;
        return _clock.advance(GetParam().framesPerBuffer, static_cast<std::uint64_t>(said * 1e9));
    }

    PXSoundClock _clock{kRate};
    double _frames = 0;

private:
    std::mt19937 _random{1};
    std::uniform_real_distribution<> _jitter{-1, 1};
};

TEST_P(PXSoundClockTest, FindsWhereTheSamplesReallyAre)
{
    double worstEarly = 0;
    double worstLate = 0;
    while (_frames < 600.0 * kRate) {
        const double frames = _frames;
        const PXSoundClock::Place place = advance(saidTime(frames));
        EXPECT_EQ(place.gap, 0);
        double &worst = frames < 60.0 * kRate ? worstEarly : worstLate;
        worst = std::max(worst, std::abs(place.hostTime - trueTime(frames)));
    }
    // What is said at first is all that is known; a tenth of the wander is left later.
    EXPECT_LT(worstEarly, 0.004 + GetParam().wander);
    EXPECT_LT(worstLate, 0.0002 + GetParam().wander / 5);
    EXPECT_NEAR(_clock.drift(), -GetParam().ppm * 1e-6, 0.00002 + GetParam().wander / 100);
}

TEST_P(PXSoundClockTest, TellsAGapFromAGlitch)
{
    const auto runFor = [this](double seconds, double later) {
        double gap = 0;
        for (const double end = _frames + seconds * kRate; _frames < end;)
            gap += advance(saidTime(_frames) + later).gap;
        return gap;
    };
    const double slack = 0.003 + 2 * GetParam().wander;
    EXPECT_EQ(runFor(20, 0), 0);
    EXPECT_EQ(runFor(0.3, 0.5), 0) << "a moment's wrong guess";
    EXPECT_EQ(runFor(20, 0), 0);
    EXPECT_NEAR(runFor(20, 2.0), 2.0, slack) << "samples were lost, and nobody said so";
    _clock.interrupt();
    EXPECT_NEAR(runFor(5, 2.05), 0.05, slack) << "the device was gone for a moment";
    _clock.interrupt();
    EXPECT_EQ(runFor(5, 1.5), 0) << "what comes early is all there";
}

INSTANTIATE_TEST_SUITE_P(Sources, PXSoundClockTest, testing::ValuesIn(kSources),
                         [](const auto &source) { return source.param.name; });

} // namespace
