#include "platform/pulse/PulseSoundPlatform.h"
#include "foundation/PXClock.h"
#include "tests/pulse/Listener.h"
#include "tests/support/SoundServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace Qt::StringLiterals;
using testing::HasSubstr;

namespace {

const QString kVirtual = QString::fromLatin1(kPXVirtualAudioDeviceUID);

class PulseSoundPlatformTest : public testing::TestWithParam<SoundServer::Kind> {
protected:
    [[nodiscard]] PXAudioDevice output(const QString &uid)
    {
        for (const PXAudioDevice &device : valueOf(sound.outputDevices()))
            if (device.uid == uid)
                return device;
        return {};
    }
    [[nodiscard]] QString uidOfDefaultOutput()
    {
        const PXAudioDeviceID id = valueOf(sound.defaultOutputDevice());
        for (const PXAudioDevice &device : valueOf(sound.outputDevices()))
            if (device.deviceID == id)
                return device.uid;
        return {};
    }
    [[nodiscard]] qsizetype loopbacks() const
    {
        return server.pactl({u"list"_s, u"short"_s, u"modules"_s}).count(u"module-loopback"_s);
    }

    SoundServer server{GetParam()};
    PulseSoundPlatform pulse{server.name()};
    PXSoundPlatform &sound = pulse;
};

INSTANTIATE_TEST_SUITE_P(Servers, PulseSoundPlatformTest,
                         testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

TEST_P(PulseSoundPlatformTest, TheVirtualOutputComesAndGoesWithoutBecomingTheDefault)
{
    EXPECT_EQ(valueOf(sound.isVirtualOutputUsedByOthers()), false);
    for (int turn = 0; turn < 3; ++turn) {
        valueOf(sound.loadVirtualOutput());
        valueOf(sound.loadVirtualOutput());
        const auto outputs = valueOf(sound.outputDevices());
        EXPECT_EQ(std::count_if(outputs.begin(), outputs.end(),
                                [](const PXAudioDevice &each) { return each.uid == kVirtual; }),
                  1);
        EXPECT_EQ(uidOfDefaultOutput(), u"real_out"_s);
        // As a program that was killed leaves it: the servers remember our name as the default.
        valueOf(sound.setDefaultOutputDevice(output(kVirtual).deviceID));
        EXPECT_EQ(uidOfDefaultOutput(), kVirtual);
        valueOf(sound.unloadVirtualOutput());
        valueOf(sound.unloadVirtualOutput());
        EXPECT_EQ(output(kVirtual).deviceID, kPXNoAudioDevice);
        EXPECT_NE(uidOfDefaultOutput(), kVirtual);
        server.pactl({u"set-default-sink"_s, u"real_out"_s});
    }
}

TEST_P(PulseSoundPlatformTest, PlaysOnWhatIsPlayedToTheVirtualOutput)
{
    valueOf(sound.loadVirtualOutput());
    const SoundPlayer player(server.name(), u"tolvane_audio"_s, clicks(), {.latencyMs = 40});
    const auto preview = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"second_out"_s, 0.5));
    Listener listener;
    listener.player = &player;
    const auto input = valueOf(sound.openInput(u"second_out.monitor"_s));
    const PXSoundFormat format = input->format();
    valueOf(input->start(listener));
    const auto recording = listener.waitForSamples(
        static_cast<std::size_t>(format.sampleRate * format.channels) * 4);
    input->stop();
    EXPECT_NEAR(*std::max_element(recording.samples.begin(), recording.samples.end()), 0.4F, 0.08F);
    const std::vector<double> delays = lateness(recording, format, 0.2F);
    ASSERT_GE(delays.size(), 4U);
    EXPECT_GT(delays[delays.size() / 2], 0) << "milliseconds";
    EXPECT_LT(delays[delays.size() / 2], 60) << "milliseconds";
}

TEST_P(PulseSoundPlatformTest, LoopbacksLiveAsLongAsSomebodyRecords)
{
    valueOf(sound.loadVirtualOutput());
    auto preview = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"real_out"_s, 1.0));
    auto shared = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"real_out"_s, 1.0));
    EXPECT_EQ(loopbacks(), 1);
    shared.reset();
    EXPECT_EQ(loopbacks(), 1);
    preview.reset();
    EXPECT_EQ(loopbacks(), 0);

    preview = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"real_out"_s, 1.0));
    Listener listener;
    const auto input = valueOf(sound.openInput(kVirtual));
    valueOf(input->start(listener));
    EXPECT_EQ(valueOf(sound.isVirtualOutputUsedByOthers()), false) << "that is us";
    valueOf(sound.removeOrphans());
    EXPECT_EQ(loopbacks(), 1);
    input->stop();

    QProcess other;
    other.setProcessEnvironment(server.environment());
    // A program of another kind does not count: it must not keep the user's output from him.
    QProcess stranger;
    stranger.setProcessEnvironment(server.environment());
    stranger.start(u"parec"_s, {u"-d"_s, u"tolvane_audio.monitor"_s});
    ASSERT_TRUE(stranger.waitForReadyRead(60'000));
    EXPECT_EQ(valueOf(sound.isVirtualOutputUsedByOthers()), false);
    stranger.kill();
    ASSERT_TRUE(stranger.waitForFinished(60'000));
    other.start(u"parec"_s,
                {u"-d"_s, u"tolvane_audio.monitor"_s, u"--property=tolvane.recording=1"_s});
    ASSERT_TRUE(other.waitForReadyRead(60'000));
    EXPECT_EQ(valueOf(sound.isVirtualOutputUsedByOthers()), true);
    preview.reset();
    EXPECT_EQ(loopbacks(), 1);
    valueOf(sound.removeOrphans());
    EXPECT_EQ(loopbacks(), 1);
    other.kill();
    other.waitForFinished(-1);
    EXPECT_EQ(valueOf(sound.isVirtualOutputUsedByOthers()), false);
    valueOf(sound.removeOrphans());
    EXPECT_EQ(loopbacks(), 0);
}

TEST_P(PulseSoundPlatformTest, WhatTheUserPlaysOnHimselfIsHis)
{
    valueOf(sound.loadVirtualOutput());
    const QString source = u"source=tolvane_audio.monitor"_s;
    const QString his
        = server.load({u"module-loopback"_s, source, u"sink=second_out"_s, u"latency_msec=40"_s});
    // To the same output one is enough: two would be heard twice.
    auto shared = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"second_out"_s, 1.0));
    EXPECT_TRUE(shared->isPlaying());
    EXPECT_EQ(loopbacks(), 1);
    shared.reset();
    EXPECT_EQ(loopbacks(), 1);
    auto preview = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"real_out"_s, 1.0));
    EXPECT_EQ(loopbacks(), 2);
    valueOf(sound.removeOrphans());
    EXPECT_FALSE(preview->isPlaying());
    EXPECT_EQ(loopbacks(), 1);
    preview.reset();
    preview = valueOf(sound.makeAudioPreviewOutput(kVirtual, u"real_out"_s, 1.0));
    valueOf(sound.unloadVirtualOutput());
    EXPECT_EQ(loopbacks(), 1);
    server.unload(his); // It was his until now.
    EXPECT_EQ(loopbacks(), 0);
}

TEST_P(PulseSoundPlatformTest, EachQuestionFailsSoonWithoutAServer)
{
    EXPECT_TRUE(sound.outputDevices());
    server.kill();
    const std::uint64_t before = PXCurrentHostTime();
    const PXError errors[] = {
        sound.inputDevices().error(),
        sound.outputDevices().error(),
        sound.defaultInputDevice().error(),
        sound.defaultOutputDevice().error(),
        sound.setDefaultOutputDevice(1).error(),
        sound.defaultSystemOutputDevice().error(),
        sound.openInput(u"mic"_s).error(),
        sound.makeAudioPreviewOutput(kVirtual, u"real_out"_s, 1.0).error(),
        sound.loadVirtualOutput().error(),
        sound.unloadVirtualOutput().error(),
        sound.isVirtualOutputUsedByOthers().error(),
        sound.removeOrphans().error(),
    };
    EXPECT_LT(PXCurrentHostTime() - before, std::size(errors) * 1'000'000'000);
    for (const PXError &error : errors) {
        EXPECT_EQ(error.domain, kPXSoundErrorDomain);
        EXPECT_THAT(error.description.toStdString(),
                    HasSubstr("Could not reach the sound server: "));
        EXPECT_FALSE(error.suggestion.isEmpty());
    }
    server.start();
    EXPECT_EQ(uidOfDefaultOutput(), u"real_out"_s);
}

} // namespace
