#include "platform/canberra/CanberraSoundPlayer.h"

#include "foundation/BRLog.h"
#include "foundation/PXMutex.h"
#include "platform/pulse/PulseSoundPlatform.h"
#include "tests/pulse/Listener.h"
#include "tests/support/SoundServer.h"
#include "tests/support/Tone.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QStringList>
#include <QTemporaryDir>

#include <cmath>
#include <thread>

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

const PXSoundFormat kMono{48000, 1, 4, PXSampleType::Float32};

/// What an output's monitor gives.
struct Monitor {
    Monitor(PXSoundPlatform &sound, const QString &output)
    {
        // What has just been made, PipeWire shows to others some time later.
        auto opened = sound.openInput(output + u".monitor"_s, kMono);
        for (const QDeadlineTimer deadline(60'000); !opened && !deadline.hasExpired();)
            opened = sound.openInput(output + u".monitor"_s, kMono);
        input = valueOf(std::move(opened));
        valueOf(input->start(listener));
        listener.waitForSamples(1);
    }

    Listener listener;
    std::unique_ptr<PXSoundInput> input;
};

bool isLoud(float sample)
{
    return std::abs(sample) > 0.01F;
}

/// Where the sound began and how long it was, in samples; nothing before it is over.
struct Heard {
    std::ptrdiff_t first = 0;
    std::ptrdiff_t length = 0;
};
Heard soundIn(const std::vector<float> &samples)
{
    const auto first = std::find_if(samples.begin(), samples.end(), isLoud);
    const auto last = std::find_if(samples.rbegin(), samples.rend(), isLoud);
    // Over when nothing came for a quarter of a second, which is longer than Morse's gap.
    if (first == samples.end() || last - samples.rbegin() < kMono.sampleRate / 4)
        return {};
    return {first - samples.begin(), last.base() - first};
}

/// How much of it is a tone of that frequency, 0…1.
double shareOf(double frequency, std::span<const float> samples)
{
    const double amplitude = amplitudeOf(frequency, samples, kMono.sampleRate);
    double power = 0;
    for (const float sample : samples)
        power += double(sample) * sample;
    return amplitude * amplitude * double(samples.size()) / (2 * power);
}

PXMutex logLock;
QStringList logged PX_GUARDED_BY(logLock);

/// Waits for a line of the log; lines that came are forgotten at each new test.
QStringList waitForLog(int lines)
{
    for (const QDeadlineTimer deadline(60'000); !deadline.hasExpired(); std::this_thread::yield()) {
        const PXLock lock(logLock);
        if (logged.size() >= lines)
            return logged;
    }
    throw std::runtime_error("waited in vain for the log");
}

class Log {
public:
    Log()
    {
        const PXLock lock(logLock);
        logged.clear();
        BRSetLogListener([](int, const QString &message) {
            const PXLock inner(logLock);
            logged << message;
        });
    }
    ~Log() { BRSetLogListener(nullptr); }
};

class CanberraSoundPlayerTest : public testing::TestWithParam<SoundServer::Kind> {
protected:
    CanberraSoundPlayerTest() { qputenv("PULSE_SERVER", server.name().toUtf8()); }
    ~CanberraSoundPlayerTest() override { qunsetenv("PULSE_SERVER"); }

    SoundServer server{GetParam()};
    PulseSoundPlatform sound{server.name()};
};

INSTANTIATE_TEST_SUITE_P(Servers, CanberraSoundPlayerTest,
                         testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

TEST_P(CanberraSoundPlayerTest, SoundsAreHeardWhereTheyShallAndNowhereElse)
{
    const struct {
        const char *name;
        QString sound;
        QString device;
        QString heardOn;
        QString silentOn;
        double length;
        double leastTone; ///< The share of Morse's pitch.
        double mostTone;
    } rows[] = {
        {"morseToTheDefault", u"Morse"_s, u""_s, u"real_out"_s, u"second_out"_s, 0.18, 0.5, 1},
        {"blow", u"Blow"_s, u"second_out"_s, u"second_out"_s, u"real_out"_s, 0.55, 0, 0.2},
    };
    CanberraSoundPlayer player;
    player.prepare();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Monitor wanted(sound, row.heardOn);
        Monitor other(sound, row.silentOn);
        player.setOutputDevice(row.device);
        player.play(row.sound);
        const auto samples
            = wanted.listener
                  .waitUntil(
                      [](const Listener::Recording &r) { return soundIn(r.samples).length > 0; },
                      "the sound")
                  .samples;
        const Heard heard = soundIn(samples);
        EXPECT_NEAR(double(heard.length) / kMono.sampleRate, row.length, 0.12);
        const double tone = shareOf(1046.5, std::span(samples).subspan(heard.first, heard.length));
        EXPECT_GE(tone, row.leastTone);
        EXPECT_LE(tone, row.mostTone);

        const auto silent = other.listener.waitForSamples(samples.size()).samples;
        EXPECT_TRUE(std::none_of(silent.begin(), silent.end(), isLoud));
    }
}

TEST_P(CanberraSoundPlayerTest, AServerThatWasStartedAnewIsFound)
{
    const Log log;
    CanberraSoundPlayer player;
    player.play(u"Morse"_s);
    server.kill();
    player.play(u"Morse"_s);
    waitForLog(1);
    server.start();
    Monitor monitor(sound, u"real_out"_s);
    player.play(u"Blow"_s);
    monitor.listener.waitUntil(
        [](const Listener::Recording &r) {
            return std::any_of(r.samples.begin(), r.samples.end(), isLoud);
        },
        "the sound");
}

TEST_P(CanberraSoundPlayerTest, AServerThatHangsHoldsNobodyUp)
{
    CanberraSoundPlayer player;
    server.suspend();
    player.play(u"Morse"_s);
    player.play(u"Blow"_s);
    server.resume();
}

TEST(CanberraSoundPlayer, WhatCannotBePlayedIsOneLineInTheLog)
{
    const QTemporaryDir folder;
    qputenv("PULSE_SERVER", "unix:" + folder.path().toUtf8() + "/nobody");
    {
        const Log log;
        CanberraSoundPlayer player;
        player.play(u"Morse"_s);
        player.play(u"Morse"_s);
        player.play(u"Squeak"_s);
        EXPECT_THAT(
            waitForLog(2),
            ElementsAre(u"The sound \"Morse\" cannot be played: Not available"_s,
                        u"The sound \"Squeak\" cannot be played: File or data not found"_s));
    }
    qunsetenv("PULSE_SERVER");
}

} // namespace
