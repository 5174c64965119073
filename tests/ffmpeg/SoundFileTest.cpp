#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include "tests/ffmpeg/MovieProbe.h"
#include "tests/ffmpeg/SoundMaker.h"
#include "tests/ffmpeg/SoundProbe.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint64_t k5Point1 = 0x3F;

struct StorageCase {
    const char *name;
    char codec[5];
    int sampleRate;
    int channels;
    std::uint64_t mask;
    const char *tag;
    int storedRate;
    int storedChannels;
    double likeness; ///< To what was written; 1 is bit for bit in 16 bits.
};

const StorageCase kStorageCases[] = {
    {"aac", "aac ", 48000, 2, 0, "mp4a", 48000, 2, 0.999},
    {"aacMono44100", "aac ", 44100, 1, 0, "mp4a", 44100, 1, 0.99},
    {"aacSixChannels", "aac ", 48000, 6, k5Point1, "mp4a", 48000, 6, 0.99},
    {"aacOfARateThatItHasNot", "aac ", 192000, 2, 0, "mp4a", 96000, 2, 0.99},
    {"lossless", "alac", 44100, 2, 0, "alac", 44100, 2, 1},
    {"losslessMono8000", "alac", 8000, 1, 0, "alac", 8000, 1, 1},
    {"pcm", "sowt", 44100, 2, 0, "sowt", 44100, 2, 1},
    {"pcmSixChannels", "sowt", 48000, 6, k5Point1, "sowt", 48000, 6, 1},
    {"pcm96000", "sowt", 96000, 2, 0, "lpcm", 96000, 2, 1},
    {"ima", "ima4", 44100, 2, 0, "ima4", 44100, 2, 0.99},
    {"imaHasTwoChannelsAtMost", "ima4", 48000, 6, k5Point1, "ima4", 48000, 2, 0.9},
    {"ulaw", "ulaw", 48000, 2, 0, "ulaw", 48000, 2, 0.99},
};

class EverySoundCodec : public testing::TestWithParam<std::tuple<StorageCase, PXSoundFileKind>> { };

std::vector<std::int16_t> tone(double frequency, int sampleRate, int frames, double amplitude)
{
    std::vector<std::int16_t> samples;
    for (int i = 0; i < frames; ++i) {
        const double phase = 2 * std::numbers::pi * frequency * i / sampleRate;
        samples.push_back(static_cast<std::int16_t>(std::lround(amplitude * std::sin(phase))));
    }
    return samples;
}

/// Of that tone within `count` samples.
double amplitudeOf(double frequency, const std::vector<std::int16_t> &samples, int first, int count,
                   int sampleRate)
{
    double sine = 0;
    double cosine = 0;
    double weights = 0;
    for (int i = 0; i < count; ++i) {
        // Fades in and out, else a loud tone is found at every frequency.
        const double weight = 1 - std::cos(2 * std::numbers::pi * i / count);
        const double phase = 2 * std::numbers::pi * frequency * i / sampleRate;
        const double sample
            = samples.at(static_cast<std::size_t>(first) + static_cast<std::size_t>(i)) * weight;
        sine += sample * std::sin(phase);
        cosine += sample * std::cos(phase);
        weights += weight;
    }
    return 2 * std::hypot(sine, cosine) / weights;
}

std::vector<std::int16_t> asIntegers(const std::vector<float> &samples)
{
    std::vector<std::int16_t> integers;
    integers.reserve(samples.size());
    for (const float sample : samples)
        integers.push_back(static_cast<std::int16_t>(std::lround(sample * 32767)));
    return integers;
}

} // namespace

// Written in odd pieces, made ordinary, read by ffmpeg and by ourselves: nothing is late, nothing
// is missing, nothing is behind the end.
TEST_P(EverySoundCodec, KeepsSoundItsTimeAndItsLength)
{
    const auto &[row, kind] = GetParam();
    const int frames = row.sampleRate * 13 / 10 + 77;
    const std::vector<std::int16_t> played
        = asIntegers(chirp(row.sampleRate, row.channels, frames));
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"sound: 50%.mov"_s);
    FFmpegMediaPlatform platform;
    PXSoundEncoding encoding;
    encoding.codec = PXFourCharCode(row.codec);
    auto writer = platform.makeSoundWriter(
        path, kind, {row.sampleRate, row.channels, row.mask, PXSampleType::Int16}, encoding);
    ASSERT_TRUE(writer) << writer.error().description.toStdString();
    EXPECT_EQ((*writer)->storedFormat().sampleRate, row.storedRate);
    EXPECT_EQ((*writer)->storedFormat().channels, row.storedChannels);
    ASSERT_TRUE(writeSound(**writer, played, row.channels));
    ASSERT_TRUE((*writer)->finish());
    EXPECT_EQ((*writer)->recordedBytes(), static_cast<std::uint64_t>(QFileInfo(path).size()));
    ASSERT_TRUE(platform.flattenMovie(path));

    const auto tracks = SoundProbe::tracks(path);
    ASSERT_EQ(tracks.size(), 1U);
    EXPECT_EQ(tracks[0].tag, QLatin1String(row.tag));
    EXPECT_EQ(tracks[0].sampleRate, row.storedRate);
    EXPECT_EQ(tracks[0].channels, row.storedChannels);
    EXPECT_TRUE(tracks[0].isEnabled);
    const int packet = row.codec[0] == 'i' ? 64 : 1;
    const int stored = static_cast<int>(std::int64_t{frames} * row.storedRate / row.sampleRate);
    const int whole = (stored + packet - 1) / packet * packet;
    // A changed rate may round the end.
    const int tolerance = row.storedRate == row.sampleRate ? 0 : 1;
    EXPECT_NEAR(static_cast<double>(tracks[0].duration), whole, tolerance);

    const auto integers = extract<std::int16_t>(path);
    EXPECT_NEAR(static_cast<double>(integers.size()) / row.storedChannels, whole, tolerance);
    if (row.likeness == 1) {
        EXPECT_EQ(integers, played);
        return;
    }
    const auto original = chirp(row.storedRate, 1, whole);
    const auto ours = channelOf<float>(extract<float>(path), row.storedChannels, 0);
    const auto theirs = channelOf<float>(SoundProbe::decode(path), row.storedChannels, 0);
    for (const int place : {0, stored - 6000}) {
        for (const auto &heard : {ours, theirs}) {
            const Lag lag = lagOf(heard, original, place);
            EXPECT_LE(std::abs(lag.frames), 1) << "at " << place;
            EXPECT_GE(lag.likeness, row.likeness) << "at " << place;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, EverySoundCodec,
    testing::Combine(testing::ValuesIn(kStorageCases),
                     testing::Values(PXSoundFileKind::Ordinary, PXSoundFileKind::Fragmented)),
    [](const auto &row) {
        const bool isOrdinary = std::get<1>(row.param) == PXSoundFileKind::Ordinary;
        return std::string(std::get<0>(row.param).name) + (isOrdinary ? "" : "InFragments");
    });

// What a kill leaves, at any instant, and what a power failure leaves, at any byte.
TEST(SoundWriter, FragmentsAreReadableWhereverTheyEnd)
{
    constexpr int rate = 8000;
    constexpr int frames = rate * 3;
    const struct {
        const char *name;
        char codec[5];
        int behind; ///< Frames that an encoder may hold back.
    } cases[] = {{"pcm", "sowt", 0}, {"aac", "aac ", 2048}};
    for (const auto &row : cases) {
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"sound.mov"_s);
        FFmpegMediaPlatform platform;
        PXSoundEncoding encoding;
        encoding.codec = PXFourCharCode(row.codec);
        auto writer = platform
                          .makeSoundWriter(path, PXSoundFileKind::Fragmented,
                                           {rate, 1, 0, PXSampleType::Int16}, encoding)
                          .value();
        const auto played = asIntegers(chirp(rate, 1, frames));
        // Places in the file where a fragment ends, and the frames that were written until then.
        std::vector<std::pair<qsizetype, int>> ends{{0, 0}};
        for (int i = 0; i < frames; i += 100) {
            ASSERT_TRUE(writer->write(
                std::as_bytes(std::span(played).subspan(static_cast<std::size_t>(i), 100))));
            const auto size = static_cast<qsizetype>(writer->recordedBytes());
            EXPECT_LE(size, QFileInfo(path).size());
            if (size > ends.back().first)
                ends.emplace_back(size, i + 100);
            EXPECT_LT(i + 100 - ends.back().second, rate) << row.name;
        }
        const QByteArray whole = contentsOf(path);
        EXPECT_EQ(whole.size(), ends.back().first) << "something is left in our memory";
        writer.reset();

        const QString cutPath = folder.filePath(u"cut.mov"_s);
        for (qsizetype size = 0; size <= whole.size(); size += 131) {
            writeFile(cutPath, whole.first(size));
            int least = 0;
            for (const auto &[end, written] : ends)
                least = end <= size ? written - rate / 8 - row.behind : least;
            const auto flattened = platform.flattenMovie(cutPath);
            if (!flattened) {
                EXPECT_LT(size, ends[1].first) << row.name;
                EXPECT_TRUE(flattened.error().description.contains(cutPath));
                continue;
            }
            if (size < ends[1].first)
                continue; // There is an index, but not a whole fragment.
            const auto heard = extract<std::int16_t>(cutPath);
            EXPECT_GE(static_cast<int>(heard.size()), least) << row.name << " at " << size;
            ASSERT_LE(heard.size(), played.size());
            if (row.behind == 0) {
                EXPECT_TRUE(std::equal(heard.begin(), heard.end(), played.begin()))
                    << row.name << " at " << size;
            }
        }
    }
}

TEST(SoundWriter, BitRatesFollowTheSettings)
{
    std::mt19937 random(3);
    std::normal_distribution<float> normal(0, 0.1F);
    std::vector<float> noise(std::size_t{2} * 48000 * 4);
    for (float &sample : noise)
        sample = normal(random);
    const struct {
        const char *name;
        std::int64_t bitRate;
        int channels;
        int quality;
        double expected; ///< kbit/s.
    } cases[] = {
        {"high", 0, 2, 768, 192}, {"best", 0, 2, 1024, 256},   {"normal", 0, 2, 512, 128},
        {"mono", 0, 1, 768, 96},  {"told", 96000, 2, 768, 96},
    };
    for (const auto &row : cases) {
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"sound.mov"_s);
        PXSoundEncoding encoding{PXFourCharCode("aac "), 0, 0, row.bitRate, row.quality};
        auto writer
            = FFmpegMediaPlatform()
                  .makeSoundWriter(path, PXSoundFileKind::Ordinary,
                                   {48000, row.channels, 0, PXSampleType::Float32}, encoding)
                  .value();
        ASSERT_TRUE(writeSound(*writer, noise, row.channels));
        ASSERT_TRUE(writer->finish());
        EXPECT_NEAR(static_cast<double>(SoundProbe::tracks(path)[0].bitRate) / 1000, row.expected,
                    row.expected / 8)
            << row.name;
    }
}

// An encoder that gets one of them refuses all that follows.
TEST(SoundWriter, WhatIsNoNumberIsSilence)
{
    auto samples = chirp(48000, 2, 48000);
    samples[20000] = std::numeric_limits<float>::quiet_NaN();
    samples[20001] = std::numeric_limits<float>::infinity();
    samples[20002] = -3e38F;
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"sound.mov"_s);
    makeSoundFile(path, {"aac "}, samples);
    const auto heard = channelOf<float>(extract<float>(path), 2, 0);
    EXPECT_GT(lagOf(heard, chirp(48000, 1, 48000), 40000).likeness, 0.99);
}

TEST(SoundExtraction, AddsTracksUpFromWhereEachBegins)
{
    // A low and quiet tone from the start, and from 0.5 s on a chirp at another rate and in other
    // channels.
    constexpr int rate = 48000;
    const QTemporaryDir folder;
    const QString mono = folder.filePath(u"mono.mov"_s);
    const QString stereo = folder.filePath(u"stereo.mov"_s);
    const QString both = folder.filePath(u"both.mov"_s);
    makeSoundFile(mono, {"alac", 44100, 1}, chirp(44100, 1, 44100, 0.7));
    makeSoundFile(stereo, {"sowt", rate, 2}, std::vector<float>(std::size_t{rate} * 2, 0.25F));
    SoundProbe::run(u"ffmpeg"_s,
                    {u"-v"_s, u"error"_s, u"-i"_s, stereo, u"-itsoffset"_s, u"0.5"_s, u"-i"_s, mono,
                     u"-map"_s, u"0"_s, u"-map"_s, u"1"_s, u"-c"_s, u"copy"_s, both});
    const auto extraction = FFmpegMediaPlatform().makeSoundExtraction(both);
    ASSERT_TRUE(extraction);
    EXPECT_EQ((*extraction)->format(), (PXSoundFormat{rate, 2, 3, PXSampleType::Float32}));
    EXPECT_EQ((*extraction)->bitsPerSample(), 24);

    const auto heard = extract<float>(both);
    ASSERT_NEAR(static_cast<double>(heard.size()), rate * 1.5 * 2, 4);
    EXPECT_NEAR(heard[47800], 0.25, 0.001);
    for (int channel = 0; channel < 2; ++channel) {
        auto one = channelOf<float>(heard, 2, channel);
        for (std::size_t i = 0; i < rate; ++i)
            one[i] -= 0.25F;
        one.erase(one.begin(), one.begin() + rate / 2);
        const Lag lag = lagOf(one, chirp(rate, 1, rate, 0.7), 3000);
        EXPECT_LE(std::abs(lag.frames), 1);
        EXPECT_GT(lag.likeness, 0.999);
        // As loud in both as it was in one.
        EXPECT_NEAR(*std::max_element(one.begin(), one.begin() + 20000), 0.7, 0.02);
    }
    const auto integers = extract<std::int16_t>(both);
    ASSERT_TRUE(FFmpegMediaPlatform().flattenMovie(both));
    EXPECT_EQ(extract<std::int16_t>(both), integers);
    EXPECT_EQ(SoundProbe::tracks(both)[1].duration, 44100);
}

// Somebody shouts while the music is at its loudest: both are as loud as each other and quieter
// than they were, and no other tone is heard.
TEST(SoundExtraction, WhatIsTooLoudTogetherIsTurnedDownAndNotClipped)
{
    constexpr int rate = 48000;
    constexpr double voice = 441;
    constexpr double music = 1003;
    const struct {
        const char *name;
        char codec[5]; ///< Of the second tone.
        double from; ///< Second at which the first tone begins.
        double tolerance; ///< Of a level, as a share.
    } cases[] = {{"fromTheStart", "sowt", 0, 0.02},
                 {"suddenly", "sowt", 1.2345, 0.02},
                 {"lossy", "aac ", 1, 0.12}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        constexpr int frames = rate * 4;
        const auto first = static_cast<int>(row.from * rate);
        auto low = tone(voice, rate, frames, 32767);
        std::fill_n(low.begin(), first, std::int16_t{0});
        const auto high = tone(music, rate, frames, 32767);
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"1.mov"_s);
        const QString other = folder.filePath(u"2.mov"_s);
        makeSoundFile(path, {"sowt", rate, 1}, low);
        EXPECT_EQ(extract<std::int16_t>(path), low) << "alone";
        makeSoundFile(other, {row.codec, rate, 1}, high);
        ASSERT_TRUE(FFmpegMediaPlatform().insertSoundTrack(other, path));
        const auto heard = extract<std::int16_t>(path);
        ASSERT_EQ(heard.size(), static_cast<std::size_t>(frames));
        if (first > 0) { // Before it is too loud nothing is touched, save for the last moment.
            EXPECT_NEAR(amplitudeOf(music, heard, 0, first - rate / 50, rate), 32767,
                        32767 * row.tolerance);
        }
        const int begin = first + rate / 100;
        const int count = frames - begin - rate / 10;
        const double level = amplitudeOf(music, heard, begin, count, rate);
        EXPECT_NEAR(level, 32767 / 2.0, 32767 / 2.0 * (row.tolerance + 0.03));
        EXPECT_NEAR(amplitudeOf(voice, heard, begin, count, rate), level, level * row.tolerance);
        // What clipping makes of the two, at a fifth of their level and above.
        for (const double product : {3 * voice, 3 * music, 2 * voice - music, 2 * music - voice})
            EXPECT_LT(amplitudeOf(std::abs(product), heard, begin, count, rate), level / 200)
                << product;
        // A top that is cut off stays where it is.
        int flat = 0;
        for (std::size_t i = 1; i < heard.size(); ++i)
            flat += heard[i] == heard[i - 1] && std::abs(heard[i]) >= 32767 ? 1 : 0;
        EXPECT_LE(flat, 2);
    }
}

// A lossy codec's sound may be louder than what it was made of.
TEST(SoundExtraction, WhatALossyCodecMakesTooLoudIsNotClipped)
{
    constexpr int rate = 48000;
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"sound.mov"_s);
    std::vector<float> loud;
    for (const std::int16_t sample : tone(997, rate, rate * 2, 32767))
        loud.push_back(static_cast<float>(sample) / 32767 * 1.5F);
    makeSoundFile(path, {"aac ", rate, 1}, loud);
    const auto heard = extract<std::int16_t>(path);
    EXPECT_NEAR(amplitudeOf(997, heard, rate / 2, rate, rate), 32767, 3500);
    EXPECT_LT(amplitudeOf(3 * 997, heard, rate / 2, rate, rate), 100);
}

TEST(SoundExtraction, TwentyFourBitsGoIntoTheLosslessCodecAndComeOutAgain)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"deep.mov"_s);
    std::vector<float> deep(5000);
    for (std::size_t i = 0; i < deep.size(); ++i)
        deep[i] = static_cast<float>(i * 1237 % 8388608) / 8388608;
    makeSoundFile(path, {"alac", 48000, 1}, deep);
    EXPECT_EQ(FFmpegMediaPlatform().makeSoundExtraction(path).value()->bitsPerSample(), 24);
    EXPECT_EQ(extract<float>(path), deep);
}
