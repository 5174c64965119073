#include "capture/framefile/BRRowCodecs.h"
#include "tests/framefile/RawCapture.h"

#include <gtest/gtest.h>

#include <QByteArray>

#include <random>
#include <vector>

namespace {

using Pixels = std::vector<std::uint32_t>;

std::span<const std::byte> bytesOf(const QByteArray &array)
{
    return std::as_bytes(std::span(array.constData(), static_cast<std::size_t>(array.size())));
}

template <typename Encode> QByteArray encode(const Pixels &row, Encode encoder)
{
    std::vector<std::byte> output(RLEMaximumLength(row.size()));
    const std::size_t length
        = encoder(reinterpret_cast<const std::byte *>(row.data()), row.size(), output.data());
    EXPECT_LE(length, output.size());
    return {reinterpret_cast<const char *>(output.data()), static_cast<qsizetype>(length)};
}

template <typename Decode>
QByteArray decode(const QByteArray &row, Decode decoder, std::size_t capacity)
{
    std::vector<std::byte> output(capacity);
    const std::size_t length = decoder(bytesOf(row), std::span(output));
    return {reinterpret_cast<const char *>(output.data()), static_cast<qsizetype>(length)};
}

struct EncodingCase {
    const char *name;
    Pixels row; ///< Words with alpha in the top byte.
    QByteArray tokens; ///< Hexadecimal.
};

const Pixels kThreeHundred(300, 0xFF010203);

// Worked out by hand from the token rules.
const EncodingCase kEncodingCases[] = {
    {"nothing", {}, ""},
    {"one", {0xFF112233}, "112233"},
    {"twoEqualAreLiterals", {0xFF112233, 0xFF112233}, "112233112233"},
    {"threeEqual", {0xFF112233, 0xFF112233, 0xFF112233}, "11223311223303"},
    {"blueAloneMakesARunOfTwo", {0xFF112233, 0xFF112244, 0xFF112255}, "11223311223302112255"},
    {"blueDiffersThenEqualsTheFirst",
     {0xFF112233, 0xFF112244, 0xFF112233, 0xFF112233, 0xFF000000},
     "11223311223304000000"},
    {"alphaDecidesToo", {0xFF112233, 0xFE112233, 0xFF112233}, "112233112233112233"},
    {"pairAtTheEndIsLiterals",
     {0xFF000001, 0xFF112233, 0xFF445566, 0xFF445566},
     "000001112233445566445566"},
    {"threeHundred", kThreeHundred, "010203010203ff0102030102032d"},
};

TEST(BRRowCodecs, EncodesByTheTokenRules)
{
    for (const EncodingCase &c : kEncodingCases)
        EXPECT_EQ(encode(c.row, RLECompressBGRAToRGB).toHex(), c.tokens) << c.name;
}

TEST(BRRowCodecs, LossyLevelsMergeWhatDiffersInLowBits)
{
    EXPECT_EQ(BRLossyLevelToMask(0), 0xFFFFFF00U);
    EXPECT_EQ(BRLossyLevelToMask(3), 0xF8F8F800U);
    EXPECT_EQ(BRLossyLevelToMask(5), 0xFFFFFFFFU);
    EXPECT_EQ(BRLossyLevelToMask(-1), 0xFFFFFFFFU);
    const Pixels row{0xFF102030, 0xFF1F2F99, 0xFF1A2B00, 0xFF203040};
    const auto atLevel = [&](int level) {
        return encode(row,
                      [level](const std::byte *pixels, std::size_t count, std::byte *output) {
                          return RLECompressBGRAToRGBLossy(pixels, count, output,
                                                           BRLossyLevelToMask(level));
                      })
            .toHex();
    };
    EXPECT_EQ(atLevel(4), "10203010203003203040");
    EXPECT_EQ(atLevel(3), "1020301f2f991f2f9902203040");
}

struct DecodingCase {
    const char *name;
    QByteArray tokens;
    QByteArray pixels; ///< A, R, G, B.
};

const DecodingCase kDecodingCases[] = {
    {"literal", "112233", "ff112233"},
    {"run", "11223311223303", "ff112233ff112233ff112233"},
    {"runOfNone", "11223311223300445566", "ff445566"},
    {"countBehindTheEndIsTwo", "112233112233", "ff112233ff112233"},
    {"fourBytes", "11223311", "ff112233ff11"},
    {"fiveEqualBytesAreNoRun", "1111111111", "ff111111ff1111"},
    {"twoBytes", "1122", "ff1122"},
    {"runsAndLiterals", "0000000102030102030211223344556677889911223300aabbcc",
     "ff000000ff010203ff010203ff112233ff445566ff778899ff112233ff00aabbffcc"},
};

TEST(BRRowCodecs, DecodesByTheTokenRules)
{
    for (const DecodingCase &c : kDecodingCases) {
        const QByteArray tokens = QByteArray::fromHex(c.tokens);
        EXPECT_EQ(decode(tokens, RLEUncompressRGBToARGB, 256).toHex(), c.pixels) << c.name;
    }
}

/// Rows of runs and noise, with colours so few that neighbours often share some channels.
Pixels randomRow(std::mt19937 &random, std::size_t length, std::uint32_t alpha)
{
    Pixels row;
    while (row.size() < length) {
        const std::uint32_t pixel = alpha | (random() & 0x010103U) | (random() % 4 == 0 ? 0x55 : 0);
        const std::size_t run = random() % 3 == 0 ? random() % 600 : 1 + random() % 3;
        row.insert(row.end(), std::min(run, length - row.size()), pixel);
    }
    return row;
}

/// The token rules once more, one pixel at a time: what every clever scan must agree with.
QByteArray encodePlainly(const Pixels &row, std::uint32_t pairMask, std::uint32_t extensionMask)
{
    QByteArray tokens;
    const auto put = [&](std::uint32_t pixel) {
        for (const unsigned shift : {16U, 8U, 0U})
            tokens.append(static_cast<char>(pixel >> shift));
    };
    std::size_t i = 0;
    for (; i + 2 < row.size();) {
        std::size_t count = 1;
        if (((row[i] ^ row[i + 1]) & pairMask) == 0) {
            for (count = 2; count < 255 && i + count < row.size()
                 && ((row[i] ^ row[i + count]) & extensionMask) == 0;)
                ++count;
            put(row[i]);
            put(row[i]);
            tokens.append(static_cast<char>(count));
        } else {
            put(row[i]);
        }
        i += count;
    }
    for (; i < row.size(); ++i)
        put(row[i]);
    return tokens;
}

TEST(BRRowCodecs, FastScansGiveTheSameBytesAndBack)
{
    std::mt19937 random = repeatableNumbers(1);
    for (int round = 0; round < 2000; ++round) {
        const Pixels row = randomRow(random, random() % 900, 0xFF000000);
        const QByteArray tokens = encode(row, RLECompressBGRAToRGB);
        ASSERT_EQ(tokens, encodePlainly(row, 0xFFFFFF00, 0xFFFFFFFF));
        const std::uint32_t mask = BRLossyLevelToMask(static_cast<int>(random() % 6));
        const auto lossily = [&](auto pixels, auto count, auto output) {
            return RLECompressBGRAToRGBLossy(pixels, count, output, mask);
        };
        ASSERT_EQ(encode(row, lossily), encodePlainly(row, mask, mask));

        // Undefined alpha encodes like opaque.
        Pixels undefined = row;
        for (std::uint32_t &pixel : undefined)
            pixel = (pixel & 0xFFFFFFU) | static_cast<std::uint32_t>(random()) << 24U;
        for (const std::uint32_t lossyMask : {0U, mask}) {
            const auto opaque = [&](auto pixels, auto count, auto output) {
                return RLECompressOpaqueBGRAToRGB(pixels, count, output, lossyMask);
            };
            ASSERT_EQ(encode(undefined, opaque), lossyMask == 0 ? tokens : encode(row, lossily));
        }

        // A run of two forgets its second pixel's blue; everything else comes back.
        Pixels back(row.size());
        const auto length
            = RLEUncompressRGBToBGRA(bytesOf(tokens), std::as_writable_bytes(std::span(back)));
        ASSERT_EQ(length, row.size() * 4);
        for (std::size_t i = 0; i < row.size(); ++i)
            ASSERT_EQ(back[i] & 0xFFFFFF00U, row[i] & 0xFFFFFF00U) << i;
    }
}

TEST(BRRowCodecs, EveryMemberOfTheFamilyRoundTrips)
{
    std::mt19937 random = repeatableNumbers(2);
    for (int round = 0; round < 300; ++round) {
        Pixels bgra = randomRow(random, random() % 700, 0xFF000000);
        for (std::uint32_t &pixel : bgra)
            pixel &= 0xFFFFFF00U; // blue is what a pair may lose
        Pixels argb = bgra;
        for (std::uint32_t &pixel : argb)
            pixel = __builtin_bswap32(pixel);
        const auto words = [](const Pixels &row) {
            return QByteArray(reinterpret_cast<const char *>(row.data()),
                              static_cast<qsizetype>(row.size() * 4));
        };
        const std::size_t bytes = bgra.size() * 4;
        const QByteArray rgb = encode(bgra, RLECompressBGRAToRGB);
        const QByteArray bgr = encode(bgra, RLECompressBGRAToBGR);
        ASSERT_EQ(encode(argb, RLECompressARGBToRGB).size(), rgb.size());
        ASSERT_EQ(decode(rgb, RLEUncompressRGBToARGB, bytes), words(argb));
        ASSERT_EQ(decode(bgr, RLEUncompressBGRToBGRA, bytes), words(bgra));
        ASSERT_EQ(decode(bgr, RLEUncompressBGRToARGB, bytes), words(argb));

        std::vector<std::byte> tokens(RLE32bitMaximumLength(bgra.size()));
        const auto length32 = RLECompress32bit(bgra.data(), bgra.size(), tokens.data());
        ASSERT_LE(length32, tokens.size());
        Pixels back(bgra.size());
        ASSERT_EQ(RLEUncompress32bit(std::span(tokens).first(length32), back), bgra.size());
        ASSERT_EQ(back, bgra);

        std::vector<std::uint8_t> values(bgra.begin(), bgra.end());
        for (std::uint8_t &value : values)
            value = static_cast<std::uint8_t>(random() % 2);
        tokens.resize(RLE8bitMaximumLength(values.size()));
        const auto length8 = RLECompress8bit(values.data(), values.size(), tokens.data());
        ASSERT_LE(length8, tokens.size());
        std::vector<std::uint8_t> valuesBack(values.size());
        ASSERT_EQ(RLEUncompress8bit(std::span(tokens).first(length8), valuesBack), values.size());
        ASSERT_EQ(valuesBack, values);
    }
}

TEST(BRRowCodecs, AnyBytesDecodeWithinTheRow)
{
    std::mt19937 random = repeatableNumbers(3);
    for (int round = 0; round < 5000; ++round) {
        QByteArray tokens(static_cast<qsizetype>(random() % 64), Qt::Uninitialized);
        for (char &byte : tokens)
            byte = static_cast<char>(random() % 3);
        // The vector is exactly as large as it may write: the sanitizers see a byte beyond it.
        const QByteArray all = decode(tokens, RLEUncompressRGBToARGB, 4096);
        const std::size_t capacity = (random() % 100) * 4;
        ASSERT_EQ(decode(tokens, RLEUncompressRGBToARGB, capacity),
                  all.first(std::min(all.size(), qsizetype(capacity))));
    }
}

} // namespace
