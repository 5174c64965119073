#include "capture/framefile/BRFrameFileRepair.h"

#include "tests/framefile/RawCapture.h"

#include <functional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kFrames = 9;

class BRFrameFileRepairTest : public RawCaptureTest {
protected:
    /// As a program leaves it that was killed.
    void record(BRRawCompression compression)
    {
        RandomRecording recording(17, 9, 7);
        recording.framesBetweenKeyFrames = 4;
        const auto streamer = writer({9, 7}, compression);
        frameEnds.clear();
        pictures.clear();
        for (int i = 0; i < kFrames; ++i) {
            ASSERT_TRUE(recording.writeFrame(*streamer, i * 0.25));
            frameEnds.push_back(QFile(path).size());
            pictures.push_back(recording.picture);
        }
    }
    [[nodiscard]] std::size_t wholeFramesIn(qsizetype length) const
    {
        std::size_t whole = 0;
        while (whole < kFrames && frameEnds[whole] <= length)
            ++whole;
        return whole;
    }

    static QByteArray movedBy(char bytes, QByteArray records)
    {
        for (qsizetype i = 4; i < records.size(); i += 24)
            records[i] = static_cast<char>(records[i] + bytes);
        return records;
    }

    const QString restPath = path + u".rest"_s;
    std::vector<qint64> frameEnds;
    std::vector<Picture> pictures;
};

TEST_F(BRFrameFileRepairTest, KeepsEveryWholeFrameWhateverIsMissing)
{
    for (const BRRawCompression compression : {BRRawCompression::LZO, BRRawCompression::RLE}) {
        record(compression);
        const QByteArray whole = contentsOf(path);
        const QByteArray index = contentsOf(indexPath);
        const struct {
            const char *name;
            std::function<QByteArray()> index;
        } indexes[] = {
            {"all", [&] { return QByteArray(index); }},
            {"none", [] { return QByteArray(); }},
            {"short", [&] { return index.first(72); }},
            {"torn", [&] { return index.first(131); }},
            {"zerosAtItsEnd", [&] { return index.first(96) + QByteArray(48, '\0'); }},
            {"nonsense", [&] { return QByteArray(96, '\x7f'); }},
            {"besideTheFrames", [&] { return movedBy(4, index.first(24)); }},
            {"besideTheLastFrames", [&] { return index.first(48) + movedBy(1, index.sliced(48)); }},
        };
        for (const auto &c : indexes) {
            for (qsizetype length = 41; length <= whole.size(); length += 3) {
                writeFile(path, whole.first(length));
                writeFile(indexPath, c.index());
                const std::size_t expected = wholeFramesIn(length);
                const auto repaired = BRRepairFrameFile(path);
                ASSERT_TRUE(repaired) << c.name;
                ASSERT_EQ(repaired->frames, expected) << c.name << ", " << length;
                if (expected == 0) {
                    ASSERT_EQ(contentsOf(path), whole.first(length)) << "left as it was";
                    continue;
                }
                const qsizetype end = frameEnds[expected - 1];
                EXPECT_EQ(repaired->bytesCut, std::uint64_t(length - end));
                ASSERT_EQ(QFile::exists(restPath), length > end);
                if (length > end) {
                    ASSERT_EQ(contentsOf(restPath), whole.sliced(end, length - end));
                }
                QFile::remove(restPath);
                EXPECT_EQ(repaired->duration, double(expected - 1) * 0.25);
                const auto streamer = reader();
                ASSERT_FALSE(streamer->wasInterrupted());
                ASSERT_EQ(streamer->duration(), repaired->duration);
                ASSERT_EQ(contentsOf(indexPath), index.first(qsizetype(expected) * 24)) << c.name;
                bool wasCutShort = true;
                const auto frames = framesOf(*streamer, &wasCutShort);
                ASSERT_EQ(frames.size(), expected);
                EXPECT_FALSE(wasCutShort);
                for (std::size_t i = 0; i < expected; ++i)
                    ASSERT_TRUE(frames[i].picture == pictures[i]) << c.name << ", " << length;
            }
        }
    }
}

// A disk may have stored the index and not yet the frames when the power failed.
TEST_F(BRFrameFileRepairTest, DoesNotTakeZerosForFrames)
{
    record(BRRawCompression::LZO);
    const QByteArray index = contentsOf(indexPath);
    QByteArray file = contentsOf(path);
    const std::size_t expected = 4;
    const qsizetype end = frameEnds[expected - 1];
    writeFile(path, file.replace(end, file.size() - end, QByteArray(file.size() - end, '\0')));
    const auto repaired = BRRepairFrameFile(path);
    ASSERT_TRUE(repaired);
    EXPECT_EQ(repaired->frames, expected);
    EXPECT_EQ(repaired->duration, (expected - 1) * 0.25);
    EXPECT_EQ(contentsOf(indexPath), index.first(qsizetype(expected) * 24));
    EXPECT_EQ(framesOf(*reader()).size(), expected);
}

TEST_F(BRFrameFileRepairTest, LeavesAloneWhatItDoesNotKnow)
{
    record(BRRawCompression::LZO);
    EXPECT_FALSE(BRRepairFrameFile(folder.filePath(u"nothing"_s)));
    writeFile(path, "no capture at all, but long enough for a header of one");
    EXPECT_FALSE(BRRepairFrameFile(path));
    EXPECT_EQ(contentsOf(path).size(), 54);
}

} // namespace
