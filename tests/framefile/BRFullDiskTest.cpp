#include "tests/framefile/RawCapture.h"
#include "tests/support/FileSizeLimit.h"

#include <cerrno>

namespace {

class BRFullDiskTest : public RawCaptureTest { };

TEST_F(BRFullDiskTest, TheFrameThatDoesNotFitIsCutOffAndTheRestIsReadable)
{
    for (const BRRawCompression compression :
         {BRRawCompression::None, BRRawCompression::LZO, BRRawCompression::RLE}) {
        RandomRecording recording(21, 301, 201);
        Picture last;
        qint64 endOfWholeFrames = 0;
        std::uint32_t written = 0;
        {
            const auto streamer = writer({301, 201}, compression);
            const FileSizeLimit limit(1'000'000);
            PXExpected<void> result;
            std::uint64_t bytesOfWholeFrames = 0;
            while ((result = recording.writeFrame(*streamer, written / 30.0))) {
                ++written;
                last = recording.picture;
                endOfWholeFrames = QFile(path).size();
                bytesOfWholeFrames = streamer->bytesReadWritten();
                ASSERT_LT(written, 1000U);
            }
            EXPECT_EQ(result.error().code, EFBIG);
            EXPECT_EQ(QFile(path).size(), endOfWholeFrames);
            EXPECT_EQ(streamer->bytesReadWritten(), bytesOfWholeFrames);
            EXPECT_EQ(streamer->numberOfFramesWritten(), written);
            ASSERT_TRUE(streamer->setDuration(written / 30.0)) << "the header is there already";
            ASSERT_TRUE(streamer->setTotalNumberOfFrames(written));
        }
        EXPECT_EQ(QFile(path).size(), endOfWholeFrames) << "closing writes nothing more";
        EXPECT_EQ(QFile(indexPath).size(), qint64{written} * 24);
        const auto streamer = reader();
        if (compression == BRRawCompression::None)
            continue; // its rectangles cannot be read back, whatever the disk does
        const auto frames = framesOf(*streamer);
        ASSERT_EQ(frames.size(), written);
        EXPECT_TRUE(frames.back().picture == last);
    }
}

TEST_F(BRFullDiskTest, WritingGoesOnOnceThereIsRoom)
{
    RandomRecording recording(22, 301, 201);
    const auto streamer = writer({301, 201}, BRRawCompression::LZO);
    {
        const FileSizeLimit limit(5000);
        EXPECT_FALSE(recording.writeFrame(*streamer, 0));
    }
    ASSERT_TRUE(recording.writeFrame(*streamer, 0));
    const auto read = reader();
    const auto frames = framesOf(*read);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_TRUE(frames[0].picture == recording.picture);
}

TEST_F(BRFullDiskTest, AFrameWithoutItsIndexRecordIsCutOffToo)
{
    // Frames without rectangles are 12 bytes, their index records 24: the index is full first.
    const auto streamer = writer({1, 1}, BRRawCompression::RLE);
    const FileSizeLimit limit(1200);
    std::uint32_t written = 0;
    while (streamer->writeFrameWithDirtyRects({}, written)) {
        ++written;
        ASSERT_LT(written, 100U);
    }
    EXPECT_EQ(written, 1200U / 24);
    EXPECT_EQ(QFile(path).size(), qint64{41} + qint64{12} * 50);
    EXPECT_EQ(QFile(indexPath).size(), 1200);
    const auto read = reader();
    EXPECT_EQ(read->numberOfFrames(), written);
}

TEST_F(BRFullDiskTest, ClosingInTheMiddleOfAFrameCutsItOff)
{
    RandomRecording recording(24, 9, 9);
    const PXRect whole{0, 0, 9, 9};
    auto streamer = writer({9, 9}, BRRawCompression::LZO);
    ASSERT_TRUE(recording.writeFrame(*streamer, 0));
    const qint64 end = QFile(path).size();
    ASSERT_TRUE(streamer->writeFrameWithDirtyRects(std::span(&whole, 1), 1));
    streamer.reset();
    EXPECT_EQ(QFile(path).size(), end);
    EXPECT_EQ(QFile(indexPath).size(), 24);
}

} // namespace
