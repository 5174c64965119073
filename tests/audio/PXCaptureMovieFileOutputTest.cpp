#include "audio/PXCaptureMovieFileOutput.h"

#include "platform/PXCodec.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "tests/ffmpeg/SoundMaker.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/Sanitizers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <cmath>
#include <numbers>
#include <ostream>
#include <random>

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

constexpr int kRate = 48000;
constexpr double kStart = 5000; ///< Host seconds at which the file begins.

/// What the source of a test is like, and what befalls it.
struct Source {
    const char *name;
    double ppm; ///< Its clock, above 0 fast.
    double wander; ///< Seconds that its times swing.
    double firstSample; ///< Seconds after the file's beginning.
    double goneFrom; ///< It is unplugged from then on,
    double goneUntil; ///< seconds after the file's beginning.
    double silentFor; ///< Seconds it says nothing of, as a server that was overrun.
    double wrongFrom = 1e9; ///< For a moment it is half a second off.
};

void PrintTo(const Source &source, std::ostream *out)
{
    *out << source.name;
}

constexpr Source kSources[] = {
    {"exact", 0, 0, 0, 0, 0, 0},          {"fast", 200, 0.001, -0.5, 0, 0, 0},
    {"slow", -200, 0.001, -0.5, 0, 0, 0}, {"wanders", 0, 0.006, -0.5, 0, 0, 0},
    {"beginsLate", 0, 0, 1.5, 0, 0, 0},   {"isUnplugged", 0, 0, -0.5, 20.25, 24.75, 0},
    {"isOverrun", 0, 0, -0.5, 0, 0, 3},   {"guessesWrong", 0, 0, -0.5, 0, 0, 0, 40},
};

class MovieFileOutputTest : public testing::Test, protected PXCaptureMovieFileOutputDelegate {
protected:
    QTemporaryDir _folder;
    FFmpegMediaPlatform _media;
    QStringList _events;

    [[nodiscard]] QString path() const { return _folder.filePath(u"Sound.mov"_s); }

    void captureOutputDidOutputSampleBuffer(PXCaptureMovieFileOutput &output,
                                            const PXSoundBuffer &buffer) override
    {
        const auto start = static_cast<std::uint64_t>(kStart * 1e9);
        if (_events.isEmpty() && buffer.hostTime >= start)
            output.recordToOutputFile(path(), start);
    }
    void captureOutputWillStartRecording(PXCaptureMovieFileOutput &, const QString &) override
    {
        _events << u"will start"_s;
    }
    void captureOutputDidStartRecording(PXCaptureMovieFileOutput &, const QString &) override
    {
        _events << u"did start"_s;
    }
    void captureOutputMustChangeOutputFile(PXCaptureMovieFileOutput &, const QString &,
                                           const PXError &) override
    {
        _events << u"must change"_s;
    }
    void captureOutputWillFinishRecording(PXCaptureMovieFileOutput &, const QString &,
                                          const std::optional<PXError> &error) override
    {
        _events << (error ? u"will finish with an error"_s : u"will finish"_s);
    }
    void captureOutputDidFinishRecording(PXCaptureMovieFileOutput &, const QString &,
                                         const std::optional<PXError> &error) override
    {
        _events << (error ? u"did finish with an error"_s : u"did finish"_s);
    }

    /// All that is in the file, mono.
    std::vector<float> recorded()
    {
        const auto extraction = _media.makeSoundExtraction(path());
        const int channels = extraction.value()->format().channels;
        return channelOf<float>(extract<float>(path()), channels, 0);
    }
};

class MovieFileOutputSourceTest : public MovieFileOutputTest,
                                  public testing::WithParamInterface<Source> { };

/// The host seconds after the file's beginning at which each second's click should be.
std::vector<double> clicksIn(const std::vector<float> &samples)
{
    std::vector<double> clicks;
    double last = -1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double time = static_cast<double>(i) / kRate;
        if (std::abs(samples[i]) > 0.4F && time - last > 0.5) {
            clicks.push_back(time);
            last = time;
        }
    }
    return clicks;
}

// Two minutes of a source in a second or two: the samples carry their times.
TEST_P(MovieFileOutputSourceTest, KeepsStepWithTheHostClock)
{
    constexpr int kPiece = 96;
    constexpr double kSeconds = 120;
    const Source &source = GetParam();
    PXCaptureMovieFileOutput output(_media, {.codec = PXFourCharCode("sowt")}, *this);
    output.setFormat({kRate, 1, 4, PXSampleType::Float32});
    std::mt19937 random(3);
    std::uniform_real_distribution<> jitter(-0.0005, 0.0005);
    std::vector<float> piece(kPiece);
    bool isGone = false;
    for (std::int64_t frame = 0;; frame += kPiece) {
        double time
            = source.firstSample + static_cast<double>(frame) / kRate / (1 + source.ppm * 1e-6);
        if (source.silentFor > 0 && time > 30)
            time += source.silentFor;
        if (time > kSeconds)
            break;
        if (time > source.goneFrom && time < source.goneUntil) {
            if (!std::exchange(isGone, true))
                output.sourceWasInterrupted();
            continue;
        }
        for (int i = 0; i < kPiece; ++i) {
            // A click of 10 ms at each whole host second.
            const double sampleTime = time + static_cast<double>(i) / kRate;
            piece[static_cast<std::size_t>(i)]
                = sampleTime - std::floor(sampleTime) < 0.01 ? 0.8F : 0.0F;
        }
        const bool isWrong = time > source.wrongFrom && time < source.wrongFrom + 0.3;
        const double said = kStart + time + jitter(random) + (isWrong ? 0.5 : 0)
            + source.wander * std::sin(time * 2 * std::numbers::pi * 0.3);
        output.outputSampleBuffer(
            {std::as_bytes(std::span(piece)), kPiece, static_cast<std::uint64_t>(said * 1e9)});
    }
    output.close();
    EXPECT_THAT(_events,
                ElementsAre(u"will start"_s, u"did start"_s, u"will finish"_s, u"did finish"_s));
    const std::vector<float> samples = recorded();
    EXPECT_NEAR(static_cast<double>(samples.size()) / kRate, kSeconds, 0.02 + source.wander);
    const std::vector<double> clicks = clicksIn(samples);
    int heard = 0;
    for (const double click : clicks) {
        // After a gap that nobody told of, half a second passes before it is believed.
        if (source.silentFor > 0 && click > 29.9 && click < 35)
            continue;
        EXPECT_NEAR(click, std::round(click), 0.003 + source.wander * 1.2) << heard;
        ++heard;
    }
    EXPECT_GE(heard,
              119 - (source.goneUntil > 0 ? 5 : 0) - (source.silentFor > 0 ? 6 : 0)
                  - (source.firstSample > 0 ? 2 : 0));
    // Silence is what was never delivered, and nothing else.
    if (source.goneUntil > 0) {
        const auto from = static_cast<std::size_t>((source.goneFrom + 0.1) * kRate);
        const auto until = static_cast<std::size_t>((source.goneUntil - 0.1) * kRate);
        EXPECT_TRUE(std::all_of(samples.begin() + static_cast<std::ptrdiff_t>(from),
                                samples.begin() + static_cast<std::ptrdiff_t>(until),
                                [](float sample) { return sample == 0; }));
    }
}

INSTANTIATE_TEST_SUITE_P(Sources, MovieFileOutputSourceTest, testing::ValuesIn(kSources),
                         [](const auto &source) { return source.param.name; });

long mostMemoryKB()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// A microphone that somebody plugs in again after lunch.
TEST_F(MovieFileOutputTest, AnHourWithoutTheSourceIsSilentAndCostsNoMemory)
{
    constexpr int rate = 8000;
    constexpr int hour = 3600;
    std::vector<float> second(rate);
    for (std::size_t i = 0; i < second.size(); ++i)
        second[i] = 0.5F * std::sin(static_cast<float>(i) * 2 * std::numbers::pi_v<float> / 20);
    const char *const codecs[] = {"sowt", "aac ", "ima4"};
    for (const auto *codec : codecs) {
        _events.clear();
        PXCaptureMovieFileOutput output(
            _media, {.codec = PXFourCharCodeFromString(QString::fromLatin1(codec))}, *this);
        output.setFormat({rate, 1, 4, PXSampleType::Float32});
        const long before = mostMemoryKB();
        for (const int time : {0, 1, 2, hour, hour + 1, hour + 2}) {
            if (time == hour)
                output.sourceWasInterrupted();
            output.outputSampleBuffer({std::as_bytes(std::span(second)), rate,
                                       static_cast<std::uint64_t>((kStart + time) * 1e9)});
        }
        if (!kIsSanitized) { // As floats it were 115 MB.
            EXPECT_LT(mostMemoryKB() - before, 40'000) << codec;
        }
        output.close();
        EXPECT_EQ(_events.last(), u"did finish"_s) << codec;
        ASSERT_TRUE(QFile::rename(path(), path() + QLatin1String(codec)));
    }
    for (const auto *codec : codecs) { // All that is in a file needs memory.
        SCOPED_TRACE(codec);
        ASSERT_TRUE(QFile::rename(path() + QLatin1String(codec), path()));
        const std::vector<float> samples = recorded();
        ASSERT_NEAR(static_cast<double>(samples.size()) / rate, hour + 3, 0.01);
        const auto loudFrames = [&](double from, double until) {
            return std::count_if(samples.begin() + std::lround(from * rate),
                                 samples.begin() + std::lround(until * rate),
                                 [](float sample) { return std::abs(sample) > 0.35F; });
        };
        for (const int time : {0, 1, 2, hour, hour + 1, hour + 2})
            EXPECT_NEAR(loudFrames(time, time + 0.99), rate * 0.5, rate * 0.05) << time;
        EXPECT_EQ(loudFrames(3.05, hour - 0.05), 0);
        ASSERT_TRUE(QFile::remove(path()));
    }
}

TEST_F(MovieFileOutputTest, AFullDiskEndsTheFileAndKeepsWhatIsInIt)
{
    PXCaptureMovieFileOutput output(_media, {.codec = PXFourCharCode("sowt")}, *this);
    output.setFormat({kRate, 2, 3, PXSampleType::Float32});
    const std::vector<float> second(static_cast<std::size_t>(kRate) * 2, 0.5F);
    {
        const FileSizeLimit limit(600'000); // About three seconds.
        for (int i = 0; i < 10; ++i) {
            output.outputSampleBuffer({std::as_bytes(std::span(second)), kRate,
                                       static_cast<std::uint64_t>((kStart + i) * 1e9)});
        }
        EXPECT_THAT(_events,
                    ElementsAre(u"will start"_s, u"did start"_s, u"must change"_s,
                                u"will finish with an error"_s, u"did finish with an error"_s));
    }
    output.close();
    EXPECT_EQ(_events.size(), 5);
    EXPECT_GT(recorded().size(), static_cast<std::size_t>(kRate));
}

TEST_F(MovieFileOutputTest, AFolderThatIsGoneIsToldOnce)
{
    PXCaptureMovieFileOutput output(_media, {.codec = PXFourCharCode("sowt")}, *this);
    output.setFormat({kRate, 1, 4, PXSampleType::Float32});
    ASSERT_TRUE(_folder.remove());
    const std::vector<float> samples(480, 0.5F);
    for (int i = 0; i < 3; ++i) {
        output.outputSampleBuffer({std::as_bytes(std::span(samples)), 480,
                                   static_cast<std::uint64_t>((kStart + i * 0.01) * 1e9)});
    }
    output.close();
    EXPECT_THAT(_events,
                ElementsAre(u"will start"_s, u"must change"_s, u"will finish with an error"_s,
                            u"did finish with an error"_s));
    EXPECT_EQ(output.recordedBytes(), 0U);
}

} // namespace
