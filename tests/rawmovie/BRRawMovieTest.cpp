#include "rawmovie/BRRawMovie.h"

#include "tests/framefile/RawCapture.h"

#include <algorithm>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr int kFrames = 60;
constexpr int kWidth = 200;
constexpr int kHeight = 150;
constexpr double kDuration = kFrames / 10.0;

double timeOf(int frame)
{
    return frame / 10.0;
}

class BRRawMovieTest : public RawCaptureTest {
protected:
    void record(BRRawCompression compression, int framesBetweenKeyFrames = 13)
    {
        RandomRecording recording(5, kWidth, kHeight);
        recording.framesBetweenKeyFrames = framesBetweenKeyFrames;
        const auto streamer = writer({kWidth, kHeight}, compression);
        pictures.clear();
        for (int i = 0; i < kFrames; ++i) {
            ASSERT_TRUE(recording.writeFrame(*streamer, timeOf(i)));
            pictures.push_back(recording.picture);
        }
        ASSERT_TRUE(streamer->setDuration(kDuration));
        ASSERT_TRUE(streamer->setTotalNumberOfFrames(kFrames));
    }
    std::shared_ptr<BRRawMovie> movie() const
    {
        auto made = BRRawMovie::withFilePath(path);
        if (!made)
            throw std::runtime_error(made.error().description.toStdString());
        return *std::move(made);
    }
    static Picture pictureOf(const BRRawMovie &movie)
    {
        const QImage image = movie.currentFrameImage();
        const auto *pixels = reinterpret_cast<const std::uint32_t *>(image.constBits());
        return {pixels, pixels + image.sizeInBytes() / 4};
    }

    std::vector<Picture> pictures;
};

TEST_F(BRRawMovieTest, ShowsTheFrameOfEveryTimeInWhateverOrder)
{
    for (const BRRawCompression compression :
         {BRRawCompression::LZO, BRRawCompression::RLE, BRRawCompression::None}) {
        // Frames that are not compressed are key frames only, or their rows do not fit.
        record(compression, compression == BRRawCompression::None ? 1 : 13);
        const auto movie = this->movie();
        EXPECT_TRUE(pictureOf(*movie) == pictures[0]);
        std::mt19937 random = repeatableNumbers(23);
        int frame = 0;
        for (int i = 0; i < 400; ++i) {
            // Steps of one, jumps, and times between two frames.
            frame = random() % 3 == 0 ? static_cast<int>(random() % kFrames)
                                      : std::min(frame + 1, kFrames - 1);
            movie->setCurrentTime(timeOf(frame) + (random() % 2 == 0 ? 0.05 : 0));
            ASSERT_EQ(movie->currentFrameIndex(), static_cast<std::uint32_t>(frame));
            ASSERT_TRUE(pictureOf(*movie) == pictures[static_cast<std::size_t>(frame)])
                << frame << " in step " << i;
        }
    }
}

TEST_F(BRRawMovieTest, TimesOutsideAreTheFirstAndTheLastFrame)
{
    record(BRRawCompression::LZO);
    const auto movie = this->movie();
    const struct {
        double time;
        double keptTime;
        std::uint32_t frame;
        double next;
    } rows[] = {
        {-3, -3, 0, 0.1},
        {1e9, kDuration, kFrames - 1, std::numeric_limits<double>::infinity()},
        {5.95, 5.95, kFrames - 1, std::numeric_limits<double>::infinity()},
        {0.25, 0.25, 2, timeOf(3)},
    };
    for (const auto &row : rows) {
        movie->setCurrentTime(row.time);
        EXPECT_EQ(movie->currentTime(), row.keptTime);
        EXPECT_EQ(movie->currentFrameIndex(), row.frame) << row.time;
        EXPECT_EQ(movie->timeOfNextFrame(), row.next) << row.time;
    }
    EXPECT_TRUE(movie->advanceTime(0.1));
    EXPECT_FALSE(movie->advanceTime(0.01)) << "the same frame";
    EXPECT_NEAR(movie->currentTime(), 0.36, 1e-9);
}

TEST_F(BRRawMovieTest, DecodesOnlyWhatIsSeen)
{
    // One corner changes again and again; its last picture is all that counts.
    constexpr int kCorner = 97;
    const auto streamer = writer({kWidth, kHeight}, BRRawCompression::LZO);
    Picture picture(std::size_t{kWidth} * kHeight, 0xFF000000U);
    const PXPixelView view{reinterpret_cast<std::byte *>(picture.data()),
                           std::ptrdiff_t{4} * kWidth, kWidth, kHeight};
    for (int i = 0; i < kFrames; ++i) {
        const PXRect rect = i == 0 ? PXRect{0, 0, kWidth, kHeight} : PXRect{0, 0, kCorner, kCorner};
        std::fill(picture.begin(), picture.end(), 0xFF000000U | static_cast<unsigned>(i));
        ASSERT_TRUE(streamer->writeFrameWithDirtyRects({&rect, 1}, timeOf(i)));
        ASSERT_TRUE(streamer->writeDirtyRect(rect, rect, view));
    }
    ASSERT_TRUE(streamer->setDuration(kDuration));
    ASSERT_TRUE(streamer->setTotalNumberOfFrames(kFrames));
    const auto movie = this->movie();
    std::uint64_t before = movie->decodedRects();
    const auto decodedFor = [&](double time) {
        movie->setCurrentTime(time);
        return movie->decodedRects() - std::exchange(before, movie->decodedRects());
    };
    EXPECT_EQ(decodedFor(5), 1U) << "forwards";
    EXPECT_EQ(decodedFor(5.1), 1U);
    (void)movie->takeChanges();
    EXPECT_EQ(decodedFor(5.2), 1U);
    EXPECT_EQ(movie->takeChanges(), QRegion(0, kHeight - kCorner, kCorner, kCorner));
    EXPECT_EQ(movie->takeChanges(), QRegion());
    EXPECT_EQ(decodedFor(3), 2U) << "back: the corner and the key frame";
    EXPECT_EQ(movie->takeChanges(), QRegion(0, 0, kWidth, kHeight));
    EXPECT_EQ(movie->currentFrameImage().pixel(0, kHeight - 1), 0xFF00001EU);
    EXPECT_EQ(movie->currentFrameImage().pixel(kWidth - 1, 0), 0xFF000000U);
}

TEST_F(BRRawMovieTest, ADamagedFrameIsShownAsAReaderInOrderShowsIt)
{
    record(BRRawCompression::LZO);
    const QByteArray sound = contentsOf(path);
    const auto index = reader()->frameIndex();
    std::mt19937 random = repeatableNumbers(3);
    int different = 0;
    for (int i = 0; i < 80; ++i) {
        // Key frames stay sound: from one that is not, seeking and reading on differ.
        const std::size_t frame = 1 + random() % (kFrames - 2);
        if (index[frame].isKeyFrame())
            continue;
        QByteArray damaged = sound;
        const auto begin = static_cast<qsizetype>(index[frame].position);
        const auto bytes = static_cast<std::uint32_t>(index[frame + 1].position - begin);
        damaged[begin + static_cast<qsizetype>(random() % bytes)] ^= 0x41;
        writeFile(path, damaged);
        const auto inOrder = framesOf(*reader());
        ASSERT_EQ(inOrder.size(), std::size_t{kFrames});
        const auto movie = this->movie();
        for (std::size_t shown = inOrder.size(); shown-- > 0;) {
            movie->setCurrentTime(timeOf(static_cast<int>(shown)));
            ASSERT_TRUE(pictureOf(*movie) == inOrder[shown].picture) << i << ": " << shown;
            different += inOrder[shown].picture != pictures[shown] ? 1 : 0;
        }
    }
    EXPECT_GT(different, 0) << "nothing was damaged";
}

TEST_F(BRRawMovieTest, WhatHasNoIndexIsNoMovie)
{
    EXPECT_FALSE(BRRawMovie::withFilePath(path)) << "no file";
    record(BRRawCompression::LZO);
    writeFile(indexPath, {});
    const auto empty = BRRawMovie::withFilePath(path);
    ASSERT_FALSE(empty);
    EXPECT_TRUE(empty.error().description.contains(path))
        << empty.error().description.toStdString();
    QFile::remove(indexPath);
    EXPECT_FALSE(BRRawMovie::withFilePath(path));
}

TEST_F(BRRawMovieTest, APictureLentIsWholeWhileAnotherThreadSeeks)
{
    record(BRRawCompression::LZO);
    const auto movie = this->movie();
    std::jthread seeker([&](const std::stop_token &stop) {
        for (int i = 0; !stop.stop_requested(); i = (i + 7) % kFrames)
            movie->setCurrentTime(timeOf(i));
    });
    for (int i = 0; i < 200; ++i) {
        bool isWhole = false;
        movie->useCurrentFrame([&](const QImage &image) {
            const auto *pixels = reinterpret_cast<const std::uint32_t *>(image.constBits());
            const Picture shown(pixels, pixels + image.sizeInBytes() / 4);
            isWhole = std::find(pictures.begin(), pictures.end(), shown) != pictures.end();
        });
        ASSERT_TRUE(isWhole);
    }
}

} // namespace
