#include "tests/framefile/RawCapture.h"

#include <QDataStream>

using namespace Qt::StringLiterals;

namespace {

class BRVersion1Test : public RawCaptureTest { };

/// Two rows, A, R, G, B, as version 1 stored them.
const QByteArray kRows = QByteArray::fromHex("ff010203ff040506ff070809ff0a0b0c");

/// 16 literal bytes and the end mark: what LZO makes of what does not repeat.
const QByteArray kLZOBlock = QByteArray::fromHex("21") + kRows + QByteArray::fromHex("110000");

struct Version1Case {
    const char *name;
    QDataStream::ByteOrder order;
    std::uint32_t compression;
    std::int32_t format;
    bool hasPreamble;
    bool isUpsideDown;
    std::int32_t width;
    std::int32_t height;
    QByteArray expectedHex; ///< The picture, A, R, G, B, top row first.
};

const QByteArray kAsStored = "ff010203ff040506ff070809ff0a0b0c";
const QByteArray kFlipped = "ff070809ff0a0b0cff010203ff040506";

const Version1Case kCases[] = {
    {"littleEndian", QDataStream::LittleEndian, 1, 1, true, false, 2, 2, kAsStored},
    {"bigEndian", QDataStream::BigEndian, 1, 1, true, false, 2, 2, kAsStored},
    {"upsideDown", QDataStream::BigEndian, 1, 1, true, true, 2, 2, kFlipped},
    {"headerless", QDataStream::LittleEndian, 1, 0, false, false, 2, 2, kAsStored},
    {"headerlessSwitchesToBigEndian", QDataStream::BigEndian, 1, 0, false, true, 2, 2, kFlipped},
    {"formatTwo", QDataStream::LittleEndian, 1, 2, true, false, 2, 2, kAsStored},
    {"formatNine", QDataStream::BigEndian, 1, 9, true, false, 2, 2, kAsStored},
    {"formatTwoOfNone", QDataStream::LittleEndian, 0, 2, true, false, 2, 2, kFlipped},
    {"rleIsReversedAsAlways", QDataStream::LittleEndian, 2, 1, true, false, 2, 2, kFlipped},
    {"noneIsLowestRowFirst", QDataStream::LittleEndian, 0, 1, true, false, 2, 2, kFlipped},
};

QByteArray fileFor(const Version1Case &c)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setByteOrder(c.order);
    stream.setFloatingPointPrecision(QDataStream::DoublePrecision);
    if (c.hasPreamble)
        stream << quint32{0x5644454F} << quint32{c.compression} << qint32{c.format};
    stream << qint32{c.width} << qint32{c.height} << 2.5 << quint32{1};
    stream << quint32{0x4652414D} << quint32{1} << 0.5;
    stream << quint32{0x52454354} << qint32{0} << qint32{0} << qint32{2} << qint32{2};
    const auto block = [&](const QByteArray &data) {
        stream << quint32(data.size());
        stream.writeRawData(data.constData(), int(data.size()));
    };
    if (c.compression == 1)
        block(kLZOBlock);
    else if (c.compression == 0)
        block(kRows);
    else
        for (const char *row : {"010203040506", "0708090a0b0c"})
            block(QByteArray::fromHex(row));
    return bytes;
}

TEST_F(BRVersion1Test, EveryFormReads)
{
    for (const Version1Case &c : kCases) {
        writeFile(path, fileFor(c));
        const auto streamer = reader(c.isUpsideDown);
        EXPECT_EQ(streamer->fileFormat(), c.format) << c.name;
        EXPECT_EQ(streamer->selectionSize(), (PXSize{2, 2})) << c.name;
        EXPECT_EQ(streamer->duration(), 2.5) << c.name;
        EXPECT_EQ(streamer->numberOfFrames(), 1U) << c.name;
        EXPECT_TRUE(streamer->frameIndex().empty()) << c.name;
        const auto frames = framesOf(*streamer, nullptr, BRPixelOrder::ARGB);
        ASSERT_EQ(frames.size(), 1U) << c.name;
        EXPECT_EQ(frames[0].timestamp, 0.5) << c.name;
        const QByteArray picture(reinterpret_cast<const char *>(frames[0].picture.data()), 16);
        EXPECT_EQ(picture.toHex(), c.expectedHex) << c.name;
    }
}

TEST_F(BRVersion1Test, TheSwitchConcernsFormatZeroOnly)
{
    // 2304 = 0x900: a sane big-endian number that is absurd the other way round.
    Version1Case c{"", QDataStream::BigEndian, 1, 0, true, false, 2304, 2, {}};
    QByteArray bytes = fileFor(c);
    // The preamble says little-endian, what follows is not: the second read starts behind it.
    bytes.replace(0, 12, QByteArray::fromHex("4f4544560100000000000000"));
    writeFile(path, bytes);
    EXPECT_EQ(reader()->selectionSize(), (PXSize{2304, 2}));
    bytes.replace(8, 4, QByteArray::fromHex("01000000"));
    writeFile(path, bytes);
    EXPECT_FALSE(BRFrameStreamer::withFilePathForReading(path, false));
}

TEST_F(BRVersion1Test, AWrongTagEndsReading)
{
    QByteArray bytes = fileFor(kCases[0]);
    const qsizetype frame = bytes.indexOf("MARF");
    const qsizetype rectangle = bytes.indexOf("TCER");
    ASSERT_TRUE(frame > 0 && rectangle > 0);
    for (const qsizetype tag : {frame, rectangle}) {
        QByteArray broken = bytes;
        broken[tag] = 'X';
        writeFile(path, broken);
        bool wasCutShort = false;
        const auto streamer = reader();
        EXPECT_TRUE(framesOf(*streamer, &wasCutShort).empty());
        EXPECT_TRUE(wasCutShort);
    }
}

} // namespace
