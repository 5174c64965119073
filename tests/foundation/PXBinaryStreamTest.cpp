#include "foundation/PXBinaryStream.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cerrno>
#include <cmath>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

class PXBinaryStreamTest : public testing::Test {
protected:
    QTemporaryDir folder;
    QString path = folder.filePath(u"values"_s);
};

TEST_F(PXBinaryStreamTest, WritesEachTypeInTheChosenOrder)
{
    const struct {
        const char *name;
        unsigned order;
        QByteArray hex;
    } cases[] = {
        {"little", PXBinaryStream::LittleEndian,
         "01fe02010403020108070605040302010000803f"
         "000000000000f83f"},
        {"big", PXBinaryStream::BigEndian,
         "01fe01020102030401020304050607083f800000"
         "3ff8000000000000"},
        {"bothMeansLittle", PXBinaryStream::LittleEndian | PXBinaryStream::BigEndian, {}},
        {"neitherMeansLittle", 0, {}},
    };
    for (const auto &c : cases) {
        PXBinaryStream stream(path);
        EXPECT_FALSE(stream.isLittleEndian()) << "before opening";
        ASSERT_TRUE(stream.open(PXBinaryStream::Write | c.order));
        stream.writeBool(true);
        stream.writeInt8(-2);
        stream.writeShort(0x0102);
        stream.writeLong(0x01020304);
        stream.writeUInt64(0x0102030405060708);
        stream.writeFloat(1.0F);
        stream.writeDouble(1.5);
        ASSERT_TRUE(stream.flush());
        EXPECT_EQ(contentsOf(path).toHex(), c.hex.isEmpty() ? cases[0].hex : c.hex) << c.name;
    }
}

TEST_F(PXBinaryStreamTest, WhatGoesInComesOut)
{
    for (const unsigned order : {PXBinaryStream::LittleEndian, PXBinaryStream::BigEndian}) {
        PXBinaryStream stream(path);
        ASSERT_TRUE(stream.open(PXBinaryStream::Read | PXBinaryStream::Write | order));
        stream.writeInt64(std::numeric_limits<std::int64_t>::min());
        stream.writeFloat(-0.1F);
        stream.writeDouble(-INFINITY);
        stream.writeInt16(-300);
        stream.writeLong(-70000);
        stream.setPosition(0);
        EXPECT_EQ(stream.readInt64(), std::numeric_limits<std::int64_t>::min());
        EXPECT_EQ(stream.readFloat(), -0.1F);
        EXPECT_EQ(stream.readDouble(), -INFINITY);
        EXPECT_EQ(stream.readShort(), -300);
        EXPECT_EQ(stream.readLong(), -70000);
    }
}

TEST_F(PXBinaryStreamTest, TheEndReadsAsZeros)
{
    writeFile(path, "\x07\x01\x02"_ba);
    PXBinaryStream stream(path);
    ASSERT_TRUE(stream.open(PXBinaryStream::Read));
    EXPECT_TRUE(stream.readBool()) << "any byte but 0";
    EXPECT_EQ(stream.length(), 3U);
    EXPECT_EQ(stream.position(), 1U) << "length leaves it alone";
    EXPECT_EQ(stream.readLong(), 0x0201) << "missing bytes are zero";
    EXPECT_TRUE(stream.isEndOfFile());
    stream.setPosition(3);
    EXPECT_FALSE(stream.isEndOfFile()) << "only a read finds the end";
    EXPECT_EQ(stream.readLong(), 0);
    EXPECT_TRUE(stream.isEndOfFile());
}

TEST_F(PXBinaryStreamTest, OpenErrorsCarryCodeAndPath)
{
    const struct {
        const char *name;
        QString path;
        unsigned flags;
        int code;
    } cases[] = {
        {"missing", folder.filePath(u"none"_s), PXBinaryStream::Read, ENOENT},
        {"folder", folder.path(), PXBinaryStream::Read, EISDIR},
        {"neitherReadNorWrite", path, PXBinaryStream::LittleEndian, EINVAL},
        {"noFolder", folder.filePath(u"a/b"_s), PXBinaryStream::Write, ENOENT},
    };
    for (const auto &c : cases) {
        PXBinaryStream stream(c.path);
        const auto opened = stream.open(c.flags);
        ASSERT_FALSE(opened) << c.name;
        EXPECT_EQ(opened.error().code, c.code) << c.name;
        EXPECT_EQ(opened.error().userInfo[u"NSLocalizedDescriptionKey"_s].toString(),
                  u"Could not open file "_s + c.path);
        EXPECT_TRUE(
            opened.error().userInfo[u"NSLocalizedFailureReasonErrorKey"_s].toString().contains(
                u"Error (%1) "_s.arg(c.code)));
        EXPECT_FALSE(stream.isOpen());
        EXPECT_THROW(stream.readLong(), std::logic_error);
        EXPECT_THROW(stream.writeBool(true), std::logic_error);
        EXPECT_EQ(stream.lastErrorCode(), -1);
        EXPECT_TRUE(stream.isEndOfFile());
        EXPECT_EQ(stream.position() + stream.length(), 0U);
    }
}

TEST_F(PXBinaryStreamTest, AFullDeviceIsReportedOnce)
{
    PXBinaryStream stream(u"/dev/full"_s);
    ASSERT_TRUE(stream.open(PXBinaryStream::Write));
    stream.setFileBufferSize(16);
    const std::byte bytes[64] = {};
    stream.writeData(bytes);
    EXPECT_EQ(stream.writeErrorNumber(), ENOSPC);
    EXPECT_EQ(stream.flush().error().code, ENOSPC);
}

TEST_F(PXBinaryStreamTest, TruncateForgetsWhatWasBuffered)
{
    PXBinaryStream stream(path);
    ASSERT_TRUE(stream.open(6));
    stream.writeLong(1);
    ASSERT_TRUE(stream.flush());
    stream.writeLong(2);
    ASSERT_TRUE(stream.truncate(4));
    stream.writeLong(3);
    ASSERT_TRUE(stream.flush());
    EXPECT_EQ(contentsOf(path).toHex(), "0100000003000000");
}

} // namespace
