#include "foundation/PXClock.h"
#include "platform/pulse/PulseSoundPlatform.h"
#include "tests/pulse/Listener.h"
#include "tests/support/SoundServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDeadlineTimer>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numbers>

using namespace Qt::StringLiterals;
using testing::HasSubstr;

namespace {

class PulseSoundInputTest : public testing::TestWithParam<SoundServer::Kind> {
protected:
    [[nodiscard]] std::unique_ptr<PXSoundInput> open(const QString &uid)
    {
        // What pactl has loaded, PipeWire shows to others some time later.
        auto input = sound.openInput(uid);
        for (const QDeadlineTimer deadline(60'000); !input && !deadline.hasExpired();)
            input = sound.openInput(uid);
        return valueOf(std::move(input));
    }
    [[nodiscard]] static std::size_t samplesIn(double seconds, const PXSoundFormat &format)
    {
        return static_cast<std::size_t>(seconds * format.sampleRate)
            * static_cast<std::size_t>(format.channels);
    }

    SoundServer server{GetParam()};
    PulseSoundPlatform pulse{server.name()};
    PXSoundPlatform &sound = pulse;
};

INSTANTIATE_TEST_SUITE_P(Servers, PulseSoundInputTest, testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

struct FormatCase {
    const char *name;
    int sampleRate;
    const char *channelMap;
    std::uint64_t mask;
    std::vector<int> order; ///< Which of the map's channels comes first, second, …
};

TEST_P(PulseSoundInputTest, HasTheFormatOfTheDevice)
{
    const FormatCase cases[] = {
        {"mono", 44100, "mono", 4, {0}},
        {"stereo", 48000, "front-left,front-right", 3, {0, 1}},
        {"theOtherWayRound", 44100, "front-right,front-left", 3, {1, 0}},
        {"surround",
         48000,
         "front-left,front-right,rear-left,rear-right,front-center,lfe",
         63,
         {0, 1, 4, 5, 2, 3}},
        {"fast", 96000, "front-left,front-right", 3, {0, 1}},
    };
    for (const FormatCase &c : cases) {
        SCOPED_TRACE(c.name);
        const auto channels = static_cast<int>(c.order.size());
        const QString module
            = server.load({u"module-null-sink"_s, u"norewinds=1"_s, u"sink_name=device"_s,
                           u"rate=%1"_s.arg(c.sampleRate), u"channels=%1"_s.arg(channels),
                           u"channel_map="_s + QLatin1StringView(c.channelMap)});
        {
            Listener listener;
            const auto input = open(u"device.monitor"_s);
            EXPECT_EQ(input->format(),
                      (PXSoundFormat{c.sampleRate, channels, c.mask, PXSampleType::Float32}));
            // A level for each channel, by its place in the device's own order.
            const SoundPlayer player(
                server.name(), u"device"_s,
                [](std::int64_t, int channel) { return 0.1F * static_cast<float>(channel + 1); },
                {c.sampleRate, channels, QLatin1StringView(c.channelMap)});
            valueOf(input->start(listener));
            const auto recording = listener.waitUntil(
                [](const Listener::Recording &r) {
                    return !r.samples.empty() && std::abs(r.samples.back()) > 0.05F;
                },
                "sound");
            for (int channel = 0; channel < channels; ++channel)
                EXPECT_NEAR(recording.samples[recording.samples.size() - c.order.size() + channel],
                            0.1 * (c.order[channel] + 1), 0.001)
                    << channel;
        }
        server.unload(module);
    }
}

TEST_P(PulseSoundInputTest, TheServerConvertsToAWantedFormat)
{
    const PXSoundFormat wanted{22050, 1, 4, PXSampleType::Float32};
    Listener listener;
    const auto input = valueOf(sound.openInput(u"mic"_s, wanted));
    EXPECT_EQ(input->format(), wanted);
    const SoundPlayer player(server.name(), u"mic_feed"_s, toneOf(441));
    valueOf(input->start(listener));
    const auto recording = listener.waitForSamples(samplesIn(1.5, wanted));
    // From the last second, when all has settled.
    const auto begin = recording.samples.end() - wanted.sampleRate;
    int crossings = 0;
    for (auto sample = begin + 1; sample != recording.samples.end(); ++sample)
        crossings += (sample[-1] < 0) != (sample[0] < 0) ? 1 : 0;
    EXPECT_NEAR(crossings, 2 * 441, 4);
}

/// How far the samples of one channel are from a pure tone at worst: of a tone, each sample follows
/// from the two before. A gap or a repetition shows as a jump.
double worstJump(const Listener::Recording &recording, const PXSoundFormat &format,
                 double frequency, std::size_t firstFrame)
{
    const double twoCosines = 2 * std::cos(2 * std::numbers::pi * frequency / format.sampleRate);
    const auto channels = static_cast<std::size_t>(format.channels);
    double worst = 0;
    for (std::size_t i = (firstFrame + 2) * channels; i < recording.samples.size(); i += channels)
        worst = std::max(worst,
                         std::abs(recording.samples[i] + recording.samples[i - 2 * channels]
                                  - twoCosines * recording.samples[i - channels]));
    return worst;
}

TEST_P(PulseSoundInputTest, LosesNothingThoughTheListenerIsSlow)
{
    // At the device's own rate, so that nobody interpolates.
    Listener listener;
    const auto input = open(u"real_out.monitor"_s);
    const PXSoundFormat format = input->format();
    const SoundPlayer player(server.name(), u"real_out"_s, toneOf(440, format.sampleRate),
                             {format.sampleRate, 2});
    std::atomic<bool> isSlow = false;
    listener.onBuffer = [&](const PXSoundBuffer &) {
        if (isSlow.exchange(false))
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    };
    valueOf(input->start(listener));
    EXPECT_TRUE(input->isRunning());
    const auto toned = listener.waitUntil(
        [](const Listener::Recording &r) {
            return !r.samples.empty() && std::abs(r.samples.back()) > 0.1F;
        },
        "the tone");
    const std::size_t firstFrame = toned.samples.size() / 2;
    isSlow = true;
    const auto recording = listener.waitForSamples(toned.samples.size() + samplesIn(4, format));
    input->stop();
    EXPECT_FALSE(input->isRunning());
    EXPECT_LT(worstJump(recording, format, 440, firstFrame), 0.002);

    // Whoever cuts between two pieces cuts at most 2 ms from the wanted instant.
    const Listener::Piece &first = recording.pieces[toned.pieces.size()];
    for (std::size_t p = toned.pieces.size(); p < recording.pieces.size(); ++p) {
        const Listener::Piece &piece = recording.pieces[p];
        ASSERT_LE(piece.frames, format.sampleRate / 500);
        const double played = static_cast<double>(piece.firstSample - first.firstSample)
            / format.channels / format.sampleRate;
        const double passed = static_cast<double>(piece.hostTime - first.hostTime) / 1e9;
        ASSERT_NEAR(played, passed, 0.030) << p;
    }
    const auto count = listener.recording().pieces.size();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(listener.recording().pieces.size(), count) << "called after stop()";
}

TEST_P(PulseSoundInputTest, KnowsWhenASampleWasHeard)
{
    const SoundPlayer player(server.name(), u"real_out"_s, clicks(), {.latencyMs = 40});
    Listener listener;
    listener.player = &player;
    const auto input = open(u"real_out.monitor"_s);
    const PXSoundFormat format = input->format();
    valueOf(input->start(listener));
    const auto recording = listener.waitForSamples(samplesIn(6, format));
    input->stop();

    const std::vector<double> offsets = lateness(recording, format, 0.4F);
    ASSERT_GE(offsets.size(), 10U);
    // PipeWire's account of what it plays is a step or two early, PulseAudio's exact.
    EXPECT_LT(std::abs(offsets[offsets.size() / 2]),
              GetParam() == SoundServer::Kind::PulseAudio ? 5 : 20)
        << "milliseconds";
}

TEST_P(PulseSoundInputTest, KnowsTheTimeAfterSamplesWereLost)
{
    // So wide that the server can keep less than a second of it.
    server.load({u"module-null-sink"_s, u"norewinds=1"_s, u"sink_name=wide"_s, u"rate=192000"_s,
                 u"channels=8"_s});
    Listener listener;
    std::atomic<bool> isSlow = false;
    std::atomic<std::int64_t> age = 0;
    listener.onBuffer = [&](const PXSoundBuffer &buffer) {
        if (isSlow.exchange(false))
            std::this_thread::sleep_for(std::chrono::seconds(3));
        age = static_cast<std::int64_t>(PXCurrentHostTime() - buffer.hostTime);
    };
    const auto input = open(u"wide.monitor"_s);
    valueOf(input->start(listener));
    listener.waitForSamples(samplesIn(0.5, input->format()));
    isSlow = true;
    const auto recording = listener.waitUntil(
        [&](const Listener::Recording &r) {
            const auto &first = r.pieces.front();
            const auto &last = r.pieces.back();
            const double heard = static_cast<double>(last.firstSample) / 8 / 192'000;
            return static_cast<double>(last.hostTime - first.hostTime) / 1e9 > heard + 1;
        },
        "a gap in the times");
    listener.waitForSamples(recording.samples.size() + samplesIn(0.2, input->format()));
    input->stop();
    EXPECT_LT(std::abs(age), 1'000'000'000) << "two seconds and more were lost";
}

struct Interruption {
    const char *name;
    std::function<void(SoundServer &)> begin;
    std::function<void(SoundServer &)> end;
};

TEST_P(PulseSoundInputTest, GoesOnAfterAnInterruption)
{
    QString module = server.load({u"module-null-sink"_s, u"norewinds=1"_s, u"sink_name=device"_s});
    const auto plugIn = [&] {
        module = server.load({u"module-null-sink"_s, u"norewinds=1"_s, u"sink_name=device"_s});
    };
    const Interruption interruptions[] = {
        {"unplugged", [&](SoundServer &s) { s.unload(module); }, [&](SoundServer &) { plugIn(); }},
        {"serverKilled", [](SoundServer &s) { s.kill(); },
         [&](SoundServer &s) {
             s.start();
             plugIn();
         }},
    };
    Listener listener;
    const auto input = open(u"device.monitor"_s);
    valueOf(input->start(listener));
    std::size_t before = listener.waitForSamples(samplesIn(0.3, input->format())).pieces.size();
    std::size_t told = 0;
    for (const Interruption &interruption : interruptions) {
        SCOPED_TRACE(interruption.name);
        interruption.begin(server);
        const auto recording = listener.waitUntil(
            [&](const Listener::Recording &r) { return r.interruptions.size() > told; },
            "the interruption");
        EXPECT_FALSE(input->isRunning());
        EXPECT_EQ(recording.interruptions.back().domain, kPXSoundErrorDomain);
        before = recording.pieces.size();
        const auto gone = static_cast<std::int64_t>(PXCurrentHostTime());
        interruption.end(server);
        const auto after = listener.waitUntil(
            [&](const Listener::Recording &r) { return r.pieces.size() > before + 50; },
            "samples again");
        EXPECT_TRUE(input->isRunning());
        EXPECT_EQ(after.interruptions.size(), ++told) << "told once";
        // The time of what follows shows the gap; a fragment may lie before its asking.
        EXPECT_GT(after.pieces[before].hostTime, gone - 100'000'000);
    }
    input->stop();
}

// PipeWire wakes a device whenever somebody uses it.
TEST(PulseAudioInputTest, IsInterruptedWhileItsSourceSleeps)
{
    if (SoundServer::installed().front() != SoundServer::Kind::PulseAudio)
        GTEST_SKIP() << "PulseAudio is not installed";
    const SoundServer server(SoundServer::Kind::PulseAudio);
    PulseSoundPlatform sound(server.name());
    Listener listener;
    const auto input = valueOf(sound.openInput(u"mic"_s, {}));
    valueOf(input->start(listener));
    listener.waitForSamples(100);
    for (std::size_t turn = 1; turn <= 2; ++turn) {
        server.pactl({u"suspend-source"_s, u"mic"_s, u"1"_s});
        const auto before = listener.waitUntil(
            [&](const Listener::Recording &r) { return r.interruptions.size() == turn; },
            "the interruption");
        EXPECT_FALSE(input->isRunning());
        // A sleep that the times of what follows must show.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const auto awake = static_cast<std::int64_t>(PXCurrentHostTime());
        server.pactl({u"suspend-source"_s, u"mic"_s, u"0"_s});
        const auto after = listener.waitForSamples(before.samples.size() + 10'000);
        EXPECT_TRUE(input->isRunning());
        EXPECT_GT(after.pieces[before.pieces.size()].hostTime, awake - 100'000'000);
    }
}

TEST_P(PulseSoundInputTest, StopsAtOnceWhateverTheServerDoes)
{
    const struct {
        const char *name;
        std::function<void()> happen;
        std::function<void()> undo;
    } cases[] = {
        {"nothing", [] {}, [] {}},
        {"itHangs", [&] { server.suspend(); }, [&] { server.resume(); }},
        {"itHasGone", [&] { server.kill(); }, [&] { server.start(); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Listener listener;
        const auto input = open(u"mic"_s);
        valueOf(input->start(listener));
        listener.waitForSamples(100);
        c.happen();
        const std::uint64_t before = PXCurrentHostTime();
        input->stop();
        input->stop();
        EXPECT_LT(PXCurrentHostTime() - before, 2'000'000'000U);
        // Where the server is not to be had, a start says so in time.
        const std::uint64_t beforeStart = PXCurrentHostTime();
        const auto started = input->start(listener);
        EXPECT_EQ(started.has_value(), std::string(c.name) == "nothing");
        EXPECT_LT(PXCurrentHostTime() - beforeStart, 5'000'000'000U);
        if (!started) {
            EXPECT_THAT(started.error().description.toStdString(), HasSubstr("sound server"));
        }
        EXPECT_EQ(input->isRunning(), started.has_value());
        input->stop();
        c.undo();
    }
}

TEST_P(PulseSoundInputTest, FailsWhereThereIsNoDeviceAnyMore)
{
    const QString module
        = server.load({u"module-null-sink"_s, u"norewinds=1"_s, u"sink_name=device"_s});
    Listener listener;
    const auto input = open(u"device.monitor"_s);
    server.unload(module);
    const auto started = input->start(listener);
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error().code, PXSoundNoDevice);
    EXPECT_TRUE(listener.recording().interruptions.empty());
}

} // namespace
