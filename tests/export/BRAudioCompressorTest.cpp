#include "export/BRAudioCompressor.h"

#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "tests/ffmpeg/SoundMaker.h"
#include "tests/ffmpeg/SoundProbe.h"
#include "tests/support/FileSizeLimit.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QThread>

#include <cerrno>
#include <cmath>
#include <numbers>

using namespace Qt::StringLiterals;

namespace {

class SoundCompression : public testing::Test, private BRAudioCompressorDelegate {
protected:
    SoundCompression() { compressor.setDelegate(this); }

    [[nodiscard]] QString source() const { return folder.filePath(u"source.mov"_s); }
    [[nodiscard]] QString output() const { return folder.filePath(u"output.mov"_s); }

    void choose(const char *codec, std::uint32_t bitRate = 0)
    {
        BRAudioCompressionSettings settings;
        settings.codec = PXFourCharCodeFromString(QString::fromLatin1(codec));
        settings.bitRate = bitRate;
        ASSERT_TRUE(
            defaults.setValue(u"AudioCompressionDialogSettings"_s, settings.atomContainer()));
        EXPECT_TRUE(compressor.chooseCompressionSettings(nullptr));
    }
    /// A second of what ffmpeg's expression says.
    void makeSource(const char *codec, const QString &expression) const
    {
        SoundProbe::run(u"ffmpeg"_s,
                        {u"-v"_s, u"error"_s, u"-y"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                         u"aevalsrc=%1:s=48000:d=1"_s.arg(expression), u"-c:a"_s,
                         QString::fromLatin1(codec), source()});
    }
    /// Until the delegate has heard of the end, which is to be once.
    void compress(const QString &path)
    {
        timesFinished = 0;
        compressor.compressAudioToMovieAtPath(path);
        EXPECT_EQ(timesFinished, 0) << "told from inside the call";
        loop.exec();
        QCoreApplication::processEvents();
        EXPECT_EQ(timesFinished, 1);
    }

    QTemporaryDir folder;
    FFmpegMediaPlatform platform;
    PXDefaults defaults{folder.filePath(u"defaults.plist"_s)};
    BRAudioCompressor compressor{platform, defaults};

private:
    void audioCompressorDidFinishCompression(BRAudioCompressor &) override
    {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        ++timesFinished;
        loop.quit();
    }

    QEventLoop loop;
    int timesFinished = 0;
};

} // namespace

// And the next one goes well.
TEST_F(SoundCompression, TellsOfItsEndWhateverHappens)
{
    constexpr rlim_t kRoom = RLIM_INFINITY;
    const struct {
        const char *name;
        const char *codec;
        QString path;
        rlim_t mostBytes;
        int code; ///< 0 is any.
        bool isOpen = true;
    } cases[] = {
        {"nothing is open", "aac ", output(), kRoom, EBADF, false},
        {"no such folder", "aac ", u"/nonexistent/output.mov"_s, kRoom, ENOENT},
        {"a folder is in the way", "alac", folder.path(), kRoom, EISDIR},
        {"no such codec", "zzzz", output(), kRoom, 0},
        {"full at once", "sowt", output(), 10, EFBIG},
        {"full in the middle", "sowt", output(), 100'000, EFBIG},
        {"full at the end", "aac ", output(), 2000, EFBIG},
    };
    makeSoundFile(source(), {"sowt"}, chirp(48000, 2, 48000));
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        choose(row.codec);
        compressor.cleanup();
        if (row.isOpen) {
            ASSERT_TRUE(compressor.openSourceFileAtPath(source()));
        }
        {
            const FileSizeLimit disk(row.mostBytes);
            compress(row.path);
        }
        ASSERT_TRUE(compressor.error());
        EXPECT_FALSE(compressor.error()->description.isEmpty());
        if (row.code != 0) {
            EXPECT_EQ(compressor.error()->code, row.code);
        }

        choose("alac");
        ASSERT_TRUE(compressor.openSourceFileAtPath(source()));
        compress(output());
        EXPECT_FALSE(compressor.error());
        EXPECT_EQ(compressor.secondsDone(), 1);
        EXPECT_EQ(extract<std::int16_t>(output()), extract<std::int16_t>(source()));
    }
}

// Each channel has a loudness of its own, by which it is known again.
TEST_F(SoundCompression, KeepsRateAndChannelsInTheirPlaces)
{
    constexpr std::uint64_t kBack = 0x3F;
    constexpr std::uint64_t kSide = 0x60F;
    const struct {
        const char *codec;
        int sampleRate;
        int channels;
        std::uint64_t mask;
        const char *layout; ///< As ffprobe names it.
    } cases[] = {
        {"aac ", 44100, 1, 0, "mono"},          {"aac ", 48000, 6, kBack, "5.1"},
        {"alac", 48000, 6, kBack, "5.1"},       {"sowt", 48000, 6, kBack, "5.1"},
        {"sowt", 48000, 6, kSide, "5.1(side)"}, {"aac ", 48000, 6, kSide, "5.1"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.codec) + row.layout + std::to_string(row.mask));
        std::vector<float> samples;
        for (int i = 0; i < row.sampleRate; ++i) {
            const double wave = std::sin(2 * std::numbers::pi * 60 * i / row.sampleRate);
            for (int channel = 1; channel <= row.channels; ++channel)
                samples.push_back(static_cast<float>(0.1 * channel * wave));
        }
        const PXSoundFormat format{row.sampleRate, row.channels, row.mask, PXSampleType::Float32};
        PXSoundEncoding encoding;
        encoding.codec = PXFourCharCode("sowt");
        const auto writer
            = platform.makeSoundWriter(source(), PXSoundFileKind::Ordinary, format, encoding)
                  .value();
        ASSERT_TRUE(writeSound(*writer, samples, row.channels));
        ASSERT_TRUE(writer->finish());

        choose(row.codec);
        ASSERT_TRUE(compressor.openSourceFileAtPath(source()));
        compress(output());
        EXPECT_FALSE(compressor.error());
        EXPECT_EQ(SoundProbe::run(u"ffprobe"_s,
                                  {u"-v"_s, u"error"_s, u"-show_entries"_s,
                                   u"stream=sample_rate,channel_layout"_s, u"-of"_s, u"csv=p=0"_s,
                                   output()})
                      .trimmed(),
                  QByteArray::number(row.sampleRate) + ',' + row.layout);
        const auto heard = SoundProbe::decode(output());
        for (int channel = 0; channel < row.channels; ++channel) {
            double power = 0;
            const auto one = channelOf<float>(heard, row.channels, channel);
            for (const float sample : one)
                power += static_cast<double>(sample) * static_cast<double>(sample);
            EXPECT_NEAR(std::sqrt(2 * power / row.sampleRate), 0.1 * (channel + 1), 0.02)
                << channel;
        }
    }
}

TEST_F(SoundCompression, TakesSamplesAsDeepAsTheyAreStored)
{
    const struct {
        const char *stored; ///< ffmpeg's name.
        QString size; ///< What the lossless codec keeps of it.
        int rounded; ///< Three quarters of the last of 16 bits.
    } cases[] = {{"pcm_s16le", u"16-bit"_s, 1},
                 {"pcm_s24le", u"24-bit"_s, 0}, // Integers are cut off,
                 {"pcm_s32le", u"24-bit"_s, 0},
                 {"pcm_f64le", u"24-bit"_s, 1}}; // what stays a float is rounded.
    for (const auto &row : cases) {
        SCOPED_TRACE(row.stored);
        makeSource(row.stored, u"0.75/32768"_s);
        choose("alac");
        ASSERT_TRUE(compressor.openSourceFileAtPath(source()));
        EXPECT_EQ(compressor.sampleSizeString(), row.size);
        choose("sowt");
        EXPECT_EQ(compressor.sampleSizeString(), u"16-bit"_s);
        compress(output());
        EXPECT_EQ(extract<std::int16_t>(output()).at(24000), row.rounded);
    }
}
