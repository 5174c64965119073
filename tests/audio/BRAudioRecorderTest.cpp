#include "audio/BRAudioRecorder.h"

#include "audio/BRAudioDevices.h"
#include "audio/BRRunEventLoop.h"
#include "foundation/PXClock.h"
#include "foundation/PXDefaults.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "platform/pulse/PulseSoundPlatform.h"
#include "tests/ffmpeg/SoundMaker.h"
#include "tests/pulse/Listener.h"
#include "tests/support/SoundPlayer.h"
#include "tests/support/SoundServer.h"
#include "tests/support/Tone.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <functional>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const QString kVirtual = QString::fromLatin1(kPXVirtualAudioDeviceUID);
constexpr int kMicrophone = 880; ///< Hz of what is played to each.
constexpr int kSystem = 440;
enum Source { Driver = 1, Monitor = 2 };

class AudioRecorderTest : public testing::TestWithParam<SoundServer::Kind>,
                          protected BRAudioRecorderDelegate,
                          protected BRAudioRecorderHost,
                          protected PXAlert {
protected:
    SoundServer server{GetParam()};
    PulseSoundPlatform pulse{server.name()};
    PXSoundPlatform &sound = pulse;
    FFmpegMediaPlatform media;
    QTemporaryDir folder;
    int stops = 0;
    std::vector<PXError> stoppedDueTo;
    QStringList beeps;
    BRAudioRecorder recorder{u"MOVIE"_s, this, *this, sound, media};

    void SetUp() override
    {
        PXDefaults::standardUserDefaults().setArgumentValue(u"moviesFolderPath"_s, folder.path());
        recorder.setAlert(this);
    }
    static void useSource(int source)
    {
        PXDefaults::standardUserDefaults().setArgumentValue(u"systemAudioSource"_s, source);
    }

    void audioRecorderDidStopRecording(BRAudioRecorder &) override { ++stops; }
    void stopRecordingDueToError(const PXError &error) override { stoppedDueTo.push_back(error); }
    std::optional<QString> pathInApplicationSupportFolder(const QString &name) override
    {
        return folder.filePath(name);
    }
    void beep(const QString &message) override { beeps << message; }

    /// As the drop-in does when a server starts. Answers the module's number.
    [[nodiscard]] QString loadDriver() const
    {
        return server.load({u"module-null-sink"_s, u"sink_name=tolvane_audio"_s,
                            u"sink_properties=tolvane.virtual=1"_s, u"norewinds=1"_s});
    }
    void choose(const QString &output)
    {
        server.pactl({u"set-default-sink"_s, output});
        // PipeWire tells each of its clients in its own time.
        EXPECT_TRUE(waitUntil([&] { return uidOfDefaultOutput() == output; }));
    }
    void restartServer()
    {
        server.kill();
        server.start();
    }
    /// Returns when whoever observes the devices has looked at all that has happened until now.
    void letLook()
    {
        bool isSeen = false;
        const PXObservation observation = sound.addDevicesObserver([&] {
            isSeen = isSeen || BRAudioDevices::audioDeviceIDForUID(sound, u"later"_s).has_value();
        });
        const QString module = server.load({u"module-null-sink"_s, u"sink_name=later"_s});
        EXPECT_TRUE(waitUntil([&] { return isSeen; }));
        server.unload(module);
    }
    [[nodiscard]] QString loopback() const
    {
        return server.pactl({u"list"_s, u"short"_s, u"modules"_s})
            .split(u'\n')
            .filter(u"module-loopback"_s)
            .join(u' ');
    }
    QString uidOfDefaultOutput()
    {
        return BRAudioDevices::UIDOfAudioDeviceWithID(sound, valueOf(sound.defaultOutputDevice()))
            .value_or(QString());
    }
    /// Starts with the first frame now; returns when so much of it must have been recorded.
    void record(std::chrono::milliseconds time)
    {
        ASSERT_TRUE(recorder.startRecording());
        recorder.waitForFirstSamples(5s);
        recorder.ignoreSamplesBeforeHostTime(PXCurrentHostTime());
        BRRunEventLoop(time);
    }
    [[nodiscard]] QStringList files() const
    {
        return QDir(folder.filePath(u"MOVIE"_s)).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }
    /// The file that stopping left, mono.
    std::vector<float> recorded() { return recorded(recorder); }
    std::vector<float> recorded(const BRAudioRecorder &by)
    {
        const PXSoundFormat format = valueOf(media.makeSoundExtraction(by.outputFile()))->format();
        rate = format.sampleRate;
        return channelOf<float>(extract<float>(by.outputFile()), format.channels, 0);
    }
    /// Mono, as `recorded()` has it.
    std::vector<float> heardBy(Listener &listener, const PXSoundFormat &format)
    {
        rate = format.sampleRate;
        return channelOf<float>(listener.recording().samples, format.channels, 0);
    }
    std::vector<float> lastSeconds(double seconds, const std::vector<float> &samples) const
    {
        const auto count = static_cast<std::ptrdiff_t>(seconds * rate);
        return std::ssize(samples) < count
            ? std::vector<float>()
            : std::vector<float>(samples.end() - count, samples.end());
    }
    /// A tone's amplitude in each 50 ms of the sound, its ends left out; smallest first.
    std::vector<double> amplitudes(const std::vector<float> &samples, double frequency) const
    {
        const auto window = static_cast<std::size_t>(rate / 20);
        std::vector<double> result;
        for (std::size_t from = 4 * window; from + 4 * window < samples.size(); from += window) {
            result.push_back(
                amplitudeOf(frequency, std::span(samples).subspan(from, window), rate));
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    /// Of all windows but two: neither the servers nor what plays have real-time priority here, and
    /// on a busy machine one of them leaves out what it had no time for.
    double leastAmplitude(const std::vector<float> &samples, double frequency) const
    {
        const auto all = amplitudes(samples, frequency);
        return all.size() < 20 ? 0 : all[2];
    }
    /// For what is played on: the server does that, and on a busy machine it clicks.
    double usualAmplitude(const std::vector<float> &samples, double frequency) const
    {
        const auto all = amplitudes(samples, frequency);
        return all.empty() ? 0 : all[all.size() / 2];
    }
    int rate = 0;
};

TEST_P(AudioRecorderTest, TheMicrophoneAlone)
{
    const SoundPlayer voice(server.name(), u"mic_feed"_s, toneOf(kMicrophone));
    recorder.prepareToRecordDeviceWithUID(u"mic"_s);
    EXPECT_TRUE(recorder.isRecordingMicrophoneAudio());
    record(2s);
    recorder.stopRecording();
    EXPECT_EQ(stops, 1);
    EXPECT_THAT(files(), testing::ElementsAre(u"Brimmet Capture Audio Data 1.mov"_s));
    const std::vector<float> samples = recorded();
    EXPECT_NEAR(static_cast<double>(samples.size()) / rate, 2.0, 0.3);
    EXPECT_NEAR(leastAmplitude(samples, kMicrophone), 0.5, 0.05);
    EXPECT_THAT(beeps, IsEmpty());
    EXPECT_EQ(uidOfDefaultOutput(), u"real_out"_s);
}

TEST_P(AudioRecorderTest, BothSourcesBecomeOneFileAndTheOutputIsPutBack)
{
    for (const int source : {Monitor, Driver}) {
        SCOPED_TRACE(source);
        useSource(source);
        if (source == Driver)
            valueOf(sound.loadVirtualOutput());
        const SoundPlayer voice(server.name(), u"mic_feed"_s, toneOf(kMicrophone));
        const SoundPlayer music(server.name(), QString(), toneOf(kSystem));
        BRAudioRecorder both(u"MOVIE"_s, this, *this, sound, media);
        both.prepareToRecordDeviceWithUID(u"mic"_s);
        both.prepareToRecordSystemAudio();
        ASSERT_TRUE(both.isRecordingSystemAudio());
        EXPECT_EQ(uidOfDefaultOutput(), source == Driver ? kVirtual : u"real_out"_s);
        both.startForPlayThough();
        ASSERT_TRUE(both.startRecording());
        both.waitForFirstSamples(5s);
        BRRunEventLoop(300ms); // What already played has moved by then.
        both.ignoreSamplesBeforeHostTime(PXCurrentHostTime());
        Listener listener; // What the user hears.
        const auto heard = valueOf(sound.openInput(u"real_out.monitor"_s));
        ASSERT_TRUE(heard->start(listener));
        BRRunEventLoop(3s);
        heard->stop();
        both.stopRecording();
        EXPECT_THAT(files(), testing::ElementsAre(u"Brimmet Capture Audio Data 1.mov"_s));
        const std::vector<float> samples = recorded(both);
        EXPECT_GT(leastAmplitude(samples, kMicrophone), 0.45);
        EXPECT_GT(leastAmplitude(samples, kSystem), 0.45);
        EXPECT_EQ(uidOfDefaultOutput(), u"real_out"_s);
        EXPECT_GT(usualAmplitude(heardBy(listener, heard->format()), kSystem), 0.45)
            << "what the user hears";
    }
    EXPECT_THAT(beeps, IsEmpty());
    EXPECT_THAT(stoppedDueTo, IsEmpty());
}

TEST_P(AudioRecorderTest, TheOutputIsTheDriversAsLongAsItIsThereAndNobodyChoseAnother)
{
    useSource(Driver);
    QString driver = loadDriver();
    const auto come = [&] { driver = loadDriver(); };
    const auto go = [&] { server.unload(std::exchange(driver, {})); };
    const auto chooseRealOut = [&] { choose(u"real_out"_s); };
    const auto restart = [&] {
        restartServer(); // "real_out" is the default then.
        driver.clear();
    };
    const struct {
        const char *name;
        std::vector<std::function<void()>> events;
        QString whileRecording;
        QString afterwards;
    } cases[] = {
        {"itGoes", {go}, u"second_out"_s, u"second_out"_s},
        {"itGoesAndComes", {go, come}, kVirtual, u"second_out"_s},
        {"itGoesWithTheServer", {restart}, u"second_out"_s, u"second_out"_s},
        {"itComesAfterTheServer", {restart, come}, kVirtual, u"second_out"_s},
        {"chosen", {chooseRealOut}, u"real_out"_s, u"real_out"_s},
        {"chosenBeforeItGoes", {chooseRealOut, go, come}, u"real_out"_s, u"real_out"_s},
        {"chosenWhileItIsGone", {go, chooseRealOut, come}, u"real_out"_s, u"real_out"_s},
        {"chosenBeforeARestart", {chooseRealOut, restart, come}, u"real_out"_s, u"real_out"_s},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        beeps.clear();
        if (driver.isEmpty())
            come();
        choose(u"second_out"_s);
        BRAudioRecorder own(u"MOVIE"_s, this, *this, sound, media);
        own.prepareToRecordSystemAudio();
        ASSERT_EQ(uidOfDefaultOutput(), kVirtual);
        ASSERT_TRUE(own.startRecording());
        letLook();
        for (const auto &happen : c.events) {
            happen();
            letLook();
        }
        EXPECT_EQ(uidOfDefaultOutput(), c.whileRecording);
        EXPECT_EQ(loopback().contains(u"sink=second_out"_s), !driver.isEmpty());
        own.stopRecording();
        EXPECT_EQ(uidOfDefaultOutput(), c.afterwards);
        EXPECT_EQ(loopback(), QString());
        EXPECT_LE(beeps.size(), 1) << beeps.join(u'\n').toStdString();
        // Servers remember the name of the default output and choose it again when it comes.
        if (driver.isEmpty())
            come();
        letLook();
        EXPECT_EQ(uidOfDefaultOutput(), c.afterwards);
    }
}

TEST_P(AudioRecorderTest, TheDriverIsRecordedAndHeardAgainAfterARestartOfTheServer)
{
    useSource(Driver);
    (void)loadDriver();
    choose(u"second_out"_s);
    recorder.prepareToRecordSystemAudio();
    record(1s);
    restartServer();
    (void)loadDriver();
    EXPECT_TRUE(waitUntil([&] { return !loopback().isEmpty(); }));
    const SoundPlayer music(server.name(), QString(), toneOf(kSystem));
    Listener listener;
    const auto heard = valueOf(sound.openInput(u"second_out.monitor"_s));
    valueOf(heard->start(listener));
    const auto size = [&] {
        return QFileInfo(folder.filePath(u"MOVIE/Brimmet Capture Audio Data 2.mov"_s)).size();
    };
    // Two seconds of the tone; of silence there is next to nothing.
    EXPECT_TRUE(waitUntil([&, before = size()] { return size() > before + 70'000; }));
    heard->stop();
    recorder.stopRecording();
    EXPECT_GT(leastAmplitude(lastSeconds(1.5, recorded()), kSystem), 0.45);
    EXPECT_GT(usualAmplitude(lastSeconds(1.5, heardBy(listener, heard->format())), kSystem), 0.45)
        << "what the user hears";
    ASSERT_EQ(beeps.size(), 1);
    EXPECT_THAT(beeps[0].toStdString(), HasSubstr("goes on without the system audio"));
    EXPECT_EQ(uidOfDefaultOutput(), u"second_out"_s);
    EXPECT_EQ(loopback(), QString());
}

TEST_P(AudioRecorderTest, TheOutputOfAlertSoundsIsTheOnePlayedOnTo)
{
    useSource(Driver);
    valueOf(sound.loadVirtualOutput());
    valueOf(sound.setDefaultSystemOutputDevice(
        valueOf(BRAudioDevices::audioDeviceIDForUID(sound, u"second_out"_s))));
    ASSERT_EQ(uidOfDefaultOutput(), u"real_out"_s);
    recorder.prepareToRecordSystemAudio();
    EXPECT_EQ(uidOfDefaultOutput(), kVirtual);
    EXPECT_THAT(server.pactl({u"list"_s, u"short"_s, u"modules"_s}).toStdString(),
                HasSubstr("sink=second_out latency_msec"));
    recorder.stopRecording();
    EXPECT_EQ(uidOfDefaultOutput(), u"second_out"_s);
}

TEST_P(AudioRecorderTest, WithoutItsLoudspeakersTheUserHearsByOthers)
{
    useSource(Driver);
    const QString speakers
        = server.load({u"module-null-sink"_s, u"sink_name=usb_out"_s, u"norewinds=1"_s});
    valueOf(sound.loadVirtualOutput());
    valueOf(sound.setDefaultOutputDevice(
        valueOf(BRAudioDevices::audioDeviceIDForUID(sound, u"usb_out"_s))));
    const SoundPlayer music(server.name(), QString(), toneOf(kSystem));
    recorder.prepareToRecordSystemAudio();
    record(500ms);
    server.unload(speakers);
    EXPECT_TRUE(waitUntil(
        [&] { return loopback().contains(u"sink="_s) && !loopback().contains(u"usb_out"_s); }));
    recorder.stopRecording();
    EXPECT_NE(uidOfDefaultOutput(), kVirtual);
    EXPECT_EQ(loopback(), QString());
}

TEST_P(AudioRecorderTest, TheMonitorFollowsTheUserToAnotherOutput)
{
    useSource(Monitor);
    const SoundPlayer music(server.name(), QString(), toneOf(kSystem));
    recorder.prepareToRecordSystemAudio();
    record(1s);
    ASSERT_TRUE(sound.setDefaultOutputDevice(
        valueOf(BRAudioDevices::audioDeviceIDForUID(sound, u"second_out"_s))));
    BRRunEventLoop(3s);
    recorder.stopRecording();
    const std::vector<float> samples = recorded();
    ASSERT_GT(samples.size(), static_cast<std::size_t>(3 * rate));
    // Moving takes a moment, in which nothing can be heard.
    EXPECT_GT(leastAmplitude(lastSeconds(1.5, samples), kSystem), 0.45);
    EXPECT_EQ(uidOfDefaultOutput(), u"second_out"_s);
}

TEST_P(AudioRecorderTest, WithoutDriverWhereOnlyThatIsAllowedSystemAudioIsOff)
{
    useSource(Driver);
    recorder.prepareToRecordSystemAudio();
    EXPECT_FALSE(recorder.isRecordingSystemAudio());
    EXPECT_THAT(beeps,
                testing::ElementsAre(u"Tolvane can't record system audio because the kernel "
                                     u"extension is not installed."_s));
    EXPECT_EQ(uidOfDefaultOutput(), u"real_out"_s);
    record(100ms);
    recorder.stopRecording();
    EXPECT_EQ(stops, 1);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_P(AudioRecorderTest, AnOutputThatDeliversNothingEndsTheRecordingButKeepsTheMicrophone)
{
    useSource(Monitor);
    const SoundPlayer voice(server.name(), u"mic_feed"_s, toneOf(kMicrophone));
    recorder.prepareToRecordDeviceWithUID(u"mic"_s);
    recorder.prepareToRecordSystemAudio();
    // PipeWire wakes whatever somebody listens to: there it is the server that says nothing more.
    const bool isAsleep = GetParam() == SoundServer::Kind::PulseAudio;
    if (isAsleep)
        server.pactl({u"suspend-sink"_s, u"real_out"_s, u"1"_s});
    ASSERT_TRUE(recorder.startRecording());
    recorder.waitForFirstSamples(500ms);
    if (!isAsleep)
        server.suspend();
    recorder.ignoreSamplesBeforeHostTime(PXCurrentHostTime());
    EXPECT_TRUE(waitUntil([&] { return !stoppedDueTo.empty(); }));
    recorder.stopRecording();
    server.resume();
    EXPECT_EQ(stops, 1);
    ASSERT_EQ(stoppedDueTo.size(), 1U);
    EXPECT_EQ(stoppedDueTo[0].description, u"Tolvane did not start recording system audio."_s);
    EXPECT_THAT(beeps, IsEmpty());
    if (isAsleep) {
        EXPECT_GT(leastAmplitude(recorded(), kMicrophone), 0.45);
    }
}

TEST_P(AudioRecorderTest, AServerThatDiesCostsNoMoreThanItsTime)
{
    useSource(Monitor);
    {
        const SoundPlayer music(server.name(), QString(), toneOf(kSystem));
        recorder.prepareToRecordSystemAudio();
        record(2s);
    }
    server.kill();
    EXPECT_TRUE(waitUntil([&] { return !beeps.isEmpty(); }));
    ASSERT_EQ(beeps.size(), 1);
    EXPECT_THAT(beeps[0].toStdString(), HasSubstr("goes on without the system audio"));
    server.start();
    const SoundPlayer music(server.name(), QString(), toneOf(kSystem));
    BRRunEventLoop(4s);
    recorder.stopRecording();
    const std::vector<float> samples = recorded();
    EXPECT_GT(samples.size(), static_cast<std::size_t>(5 * rate)) << "the gap is silence";
    const std::vector<float> before(samples.begin(), samples.begin() + 3 * rate / 2);
    EXPECT_GT(leastAmplitude(before, kSystem), 0.45);
    EXPECT_GT(leastAmplitude(lastSeconds(1.5, samples), kSystem), 0.45);
}

INSTANTIATE_TEST_SUITE_P(Servers, AudioRecorderTest, testing::ValuesIn(SoundServer::installed()),
                         [](const auto &kind) { return testing::PrintToString(kind.param); });

} // namespace
