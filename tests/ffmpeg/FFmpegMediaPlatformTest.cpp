#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include "tests/ffmpeg/MovieMaker.h"
#include "tests/ffmpeg/MovieProbe.h"
#include "tests/support/Sanitizers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

/// Smooth colours that differ everywhere, as lossy codecs like them.
QImage gradient(int width, int height, int shift = 0)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgb((x * 2 + shift) % 256, y * 2 % 256, (x + y) % 256));
    }
    return image;
}

QImage noise(int width, int height, unsigned seed)
{
    std::mt19937 random(seed);
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, 0xFF000000U | (random() & 0xFFFFFFU));
    }
    return image;
}

/// The mean of a channel's differences, over what both cover.
double distance(const QImage &a, const QImage &b)
{
    const int width = std::min(a.width(), b.width());
    const int height = std::min(a.height(), b.height());
    double sum = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            sum += std::abs(qRed(p) - qRed(q)) + std::abs(qGreen(p) - qGreen(q))
                + std::abs(qBlue(p) - qBlue(q));
        }
    }
    return sum / (3.0 * width * height);
}

struct CodecCase {
    const char *name;
    char code[5];
    bool fullChroma;
    const char *pixelFormat;
    const char *colours;
};

// As the reader's decoders tell it: ProRes 4444 is always read with 12 bits, and JPEG's matrix,
// which is its only one, goes by another name than the one it is written with.
const CodecCase kCodecCases[] = {
    {"h264", "avc1", false, "yuv420p", "bt709/bt709/bt709"},
    {"h264FullChroma", "avc1", true, "yuv444p", "bt709/bt709/bt709"},
    {"hevc", "hvc1", false, "yuv420p", "bt709/bt709/bt709"},
    {"proRes", "apcn", false, "yuv422p10le", "bt709/bt709/bt709"},
    {"proResHQ", "apch", false, "yuv422p10le", "bt709/bt709/bt709"},
    {"proResLT", "apcs", false, "yuv422p10le", "bt709/bt709/bt709"},
    {"proResProxy", "apco", false, "yuv422p10le", "bt709/bt709/bt709"},
    {"proRes4444", "ap4h", false, "yuv444p12le", "bt709/bt709/bt709"},
    {"proRes4444XQ", "ap4x", false, "yuv444p12le", "bt709/bt709/bt709"},
    {"mpeg4", "mp4v", false, "yuv420p", "bt709/bt709/bt709"},
    {"jpeg", "jpeg", false, "yuvj420p", "bt709/bt709/bt470bg"},
    {"png", "png ", false, "rgb24", ""},
    {"animation", "rle ", false, "rgb24", ""},
    {"none", "raw ", false, "argb", ""},
};

class EveryCodec : public testing::TestWithParam<CodecCase> {
protected:
    void SetUp() override
    {
        if (kIsThreadSanitized && QByteArrayView(GetParam().code) == "hvc1")
            GTEST_SKIP() << "libx265's own threads agree by atomics that are not seen";
    }
    [[nodiscard]] static PXCompressionSessionOptions options(int width, int height)
    {
        PXCompressionSessionOptions made = optionsFor(GetParam().code, width, height);
        made.fullChroma = GetParam().fullChroma;
        return made;
    }
    [[nodiscard]] static bool isLossless() { return *GetParam().colours == '\0'; }
};

} // namespace

// Odd sizes, a frame that changes one rectangle, one that changes nothing, ten minutes of rest,
// two frames on one tick and an uneven end: what a movie of any codec has to get right.
TEST_P(EveryCodec, KeepsPicturesAndTimes)
{
    constexpr int width = 161;
    constexpr int height = 97;
    MovieMaker maker(options(width, height));
    QImage image = gradient(width, height);
    std::vector<QImage> shown{image};
    ASSERT_TRUE(maker.add(image, 0));
    for (int y = 31; y < 50; ++y) {
        for (int x = 45; x < 88; ++x)
            image.setPixel(x, y, qRgb(200, 40, 90));
    }
    shown.push_back(image);
    ASSERT_TRUE(maker.add(image, 50, {{45, 31, 43, 19}}));
    shown.push_back(image);
    ASSERT_TRUE(maker.add(image, 101, {}));
    ASSERT_TRUE(maker.add(gradient(width, height, 90), 1800101)); // Replaced on the same tick.
    image = gradient(width, height, 40);
    shown.push_back(image);
    ASSERT_TRUE(maker.add(image, 1800101));
    image.setPixel(width - 1, height - 1, qRgb(255, 255, 255));
    shown.push_back(image);
    ASSERT_TRUE(maker.add(image, 1800108, {{width - 1, height - 1, 1, 1}}));
    const QString path = maker.finish();

    const MovieProbe movie = MovieProbe::of(path);
    EXPECT_EQ(movie.tracks, 1);
    EXPECT_EQ(movie.codec, QString::fromLatin1(GetParam().code));
    EXPECT_EQ(movie.pixelFormat, QString::fromLatin1(GetParam().pixelFormat));
    EXPECT_EQ(movie.colours, QString::fromLatin1(GetParam().colours));
    EXPECT_EQ(movie.trackTimeScale, 3000);
    EXPECT_EQ(movie.movieTimeScale, 3000);
    EXPECT_THAT(movie.times, ElementsAre(0, 50, 101, 1800101, 1800108));
    EXPECT_THAT(movie.durations, ElementsAre(50, 51, 1800000, 7, 7));
    EXPECT_THAT(maker.durations(), ElementsAre(50, 51, 1800000, 0, 7, 7));
    EXPECT_LT(movie.atoms.indexOf(u"moov"_s), movie.atoms.indexOf(u"mdat"_s));
    EXPECT_GE(movie.width, width);
    EXPECT_LE(movie.width, width + 1);
    EXPECT_GE(movie.height, height);
    EXPECT_LE(movie.height, height + 1);

    const std::vector<QImage> decoded = MovieProbe::decode(path);
    ASSERT_EQ(decoded.size(), shown.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        EXPECT_LE(distance(decoded[i], shown[i]), isLossless() ? 0.0 : 4.0) << "frame " << i;
    }
}

TEST_P(EveryCodec, ScalesToTheMoviesSize)
{
    MovieMaker maker(options(81, 49));
    ASSERT_TRUE(maker.add(gradient(320, 200), 0));
    QImage image = gradient(320, 200);
    image.fill(qRgb(30, 140, 220));
    ASSERT_TRUE(maker.add(image, 100));
    const std::vector<QImage> decoded = MovieProbe::decode(maker.finish());
    ASSERT_EQ(decoded.size(), 2U);
    QImage expected(81, 49, QImage::Format_RGB32);
    expected.fill(qRgb(30, 140, 220));
    EXPECT_LT(distance(decoded[1], expected), 3.0);
    EXPECT_EQ(decoded[1].width() / 2 * 2, decoded[1].width() == 81 ? 80 : 82);
}

INSTANTIATE_TEST_SUITE_P(Table, EveryCodec, testing::ValuesIn(kCodecCases),
                         [](const auto &row) { return row.param.name; });

TEST(CompressionSession, LosslessToTheBitWhateverChanges)
{
    std::mt19937 random(7);
    for (const auto &code : {"png ", "rle ", "raw "}) {
        MovieMaker maker(optionsFor(code, 67, 41));
        QImage image = noise(67, 41, 1);
        std::vector<QImage> shown;
        for (int i = 0; i < 20; ++i) {
            // Rectangles overlap, and reach beyond the picture.
            std::vector<PXPixelRect> changed;
            for (int n = 0; n < 3; ++n) {
                const PXPixelRect rect{
                    static_cast<int>(random() % 70) - 3, static_cast<int>(random() % 45) - 3,
                    static_cast<int>(random() % 30), static_cast<int>(random() % 20)};
                const PXPixelRect part = PXIntersection(rect, {0, 0, 67, 41});
                for (int y = part.y; y < part.y + part.height; ++y) {
                    for (int x = part.x; x < part.x + part.width; ++x)
                        image.setPixel(x, y, 0xFF000000U | (random() & 0xFFFFFFU));
                }
                changed.push_back(rect);
            }
            ASSERT_TRUE(maker.add(image, std::int64_t{100} * i, changed));
            shown.push_back(image.copy());
        }
        const std::vector<QImage> decoded = MovieProbe::decode(maker.finish());
        ASSERT_EQ(decoded.size(), shown.size()) << code;
        for (std::size_t i = 0; i < shown.size(); ++i)
            EXPECT_EQ(distance(decoded[i], shown[i]), 0) << code << " frame " << i;
    }
}

TEST(CompressionSession, RefusesTimesThatCannotBeAndShowsTheirPictureLater)
{
    MovieMaker maker(optionsFor("raw ", 16, 16));
    QImage image(16, 16, QImage::Format_RGB32);
    image.fill(Qt::black);
    ASSERT_TRUE(maker.add(image, 300));
    image.setPixel(3, 3, qRgb(1, 2, 3));
    EXPECT_FALSE(maker.add(image, 299, {{3, 3, 1, 1}}));
    image.setPixel(9, 9, qRgb(4, 5, 6));
    EXPECT_FALSE(maker.add(image, -1, {{9, 9, 1, 1}}));
    EXPECT_FALSE(maker.add(image, std::numeric_limits<std::int64_t>::max(), {}));
    ASSERT_TRUE(maker.add(image, 310, {}));
    const std::vector<QImage> decoded = MovieProbe::decode(maker.finish());
    ASSERT_EQ(decoded.size(), 2U);
    EXPECT_EQ(decoded[1], image);
}

TEST(CompressionSession, CanBeGivenUpAtAnyMoment)
{
    FFmpegMediaPlatform platform;
    for (int frames = 0; frames < 12; ++frames) {
        auto session = platform
                           .makeCompressionSession(optionsFor("avc1", 320, 240),
                                                   [](const PXExpected<PXEncodedFramePtr> &) {})
                           .value();
        for (int i = 0; i < frames; ++i) {
            const QImage image = noise(320, 240, static_cast<unsigned>(i));
            ASSERT_TRUE(
                session->encodeFrame({reinterpret_cast<const std::byte *>(image.constBits()),
                                      image.bytesPerLine(), 320, 240},
                                     std::int64_t{100} * i, {}));
        }
    }
}

TEST(MovieWriter, MoreSamplesThanAnnouncedStillHaveTheirIndexInFront)
{
    MovieMaker maker(optionsFor("raw ", 16, 16), 1);
    std::vector<QImage> shown;
    for (int i = 0; i < 400; ++i) {
        shown.push_back(noise(16, 16, static_cast<unsigned>(i)));
        ASSERT_TRUE(maker.add(shown.back(), std::int64_t{i} * i)); // No two durations are the same.
    }
    const QString path = maker.finish();
    const MovieProbe movie = MovieProbe::of(path);
    EXPECT_LT(movie.atoms.indexOf(u"moov"_s), movie.atoms.indexOf(u"mdat"_s));
    EXPECT_EQ(movie.times.back(), 399 * 399);
    EXPECT_EQ(MovieProbe::decode(path), shown);
}

TEST(MovieWriter, WithoutFramesTheTrackIsEmpty)
{
    for (const auto &row : kCodecCases) {
        MovieMaker maker(optionsFor(row.code, 64, 48));
        const QString path = maker.finish();
        const MovieProbe movie = MovieProbe::of(path);
        EXPECT_EQ(movie.tracks, 1) << row.name;
        EXPECT_EQ(movie.codec, QString::fromLatin1(row.code));
        // The reader leaves an MPEG-4 picture's size to its decoder, which needs a picture.
        if (movie.codec != u"mp4v"_s) {
            EXPECT_EQ(movie.width, 64) << row.name;
            EXPECT_EQ(movie.height, 48) << row.name;
        }
        EXPECT_EQ(movie.trackTimeScale, 3000) << row.name;
        EXPECT_TRUE(movie.times.empty()) << row.name;
    }
}
