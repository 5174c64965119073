#include "tests/app/cli/CommandLine.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/SoundPlayer.h"
#include "tests/support/SoundServer.h"
#include "tests/support/Tone.h"

#include <gmock/gmock.h>

#include <cstring>

using namespace Qt::StringLiterals;
using testing::HasSubstr;

namespace {

constexpr int kRate = 48000;
constexpr int kVoice = 880; ///< Hz of what the microphone hears,
constexpr int kMusic = 440; ///< and of what the computer plays.

/// The program with a sound server of its own.
class SoundTest : public CommandLineTest {
protected:
    explicit SoundTest(SoundServer::Kind kind = SoundServer::installed().front()) : server(kind) { }

    SoundServer server;

    [[nodiscard]] Variables variables() const { return {{u"PULSE_SERVER"_s, server.name()}}; }
    [[nodiscard]] QString movies() const { return path(u"Movies"_s); }
    /// What another program answers.
    static QByteArray outputOf(const QString &program, const QStringList &arguments)
    {
        QProcess process;
        process.start(program, arguments);
        EXPECT_TRUE(process.waitForFinished(60'000)) << program.toStdString();
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        return process.readAllStandardOutput();
    }
    /// The amplitude of a tone in the middle second of a movie's sound.
    [[nodiscard]] double amplitudeOf(double frequency, const QString &movie) const
    {
        const QByteArray bytes
            = outputOf(u"ffmpeg"_s,
                       words("-v error -i")
                           << movie << words("-map 0:a:0 -af pan=mono|c0=c0 -ar 48000 -f f32le -"));
        std::vector<float> samples(static_cast<std::size_t>(bytes.size()) / sizeof(float));
        std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(float));
        if (samples.size() < kRate)
            return 0;
        return ::amplitudeOf(
            frequency, std::span(samples).subspan((samples.size() - kRate) / 2, kRate), kRate);
    }
    [[nodiscard]] QString tracksOf(const QString &movie) const
    {
        return QString::fromUtf8(
                   outputOf(
                       u"ffprobe"_s,
                       words(
                           "-v error -show_entries stream=codec_name,codec_tag_string -of csv=p=0")
                           << movie))
            .simplified();
    }
    void loadDriver() const
    {
        (void)server.load({u"module-null-sink"_s, u"sink_name=tolvane_audio"_s,
                           u"sink_properties=tolvane.virtual=1"_s, u"norewinds=1"_s});
        // PipeWire shows it some time later, and may turn to it for a moment.
        waitUntil(
            [&] {
                return server.pactl({u"list"_s, u"short"_s, u"sinks"_s})
                    .contains(u"tolvane_audio"_s);
            },
            "the driver");
        (void)server.pactl({u"set-default-sink"_s, u"real_out"_s});
        waitUntil([&] { return defaultOutput() == u"real_out"; }, "the user's output");
    }
    [[nodiscard]] QString defaultOutput() const
    {
        return server.pactl({u"get-default-sink"_s}).trimmed();
    }
    [[nodiscard]] QString modules() const
    {
        return server.pactl({u"list"_s, u"short"_s, u"modules"_s});
    }
    QString recordBoth()
    {
        const SoundPlayer voice(server.name(), u"mic_feed"_s, toneOf(kVoice));
        const SoundPlayer music(server.name(), u"real_out"_s, toneOf(kMusic));
        const Outcome outcome
            = run(words("record --microphone --system-audio --duration 3 --movies-folder ~/Movies"),
                  variables());
        EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
        EXPECT_EQ(outcome.errors, QString());
        return outcome.output.trimmed();
    }
};

/// For what the servers do differently.
class SoundServersTest : public SoundTest, public testing::WithParamInterface<SoundServer::Kind> {
protected:
    SoundServersTest() : SoundTest(GetParam()) { }
};

INSTANTIATE_TEST_SUITE_P(Servers, SoundServersTest, testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

struct AudioCodec {
    const char *argument;
    const char *tracks; ///< As ffprobe lists them.
};

TEST_F(SoundTest, BothSourcesComeOutOfTheExportInEveryCodec)
{
    const QString movie = recordBoth();
    EXPECT_EQ(tracksOf(movie + u"/Brimmet Capture Audio Data 1.mov"_s),
              u"pcm_s16le,sowt aac,mp4a"_s);
    constexpr AudioCodec kCodecs[] = {
        {"aac", "h264,avc1 aac,mp4a"},        {"alac", "h264,avc1 alac,alac"},
        {"pcm", "h264,avc1 pcm_s16le,sowt"},  {"ima4", "h264,avc1 adpcm_ima_qt,ima4"},
        {"ulaw", "h264,avc1 pcm_mulaw,ulaw"},
    };
    for (const auto &[argument, tracks] : kCodecs) {
        SCOPED_TRACE(argument);
        const QString exported = path(QLatin1String(argument) + u".mov"_s);
        const Outcome outcome = run(
            {u"export"_s, movie, u"-o"_s, exported, u"--audio-codec"_s, QLatin1String(argument)});
        EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
        EXPECT_EQ(outcome.output.trimmed(), exported);
        EXPECT_EQ(tracksOf(exported), QLatin1String(tracks));
        // Each was played at an amplitude of a half.
        EXPECT_NEAR(amplitudeOf(kVoice, exported), 0.5, 0.06);
        EXPECT_NEAR(amplitudeOf(kMusic, exported), 0.5, 0.06);
    }
    const QString silent = path(u"silent.mov"_s);
    EXPECT_EQ(run({u"export"_s, movie, u"-o"_s, silent, u"--no-audio"_s}).status, 0);
    EXPECT_EQ(tracksOf(silent), u"h264,avc1"_s);
    // What an argument chose is no setting.
    EXPECT_EQ(run({u"export"_s, movie, u"-o"_s, path(u"last.mov"_s)}).status, 0);
    EXPECT_EQ(tracksOf(path(u"last.mov"_s)), u"h264,avc1 aac,mp4a"_s);

    // A sound file that nobody can read costs the sound and not the picture.
    ASSERT_TRUE(QFile::resize(movie + u"/Brimmet Capture Audio Data 1.mov"_s, 100));
    const Outcome outcome = run({u"export"_s, movie, u"-o"_s, path(u"damaged.mov"_s)});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors.toStdString(), HasSubstr("has no sound: "));
    EXPECT_EQ(outcome.errors.count(u'\n'), 1);
    EXPECT_EQ(tracksOf(path(u"damaged.mov"_s)), u"h264,avc1"_s);
}

TEST_F(SoundTest, SaysInALineWhatItCannotRecord)
{
    const Variables noServer = {{u"PULSE_SERVER"_s, u"unix:/nonexistent"_s}};
    const struct {
        const char *argument;
        Variables variables;
        const char *error;
    } cases[] = {{"--microphone=nowhere", variables(), "There is no microphone \"nowhere\""},
                 {"--microphone", noServer, "sound server"},
                 {"--system-audio", noServer, "sound server"}};
    for (const auto &[argument, variables, error] : cases) {
        SCOPED_TRACE(argument);
        const Outcome outcome = run(
            words("record --duration 1 --movies-folder ~/Movies") + words(argument), variables);
        EXPECT_EQ(outcome.status, 5);
        EXPECT_EQ(outcome.output, QString());
        EXPECT_THAT(outcome.errors.toStdString(), HasSubstr(error));
        EXPECT_EQ(outcome.errors.count(u'\n'), 1) << outcome.errors.toStdString();
    }
    EXPECT_FALSE(QDir(movies()).exists() && !QDir(movies()).isEmpty());
}

TEST_P(SoundServersTest, OfTwoThatUseTheDriverTheLastGivesTheOutputBack)
{
    loadDriver();
    const SoundPlayer music(server.name(), QString(), toneOf(kMusic));
    QProcess first;
    QProcess second;
    start(first, words("record --system-audio --movies-folder ~/first"), variables());
    movieWithFramesIn(path(u"first"_s));
    start(second, words("record --system-audio --movies-folder ~/second"), variables());
    const QString movie = movieWithFramesIn(path(u"second"_s));
    send(first, SIGINT);
    EXPECT_EQ(outcomeOf(first).status, 0);
    EXPECT_EQ(defaultOutput(), u"tolvane_audio"_s) << "the other still records from it";
    waitUntil(
        [&] { return QFileInfo(movie + u"/Brimmet Capture Audio Data 2.mov"_s).size() > 70'000; },
        "sound");
    send(second, SIGINT);
    EXPECT_EQ(outcomeOf(second).status, 0);
    EXPECT_EQ(defaultOutput(), u"real_out"_s);
    EXPECT_FALSE(modules().contains(u"loopback"_s));
    EXPECT_NEAR(amplitudeOf(kMusic, movie + u"/Brimmet Capture Audio Data 1.mov"_s), 0.5, 0.06);
}

TEST_F(SoundTest, StoppedBeforeTheFirstSampleItLeavesNothing)
{
    // A microphone that gives nothing: the sound is waited for.
    (void)server.load(
        {u"module-pipe-source"_s, u"source_name=still"_s, u"file="_s + path(u"pipe"_s)});
    QProcess recorder;
    start(recorder, words("record --microphone=still --movies-folder ~/Movies"), variables());
    waitUntil(
        [&] { return !QDir(movies()).entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty(); },
        "the movie's folder");
    send(recorder, SIGINT);
    const Outcome outcome = outcomeOf(recorder);
    if (outcome.status == 0)
        GTEST_SKIP() << "the machine was too slow: recording had begun";
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, u"tolvane: The recording was stopped before its first frame\n"_s);
    EXPECT_TRUE(QDir(movies()).isEmpty());
}

TEST_P(SoundServersTest, AKilledRecordingLeavesItsSoundAndTheUsersOutput)
{
    loadDriver();
    const SoundPlayer voice(server.name(), u"mic_feed"_s, toneOf(kVoice));
    const SoundPlayer music(server.name(), QString(), toneOf(kMusic));
    QProcess recorder;
    start(recorder, words("record --microphone --system-audio --movies-folder ~/Movies"),
          variables());
    waitUntil([&] { return defaultOutput() == u"tolvane_audio"; }, "the switch");
    const QString movie = movieWithFramesIn(movies());
    ASSERT_FALSE(HasFailure()) << outcomeOf(recorder).errors.toStdString();
    const QString sound = movie + u"/Brimmet Capture Audio Data 2.mov"_s;
    // So that there are two whole seconds of AAC in it. The exported sound ends with the picture.
    PaintedWindow window(display(), {0, 0, 8, 8});
    waitUntil(
        [&, color = 0U]() mutable {
            window.fill({0, 0, 8, 8}, ++color);
            return QFileInfo(sound).size() > 70'000;
        },
        "sound");
    send(recorder, SIGKILL);
    recorder.waitForFinished();
    waitUntil([&] { return defaultOutput() == u"real_out"; }, "the user's output");
    waitUntil([&] { return !modules().contains(u"loopback"_s); }, "the end of what was played on");
    EXPECT_NEAR(amplitudeOf(kMusic, sound), 0.5, 0.06);

    const QString exported = path(u"exported.mov"_s);
    const Outcome outcome = run({u"export"_s, movie, u"-o"_s, exported});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.errors.contains(u"lacks what the computer played"_s))
        << outcome.errors.toStdString();
    EXPECT_EQ(tracksOf(exported), u"h264,avc1 aac,mp4a"_s);
    EXPECT_NEAR(amplitudeOf(kVoice, exported), 0.5, 0.06);
}

} // namespace
