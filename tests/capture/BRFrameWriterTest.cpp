#include "capture/BRFrameWriter.h"
#include "capture/framefile/BRFrameAssembler.h"
#include "tests/support/FileSizeLimit.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <future>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSide = 16;
constexpr std::size_t kBytesPerRow = std::size_t{kSide} * 4;

/// A writer over real files, and pictures of one colour to give it.
class FrameWriterTest : public testing::Test {
protected:
    void SetUp() override
    {
        path = folder.filePath(u"capture"_s);
        auto made = BRFrameWriter::withStreamer(
            [this] {
                // The thread's own streamer waits here, so that a test can fill the mailbox first.
                std::optional<FileSizeLimit> limit;
                if (++streamersMade == 2) {
                    mayWrite.get_future().wait();
                    if (isDiskFullForThread)
                        limit.emplace(1);
                }
                return BRFrameStreamer::withFilePathForWriting(path, {kSide, kSide},
                                                               BRRawCompression::LZO, 0);
            },
            [this](const PXError &) { ++failures; }, [] {});
        ASSERT_TRUE(made);
        writer = *std::move(made);
    }

    BRFrameToWrite frame(double timestamp, bool isKeyFrame)
    {
        const PXRect rect = isKeyFrame ? PXRect{0, 0, kSide, kSide} : PXRect{1, 2, 3, 4};
        return {
            {pixels.data(), kBytesPerRow, kSide, kSide}, {rect}, {rect}, {}, timestamp, isKeyFrame};
    }

    std::vector<double> timestampsInFile()
    {
        auto reader = BRFrameStreamer::withFilePathForReading(path, true);
        EXPECT_TRUE(reader);
        BRFrameAssembler frames(**reader, BRPixelOrder::BGRA);
        std::vector<double> timestamps;
        while (frames.readNextFrame().value() == BRFrameAssembler::Result::Frame)
            timestamps.push_back(frames.timestamp());
        return timestamps;
    }

    QTemporaryDir folder;
    QString path;
    std::vector<std::byte> pixels = std::vector<std::byte>(kSide * kBytesPerRow);
    std::atomic<int> streamersMade = 0;
    std::atomic<int> failures = 0;
    std::promise<void> mayWrite;
    std::atomic<bool> isDiskFullForThread = false;
    std::unique_ptr<BRFrameWriter> writer;
};

TEST_F(FrameWriterTest, AFrameThatWaitsIsReplacedAndHandedBack)
{
    writer->startThread();
    EXPECT_FALSE(writer->handOff(frame(0, false)));
    const auto replaced = writer->handOff(frame(1, false));
    ASSERT_TRUE(replaced);
    EXPECT_EQ(replaced->timestamp, 0);
    mayWrite.set_value();
    // Whether the writer was quicker than this thread decides if frame 1 is replaced as well.
    const bool wasReplacedToo = writer->handOff(frame(2, true)).has_value();
    writer->stopThread();
    writer->closeMailbox();
    writer->writeFrameThatMustBeWritten();
    ASSERT_TRUE(writer->finish(2, writer->totalFramesWritten()));
    EXPECT_EQ(timestampsInFile(),
              wasReplacedToo ? std::vector<double>{2} : (std::vector<double>{1, 2}));
    EXPECT_EQ(failures, 0);
}

TEST_F(FrameWriterTest, AKeyFrameIsNeverReplaced)
{
    writer->startThread();
    EXPECT_FALSE(writer->handOff(frame(0, true)));
    auto second = std::async(std::launch::async, [&] { return writer->handOff(frame(1, false)); });
    mayWrite.set_value();
    EXPECT_FALSE(second.get());
    writer->stopThread();
    writer->closeMailbox();
    writer->writeFrameThatMustBeWritten();
    ASSERT_TRUE(writer->finish(1, 2));
    EXPECT_EQ(timestampsInFile(), (std::vector<double>{0, 1}));
}

TEST_F(FrameWriterTest, AClosedMailboxWritesAtOnceAndInOrder)
{
    mayWrite.set_value();
    EXPECT_FALSE(writer->handOff(frame(0, true)));
    writer->closeMailbox();
    EXPECT_FALSE(writer->handOff(frame(1, false)));
    EXPECT_EQ(writer->totalFramesWritten(), 2U);
    EXPECT_TRUE(writer->isMailboxEmpty());
    ASSERT_TRUE(writer->finish(1, 2));
    EXPECT_EQ(timestampsInFile(), (std::vector<double>{0, 1}));
}

TEST_F(FrameWriterTest, FilesThatTheThreadCannotMakeAreMadeForTheLastFrames)
{
    isDiskFullForThread = true;
    writer->startThread();
    EXPECT_FALSE(writer->handOff(frame(0, true)));
    mayWrite.set_value();
    writer->stopThread();
    EXPECT_EQ(failures, 1);
    writer->closeMailbox();
    EXPECT_FALSE(writer->handOff(frame(1, false)));
    ASSERT_TRUE(writer->finish(1, 2));
    EXPECT_EQ(timestampsInFile(), (std::vector<double>{0, 1}));
}

} // namespace
