#include "tests/framefile/RawCapture.h"

#include <lzo/lzo1x.h>

#include <array>

using namespace Qt::StringLiterals;

namespace {

class BRFrameStreamerTest : public RawCaptureTest { };

/// 3 x 2 pixels, lowest row first, alpha undefined.
Picture threeByTwo()
{
    return {0x00000001, 0x00000001, 0x00000001, 0x12AABBCC, 0x34AABBCC, 0x56AABBCC};
}
PXPixelView viewOf(Picture &pixels, int width, int height)
{
    return {reinterpret_cast<std::byte *>(pixels.data()), std::ptrdiff_t{4} * width, width, height};
}

TEST_F(BRFrameStreamerTest, AOneFrameRecordingByteForByte)
{
    Picture pixels = threeByTwo();
    const PXRect whole{0, 0, 3, 2};
    const auto streamer = writer({3, 2}, BRRawCompression::RLE);
    ASSERT_TRUE(streamer->writeFrameWithDirtyRects(std::array{whole}, 0));
    EXPECT_EQ(contentsOf(indexPath), "") << "no record before its frame";
    ASSERT_TRUE(streamer->writeDirtyRect(whole, whole, viewOf(pixels, 3, 2)));

    // Nothing waits in the program: both files are read while the writer is open.
    QByteArray header = hex("564c4f54 02000000 30000000 03000000 02000000 0000000000000000 00000000"
                            "02000000 01000000 01");
    const QByteArray frame = hex("01000000 0000000000000000 00000000 00000000 03000000 02000000"
                                 "07000000 00000100000103 07000000 aabbccaabbcc03");
    EXPECT_EQ(contentsOf(path).toHex(), (header + frame).toHex());
    EXPECT_EQ(contentsOf(indexPath), hex("00000000 2900000000000000 0000000000000000 01000000"));
    EXPECT_EQ(streamer->bytesReadWritten(), 12U + 16 + 22);

    ASSERT_TRUE(streamer->setDuration(1.5));
    ASSERT_TRUE(streamer->setTotalNumberOfFrames(1));
    header.replace(20, 12, hex("000000000000f83f 01000000"));
    EXPECT_EQ(contentsOf(path), header + frame);
    EXPECT_EQ(streamer->bytesReadWritten(), 12U + 16 + 22 + 12);
}

/// The library's own compression of what a block must hold, with its length in front.
QByteArray lzoBlock(const QByteArray &packed)
{
    std::array<unsigned char, 128> compressed = {};
    std::vector<unsigned char> work(LZO1X_1_MEM_COMPRESS);
    lzo_uint length = 0;
    lzo1x_1_compress(reinterpret_cast<const unsigned char *>(packed.constData()),
                     static_cast<lzo_uint>(packed.size()), compressed.data(), &length, work.data());
    return QByteArray(1, static_cast<char>(length)) + QByteArray(3, '\0')
        + QByteArray(reinterpret_cast<const char *>(compressed.data()), qsizetype(length));
}

TEST_F(BRFrameStreamerTest, ARectangleOfAFrameInEachCompression)
{
    const struct {
        const char *name;
        BRRawCompression compression;
        QByteArray header; ///< Compression, pixel format, upside down.
        QByteArray stored;
    } cases[] = {
        // The rectangle alone, packed and opaque.
        {"lzo", BRRawCompression::LZO, hex("010000000200000001"),
         lzoBlock(hex("010000ff010000ffccbbaaffccbbaaff"))},
        // As many bytes as that has, it says; but whole rows of the buffer.
        {"none", BRRawCompression::None, hex("000000000100000001"),
         hex("10000000 010000ff010000ff00000000 ccbbaaffccbbaaff00000000")},
        // Each row for itself.
        {"rle", BRRawCompression::RLE, hex("020000000100000001"),
         hex("06000000 000001000001 06000000 aabbccaabbcc")},
    };
    for (const auto &c : cases) {
        Picture pixels = threeByTwo();
        const auto streamer = writer({3, 2}, c.compression);
        const PXRect dirty{1, 0, 2, 2};
        ASSERT_TRUE(streamer->writeFrameWithDirtyRects(std::array{dirty}, 0.25)) << c.name;
        ASSERT_TRUE(streamer->writeDirtyRect(dirty, dirty, viewOf(pixels, 3, 2))) << c.name;
        const QByteArray bytes = contentsOf(path);
        EXPECT_EQ(bytes.mid(32, 9).toHex(), c.header.toHex()) << c.name;
        EXPECT_EQ(bytes.mid(41).toHex(),
                  (hex("01000000 000000000000d03f 01000000 00000000 02000000 02000000") + c.stored)
                      .toHex())
            << c.name;
        EXPECT_EQ(contentsOf(indexPath).right(4).toHex(), "00000000") << "not a key frame";
        const bool isNone = c.compression == BRRawCompression::None;
        EXPECT_EQ(streamer->bytesReadWritten(),
                  12U + 16 + (isNone ? 4 + 16 : std::uint64_t(c.stored.size())))
            << c.name;
    }
}

TEST_F(BRFrameStreamerTest, CoordinatesAreTruncatedAndClamped)
{
    const auto streamer = writer({3, 2}, BRRawCompression::RLE);
    const PXRect empty{-4, 1e10F, 2.9F, 0};
    ASSERT_TRUE(streamer->writeFrameWithDirtyRects(std::array{empty}, 0));
    ASSERT_TRUE(streamer->writeDirtyRect(empty, empty, {}));
    EXPECT_EQ(contentsOf(path).mid(53), hex("00000000 ffffffff 02000000 00000000"));
}

struct RoundTripCase {
    const char *name;
    BRRawCompression compression;
    int width;
    int height;
};
const RoundTripCase kRoundTripCases[] = {
    {"lzo", BRRawCompression::LZO, 67, 43},
    {"rle", BRRawCompression::RLE, 67, 43},
    {"lzoOfOnePixel", BRRawCompression::LZO, 1, 1},
    {"rleOfOnePixel", BRRawCompression::RLE, 1, 1},
    {"rleWiderThanABlock", BRRawCompression::RLE, 32000, 9},
    {"lzoLargerThanTheFileBuffer", BRRawCompression::LZO, 400, 300},
};

TEST_F(BRFrameStreamerTest, WhatGoesInComesOut)
{
    for (const RoundTripCase &c : kRoundTripCases) {
        RandomRecording recording(7, c.width, c.height);
        std::vector<Frame> written;
        {
            const auto streamer = writer({float(c.width), float(c.height)}, c.compression);
            for (int i = 0; i < 12; ++i) {
                ASSERT_TRUE(recording.writeFrame(*streamer, i / 30.0)) << c.name;
                written.push_back({i / 30.0, i == 0, recording.rects, recording.picture});
            }
            ASSERT_TRUE(streamer->setDuration(11 / 30.0));
            ASSERT_TRUE(streamer->setTotalNumberOfFrames(streamer->numberOfFramesWritten()));
        }
        const auto streamer = reader();
        EXPECT_EQ(streamer->frameIndex().size(), 12U) << c.name;
        bool wasCutShort = true;
        const auto read = framesOf(*streamer, &wasCutShort);
        EXPECT_FALSE(wasCutShort) << c.name;
        ASSERT_EQ(read.size(), written.size()) << c.name;
        for (std::size_t i = 0; i < read.size(); ++i) {
            EXPECT_EQ(read[i].timestamp, written[i].timestamp);
            EXPECT_EQ(read[i].rects, written[i].rects);
            EXPECT_TRUE(read[i].picture == written[i].picture) << c.name << " frame " << i;
        }
        const auto again = reader();
        const auto argb = framesOf(*again, nullptr, BRPixelOrder::ARGB);
        ASSERT_EQ(argb.size(), 12U);
        for (std::size_t i = 0; i < argb[11].picture.size(); ++i)
            ASSERT_EQ(__builtin_bswap32(argb[11].picture[i]), written[11].picture[i]) << c.name;
    }
}

TEST_F(BRFrameStreamerTest, PositionsBeyondFourGigabytes)
{
    // A sparse hole between two frames stands for hours of recording.
    constexpr qint64 hole = qint64{5} << 30;
    RandomRecording recording(9, 8, 8);
    {
        const auto streamer = writer({8, 8}, BRRawCompression::LZO);
        ASSERT_TRUE(recording.writeFrame(*streamer, 0));
        ASSERT_TRUE(streamer->setTotalNumberOfFrames(2));
    }
    QFile frames(path);
    ASSERT_TRUE(frames.open(QIODevice::ReadWrite));
    const QByteArray frame = frames.readAll().mid(41);
    ASSERT_TRUE(frames.resize(hole) && frames.seek(hole));
    frames.write(frame);
    frames.close();
    QFile index(indexPath);
    ASSERT_TRUE(index.open(QIODevice::Append));
    index.write(hex("01000000 0000004001000000 000000000000f03f 01000000"));
    index.close();

    const auto streamer = reader();
    ASSERT_EQ(streamer->frameIndex().size(), 2U);
    EXPECT_EQ(streamer->frameIndex()[1].position, std::uint64_t{hole});
    const auto read = framesOf(*streamer);
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[1].picture, recording.picture);
}

} // namespace
