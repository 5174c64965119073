#include "tests/framefile/RawCapture.h"

#include <sys/stat.h>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

class BRDamagedFileTest : public RawCaptureTest {
protected:
    /// Eight frames of 7 x 5 pixels, finished. `frameEnds` are positions in the frame file.
    void record(BRRawCompression compression, bool finishes = true)
    {
        RandomRecording recording(11, 7, 5);
        const auto streamer = writer({7, 5}, compression);
        frameEnds.clear();
        pictures.clear();
        for (int i = 0; i < 8; ++i) {
            ASSERT_TRUE(recording.writeFrame(*streamer, i * 0.1));
            frameEnds.push_back(QFile(path).size());
            pictures.push_back(recording.picture);
        }
        if (finishes) {
            ASSERT_TRUE(streamer->setDuration(0.7));
            ASSERT_TRUE(streamer->setTotalNumberOfFrames(8));
        }
    }

    std::vector<qint64> frameEnds;
    std::vector<Picture> pictures;
};

TEST_F(BRDamagedFileTest, AnyPrefixYieldsExactlyItsCompleteFrames)
{
    for (const BRRawCompression compression : {BRRawCompression::LZO, BRRawCompression::RLE}) {
        for (const bool isFinished : {true, false}) {
            record(compression, isFinished);
            const QByteArray whole = contentsOf(path);
            const QByteArray index = contentsOf(indexPath);
            for (const bool hasIndex : {true, false}) {
                if (!hasIndex)
                    QFile::remove(indexPath);
                for (qsizetype length = 0; length <= whole.size(); ++length) {
                    writeFile(path, whole.first(length));
                    const auto streamer = BRFrameStreamer::withFilePathForReading(path, false);
                    ASSERT_EQ(streamer.has_value(), length >= 41) << length;
                    if (!streamer)
                        continue;
                    std::size_t expected = 0;
                    while (expected < 8 && frameEnds[expected] <= length)
                        ++expected;
                    bool wasCutShort = false;
                    const auto frames = framesOf(**streamer, &wasCutShort);
                    ASSERT_EQ(frames.size(), expected) << length;
                    for (std::size_t i = 0; i < expected; ++i)
                        ASSERT_TRUE(frames[i].picture == pictures[i]);
                    const bool endsWithAFrame
                        = length == 41 || (expected > 0 && frameEnds[expected - 1] == length);
                    EXPECT_EQ(wasCutShort, isFinished ? expected < 8 : !endsWithAFrame) << length;
                    if (!isFinished) {
                        EXPECT_EQ((*streamer)->numberOfFrames(), expected);
                        EXPECT_DOUBLE_EQ((*streamer)->duration(),
                                         expected == 0 ? 0 : double(expected - 1) * 0.1);
                    }
                }
            }
            writeFile(indexPath, index);
        }
    }
}

struct HeaderCase {
    const char *name;
    qsizetype offset;
    QByteArray hex;
    bool opens;
    const char *says; ///< What the error names.
};
const HeaderCase kHeaderCases[] = {
    {"otherFormat", 4, "03000000", false, "file format 3"},
    {"formatOfVersion1", 4, "01000000", false, "file format 1"},
    {"widthZero", 12, "00000000", false, "0 x 5"},
    {"negativeHeight", 16, "ffffffff", false, "7 x -1"},
    {"absurdWidth", 12, "ffffff7f", false, " x 5"},
    {"compressionOfTheFuture", 32, "09000000", false, "compression 9"},
    {"durationIsNoNumber", 20, "000000000000f87f", true, ""},
    {"countOfTheLargestNumber", 28, "ffffffff", true, ""},
};

TEST_F(BRDamagedFileTest, HeadersThatCannotBeOne)
{
    record(BRRawCompression::LZO);
    const QByteArray sound = contentsOf(path);
    // A hostile index: a hundred gigabytes that take no room on the disk, and must not in memory.
    ASSERT_TRUE(QFile::resize(indexPath, qint64{0xFFFFFFFF} * 24));
    for (const HeaderCase &c : kHeaderCases) {
        QByteArray damaged = sound;
        const QByteArray bytes = QByteArray::fromHex(c.hex);
        damaged.replace(c.offset, bytes.size(), bytes);
        writeFile(path, damaged);
        const auto streamer = BRFrameStreamer::withFilePathForReading(path, false);
        ASSERT_EQ(streamer.has_value(), c.opens) << c.name;
        if (!streamer) {
            const std::string text = streamer.error().description.toStdString();
            EXPECT_NE(text.find(path.toStdString()), std::string::npos) << text;
            EXPECT_NE(text.find(c.says), std::string::npos) << text;
            continue;
        }
        EXPECT_GE((*streamer)->duration(), 0) << c.name;
        EXPECT_EQ(framesOf(**streamer).size(), 8U) << c.name;
    }
    for (const QByteArray &garbage : {""_ba, "x"_ba, "VLOT"_ba, "OEDV"_ba, QByteArray(4096, '\xA5'),
                                      QByteArray(4096, '\0'), QByteArray(64, '\xFF')}) {
        writeFile(path, garbage);
        EXPECT_FALSE(BRFrameStreamer::withFilePathForReading(path, false)) << garbage.size();
    }
    const auto ofFolder = BRFrameStreamer::withFilePathForReading(folder.path(), false);
    ASSERT_FALSE(ofFolder);
    EXPECT_EQ(ofFolder.error().code, EISDIR);
    // A pipe that nobody writes to must not keep the reader waiting.
    const QString pipe = folder.filePath(u"pipe"_s);
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    EXPECT_FALSE(BRFrameStreamer::withFilePathForReading(pipe, false));
}

TEST_F(BRDamagedFileTest, AFileTooSmallForItsPictureIsCorrupt)
{
    // A picture of 4 GB from a file of a few kB.
    record(BRRawCompression::LZO);
    QByteArray damaged = contentsOf(path);
    damaged.replace(12, 8, QByteArray::fromHex("ff7f0000ff7f0000"));
    writeFile(path, damaged);
    const auto streamer = reader();
    BRFrameAssembler assembler(*streamer, BRPixelOrder::BGRA);
    const auto read = assembler.readNextFrame();
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().domain, kPXCocoaErrorDomain);
    EXPECT_EQ(read.error().code, kPXFileReadCorruptFileError);
}

TEST_F(BRDamagedFileTest, ZerosBehindTheLastFrameAreNoFrames)
{
    for (const bool hasOneFrame : {false, true}) {
        record(BRRawCompression::LZO, false);
        const std::size_t expected = hasOneFrame ? 1 : 8;
        writeFile(path, contentsOf(path).first(frameEnds[expected - 1]) + QByteArray(4096, '\0'));
        const auto streamer = reader();
        EXPECT_EQ(streamer->numberOfFrames(), expected);
        EXPECT_DOUBLE_EQ(streamer->duration(), hasOneFrame ? 0 : 0.7);
        const auto frames = framesOf(*streamer);
        ASSERT_EQ(frames.size(), expected);
        EXPECT_TRUE(frames.back().picture == pictures[expected - 1]);
    }
}

TEST_F(BRDamagedFileTest, TheIndexLeadsPastADamagedFrame)
{
    const struct {
        const char *name;
        qsizetype offset; ///< In frame 3.
        QByteArray hex;
        bool readsAsFrame = false;
    } cases[] = {
        {"timeIsNoNumber", 4, "000000000000f87f"},
        {"timeIsNegative", 4, "00000000000014c0"},
        {"timeIsFarTooLate", 4, "0000000000000041", true},
        {"countOfTheLargestNumber", 0, "ffffffff"},
    };
    for (const auto &c : cases) {
        record(BRRawCompression::RLE);
        QByteArray damaged = contentsOf(path);
        const QByteArray bytes = QByteArray::fromHex(c.hex);
        damaged.replace(frameEnds[2] + c.offset, bytes.size(), bytes);
        writeFile(path, damaged);
        testing::internal::CaptureStderr();
        const auto frames = framesOf(*reader());
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(log.find("Dirty rect stream ended early!") == std::string::npos, c.readsAsFrame)
            << c.name;
        ASSERT_EQ(frames.size(), 8U) << c.name;
        EXPECT_NEAR(frames[3].timestamp, 0.3, 1e-9) << c.name;
        EXPECT_NEAR(frames[4].timestamp, 0.4, 1e-9) << c.name;
        // No rectangle of the next frame is taken for one of this.
        EXPECT_TRUE(c.offset != 0 || frames[3].picture == pictures[3]) << c.name;
    }
}

struct IndexCase {
    const char *name;
    std::function<void(QByteArray &)> damage;
    std::size_t soundRecords;
};
const IndexCase kIndexCases[] = {
    {"whole", [](QByteArray &) {}, 8},
    {"short", [](QByteArray &index) { index.truncate(qsizetype{24} * 3 + 5); }, 3},
    {"empty", [](QByteArray &index) { index.clear(); }, 0},
    {"longerThanTheHeadersCount", [](QByteArray &index) { index += index; }, 8},
    {"pastTheEnd", [](QByteArray &index) { index[qsizetype{24} * 5 + 11] = '\x10'; }, 5},
    {"notIncreasing",
     [](QByteArray &index) { index.replace(qsizetype{24} * 4 + 4, 8, QByteArray(8, 0)); }, 4},
    {"insideTheHeader", [](QByteArray &index) { index[4] = 3; }, 0},
    {"timeGoesBack", [](QByteArray &index) { index[qsizetype{24} * 6 + 19] = '\xBF'; }, 6},
    {"numbersDoNotCount", [](QByteArray &index) { index[qsizetype{24} * 2] = 9; }, 2},
    {"garbage", [](QByteArray &index) { index.fill('\xFF', 9999); }, 0},
};

TEST_F(BRDamagedFileTest, TheSoundBeginningOfAnIndexIsUsed)
{
    record(BRRawCompression::LZO);
    const QByteArray sound = contentsOf(indexPath);
    for (const IndexCase &c : kIndexCases) {
        QByteArray index = sound;
        c.damage(index);
        writeFile(indexPath, index);
        const auto streamer = reader();
        EXPECT_EQ(streamer->frameIndex().size(), c.soundRecords) << c.name;
        EXPECT_EQ(streamer->numberOfIndexRecords(), std::uint64_t(index.size() / 24)) << c.name;
        EXPECT_FALSE(streamer->gotoFrameIndex(static_cast<std::uint32_t>(c.soundRecords)));
        const auto frames = framesOf(*streamer);
        ASSERT_EQ(frames.size(), 8U) << c.name;
        EXPECT_TRUE(frames[7].picture == pictures[7]) << c.name;
    }
}

TEST_F(BRDamagedFileTest, RectanglesThatCannotBe)
{
    const struct {
        const char *name;
        qsizetype offset; ///< In the first frame, which has one rectangle.
        QByteArray hex;
    } cases[] = {
        {"countOfTheLargestNumber", 0, "ffffffff"},
        {"timeIsNoNumber", 4, "000000000000f87f"},
        {"outsideTheSelection", 12, "01000000"},
        {"widthWrapsAround", 12, "02000000 00000000 ffffffff"},
        {"heightOfTheLargestNumber", 24, "ffffffff"},
        {"lengthBeyondTheFile", 28, "ffffffff"},
        {"nothingWhereAPictureShouldBe", 28, "00000000"},
    };
    for (const BRRawCompression compression :
         {BRRawCompression::None, BRRawCompression::LZO, BRRawCompression::RLE}) {
        record(compression);
        const QByteArray sound = contentsOf(path);
        for (const auto &c : cases) {
            QByteArray damaged = sound;
            const QByteArray bytes = QByteArray::fromHex(c.hex);
            damaged.replace(41 + c.offset, bytes.size(), bytes);
            writeFile(path, damaged);
            QFile::remove(indexPath);
            bool wasCutShort = false;
            const auto streamer = reader();
            EXPECT_TRUE(framesOf(*streamer, &wasCutShort).empty()) << c.name;
            EXPECT_TRUE(wasCutShort) << c.name;
        }
    }
}

} // namespace
