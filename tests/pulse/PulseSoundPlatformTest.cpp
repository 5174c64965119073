#include "platform/pulse/PulseSoundPlatform.h"
#include "foundation/PXClock.h"
#include "tests/pulse/Listener.h"
#include "tests/support/SoundServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <algorithm>
#include <set>

using namespace Qt::StringLiterals;
using testing::HasSubstr;

namespace {

const QString kVirtual = QString::fromLatin1(kPXVirtualAudioDeviceUID);

class PulseSoundPlatformTest : public testing::TestWithParam<SoundServer::Kind> {
protected:
    [[nodiscard]] PXAudioDevice output(const QString &uid)
    {
        return only(valueOf(sound.outputDevices()), uid);
    }
    [[nodiscard]] static PXAudioDevice only(const std::vector<PXAudioDevice> &devices,
                                            const QString &uid)
    {
        const auto found
            = std::find_if(devices.begin(), devices.end(),
                           [&](const PXAudioDevice &device) { return device.uid == uid; });
        return found == devices.end() ? PXAudioDevice() : *found;
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

TEST_P(PulseSoundPlatformTest, ListsWhatIsThere)
{
    valueOf(sound.loadVirtualOutput());
    const auto outputs = valueOf(sound.outputDevices());
    const auto inputs = valueOf(sound.inputDevices());
    std::set<PXAudioDeviceID> ids = {kPXNoAudioDevice};
    for (const auto *list : {&outputs, &inputs})
        for (const PXAudioDevice &device : *list)
            EXPECT_TRUE(ids.insert(device.deviceID).second) << device.uid.toStdString();

    const PXAudioDeviceID mic = only(inputs, u"mic"_s).deviceID;
    EXPECT_EQ(valueOf(sound.defaultInputDevice()), mic);
    EXPECT_EQ(only(inputs, u"mic"_s).monitoredOutput, kPXNoAudioDevice);
    EXPECT_EQ(only(outputs, kVirtual).name, u"Tolvane Audio"_s);
    for (const auto &[input, output] :
         {std::pair(u"real_out.monitor"_s, u"real_out"_s), std::pair(kVirtual, kVirtual)})
        EXPECT_EQ(only(inputs, input).monitoredOutput, only(outputs, output).deviceID);
}

TEST_P(PulseSoundPlatformTest, TheDefaultOutputIsWhatWasJustSet)
{
    for (int turn = 0; turn < 5; ++turn) {
        for (const QString &uid : {u"second_out"_s, u"real_out"_s}) {
            const PXAudioDeviceID id = output(uid).deviceID;
            valueOf(sound.setDefaultOutputDevice(id));
            EXPECT_EQ(valueOf(sound.defaultOutputDevice()), id);
        }
    }
    const auto wrong = sound.setDefaultOutputDevice(4711);
    ASSERT_FALSE(wrong);
    EXPECT_EQ(wrong.error().code, PXSoundNoDevice);
    EXPECT_THAT(wrong.error().description.toStdString(), HasSubstr("4711"));
}

TEST_P(PulseSoundPlatformTest, AlertSoundsFollowTheDefaultUnlessARuleNamesAnOutput)
{
    const PXAudioDeviceID realOut = output(u"real_out"_s).deviceID;
    EXPECT_EQ(valueOf(sound.defaultSystemOutputDevice()), realOut);
    const QString module = server.load({u"module-null-sink"_s, u"sink_name=headset"_s});
    const PXAudioDeviceID headset = output(u"headset"_s).deviceID;
    valueOf(sound.setDefaultSystemOutputDevice(headset));
    EXPECT_EQ(valueOf(sound.defaultSystemOutputDevice()), headset);
    EXPECT_EQ(valueOf(sound.defaultOutputDevice()), realOut);
    server.unload(module);
    EXPECT_EQ(valueOf(sound.defaultSystemOutputDevice()), realOut);
}

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

TEST_P(PulseSoundPlatformTest, TellsWhenDevicesChange)
{
    // What a listener finds when it looks just then; empty without a server.
    std::set<QString> seen;
    QString seenDefault;
    int calls = 0;
    PXObservation observation = sound.addDevicesObserver([&] {
        ++calls;
        seen.clear();
        for (const PXAudioDevice &each :
             sound.outputDevices().value_or(std::vector<PXAudioDevice>()))
            seen.insert(each.uid);
        seenDefault = seen.empty() ? QString() : uidOfDefaultOutput();
    });
    const auto waitUntil = [&](const std::function<bool()> &isTrue, const char *what) {
        const QDeadlineTimer deadline(60'000);
        while (!isTrue() && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        EXPECT_TRUE(isTrue()) << what;
    };
    const auto isThere
        = [&](const QString &uid) { return [&seen, uid] { return seen.contains(uid); }; };
    // What changes before the watch listens is no news to it.
    for (const QDeadlineTimer deadline(60'000); calls == 0 && !deadline.hasExpired();) {
        server.unload(server.load({u"module-null-sink"_s, u"sink_name=another"_s}));
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    const QString module = server.load({u"module-null-sink"_s, u"sink_name=headset"_s});
    waitUntil(isThere(u"headset"_s), "an output came");
    server.unload(module);
    waitUntil([&] { return !seen.contains(u"headset"_s); }, "an output went");
    // PipeWire now and then tells a client nothing of one change, and all of the next.
    for (const QDeadlineTimer deadline(60'000);
         seenDefault != u"second_out"_s && !deadline.hasExpired();) {
        server.pactl({u"set-default-sink"_s, u"real_out"_s});
        server.pactl({u"set-default-sink"_s, u"second_out"_s});
        const QDeadlineTimer patience(1000);
        while (seenDefault != u"second_out"_s && !patience.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    EXPECT_EQ(seenDefault, u"second_out"_s);
    server.kill();
    waitUntil([&] { return seen.empty(); }, "the server went");
    server.start();
    waitUntil(isThere(u"real_out"_s), "the server came");

    observation.end();
    PXObservation second = sound.addDevicesObserver([&] { seen = {u"second"_s}; });
    const int before = calls;
    server.load({u"module-null-sink"_s, u"sink_name=headset"_s});
    waitUntil(isThere(u"second"_s), "the other observer");
    EXPECT_EQ(calls, before);
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
