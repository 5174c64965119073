#include "export/BRCompressionSettings.h"
#include "export/BRAudioCompressionSettings.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// Worked out by hand: every size counts its own eight bytes.
const QByteArray kStored = QByteArray::fromHex("00000016 7370746c 61706368 00000000 0018 00000200"
                                               "00000014 7470726c 00000300 001e0000 0000012c"
                                               "0000000c 64726174 0001e848 0000000a 74766c76 0101");

} // namespace

TEST(BRCompressionSettings, StoredFormIsTheOneWorkedOutByHand)
{
    BRCompressionSettings settings;
    settings.spatial.codecType = PXFourCharCode("apch");
    settings.spatial.spatialQuality = 512;
    settings.temporal.frameRate = 30 << 16;
    settings.temporal.keyFrameRate = 300;
    settings.dataRate = 125000;
    settings.fullChroma = true;
    settings.speed = PXEncoderSpeed::Fast;
    EXPECT_EQ(settings.atomContainer().toHex(), kStored.toHex());

    const auto read = BRCompressionSettings::fromAtomContainer(kStored);
    ASSERT_TRUE(read);
    const PXCompressionSessionOptions options = read->sessionOptions();
    EXPECT_EQ(read->spatial.codecType, PXFourCharCode("apch"));
    EXPECT_EQ(options.quality, 512);
    EXPECT_EQ(options.keyFrameInterval, 300);
    EXPECT_EQ(options.bitRate, 1000000);
    EXPECT_TRUE(options.fullChroma);
    EXPECT_EQ(options.speed, PXEncoderSpeed::Fast);
}

TEST(BRAudioCompressionSettings, StoredFormIsTheOneWorkedOutByHand)
{
    const QByteArray stored
        = QByteArray::fromHex("0000001c 61756469 616c6163 0000ac44 00000002 0001f400 00000400");
    BRAudioCompressionSettings settings;
    settings.codec = PXFourCharCode("alac");
    settings.sampleRate = 44100;
    settings.channels = 2;
    settings.bitRate = 128000;
    settings.quality = 1024;
    EXPECT_EQ(settings.atomContainer().toHex(), stored.toHex());

    // Fields of a later version are kept, values that no sound has are not handed on.
    const auto read = BRAudioCompressionSettings::fromAtomContainer(
        QByteArray::fromHex("0000002061756469616c6163ffffffff7fffffff0001f40000000fffdeadbeef"));
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->atomContainer().endsWith(QByteArray::fromHex("deadbeef")));
    const PXSoundEncoding encoding = read->encoding();
    EXPECT_EQ(encoding.codec, PXFourCharCode("alac"));
    EXPECT_EQ(encoding.sampleRate, 0);
    EXPECT_EQ(encoding.channels, 0);
    EXPECT_EQ(encoding.bitRate, 128000);
    EXPECT_EQ(encoding.quality, 1024);
    EXPECT_FALSE(BRAudioCompressionSettings::fromAtomContainer(stored.chopped(1)));
}

TEST(BRCompressionSettings, KeepsWhatItDoesNotKnow)
{
    // An atom of somebody else in front, and fields behind the ones of 'tprl' that we know.
    const QByteArray stored = QByteArray::fromHex(
        "0000000b 66757475 abcdef 00000018 7470726c 00000300 003c0000 00000000 deadbeef");
    auto settings = BRCompressionSettings::fromAtomContainer(stored);
    ASSERT_TRUE(settings);
    settings->temporal.keyFrameRate = 7;
    const QByteArray again = settings->atomContainer();
    EXPECT_TRUE(again.startsWith(QByteArray::fromHex("0000000b66757475abcdef")));
    EXPECT_TRUE(again.contains(QByteArray::fromHex("00000007deadbeef")));
}

TEST(BRCompressionSettings, RefusesDamagedContainers)
{
    // Cut short anywhere, except between two atoms, it is no container.
    for (int length = 1; length < kStored.size(); ++length) {
        const bool isWhole = length == 22 || length == 42 || length == 54;
        EXPECT_EQ(BRCompressionSettings::fromAtomContainer(kStored.left(length)).has_value(),
                  isWhole)
            << length;
    }
    const char *const damaged[] = {
        "00000000 7370746c", // no size at all
        "ffffffff 7370746c 00", // longer than there is
        "00000007 7370746c", // shorter than its own header
        "0000000c 7370746c 61766331", // ours, with fields missing
    };
    for (const char *hex : damaged) {
        const auto read = BRCompressionSettings::fromAtomContainer(QByteArray::fromHex(hex));
        ASSERT_FALSE(read) << hex;
        EXPECT_EQ(read.error().domain, kPXPOSIXErrorDomain);
    }
}

TEST(BRCompressionSettings, OptionsStayInRangeWhateverTheBytes)
{
    std::mt19937 random(3);
    for (int i = 0; i < 2000; ++i) {
        QByteArray bytes = kStored;
        for (int n = 0; n < 6; ++n)
            bytes[static_cast<qsizetype>(random() % 64)] = static_cast<char>(random());
        if (const auto read = BRCompressionSettings::fromAtomContainer(bytes)) {
            const PXCompressionSessionOptions options = read->sessionOptions();
            ASSERT_GE(options.quality, 0);
            ASSERT_LE(options.quality, kPXBestQuality);
            ASSERT_GE(options.keyFrameInterval, 0);
            ASSERT_GE(options.bitRate, 0);
        }
    }
}
