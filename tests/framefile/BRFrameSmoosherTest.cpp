#include "capture/framefile/BRFrameSmoosher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using Pixels = std::vector<std::uint32_t>;

std::byte *bytes(Pixels &pixels)
{
    return reinterpret_cast<std::byte *>(pixels.data());
}

TEST(BRFrameSmoosher, ByteOrderTurnsAroundAndBackAndLeavesThePadding)
{
    for (int width = 0; width < 20; ++width) {
        Pixels picture(60, 0x11223344);
        const Pixels before = picture;
        BRFrameSmoosher::convertBufferBetweenARGBAndBGRA(bytes(picture), width, 3, 80);
        for (int i = 0; i < 60; ++i)
            EXPECT_EQ(picture[static_cast<std::size_t>(i)],
                      i % 20 < width ? 0x44332211U : 0x11223344U);
        BRFrameSmoosher::convertBufferBetweenARGBAndBGRA(bytes(picture), width, 3, 80);
        EXPECT_EQ(picture, before);
    }
}

TEST(BRFrameSmoosher, FlipsIntoAnotherBufferAndInPlace)
{
    constexpr std::size_t width = 700; // more than one block of the row swap
    for (const int height : {1, 2, 5}) {
        Pixels picture(width * static_cast<std::size_t>(height));
        for (std::size_t i = 0; i < picture.size(); ++i)
            picture[i] = static_cast<std::uint32_t>(i);
        Pixels flipped(picture.size());
        ASSERT_TRUE(
            BRFrameSmoosher::flipBuffer(bytes(picture), bytes(flipped), width, height, width * 4));
        for (std::size_t i = 0; i < picture.size(); ++i)
            ASSERT_EQ(flipped[i], picture[picture.size() - (i / width + 1) * width + i % width]);
        ASSERT_TRUE(
            BRFrameSmoosher::flipBuffer(bytes(picture), bytes(picture), width, height, width * 4));
        EXPECT_EQ(picture, flipped);
    }
    std::array<std::byte, 16> small = {};
    EXPECT_FALSE(BRFrameSmoosher::flipBuffer(small.data(), small.data(), 4, 1, 8));
}

struct CursorCase {
    const char *name;
    PXRect place;
    Pixels lowestRowFirst; ///< 3 x 2 pixels, alpha 0x80 of 0x204060 before.
};

// The cursor: top row opaque red and nothing, lowest row half-transparent white and opaque blue.
const Pixels kCursor{0xFFFF0000, 0x00000000, 0x80808080, 0xFF0000FF};
constexpr std::uint32_t kUnder = 0x80204060;
constexpr std::uint32_t kWhiteOver = 0xFF90A0B0; // 0x80 + channel * 127 / 255, rounded

const CursorCase kCursorCases[] = {
    {"inside", {0, 0, 2, 2}, {kWhiteOver, 0xFF0000FF, kUnder, 0xFFFF0000, kUnder, kUnder}},
    {"belowAndRight", {2, -1, 2, 2}, {kUnder, kUnder, 0xFFFF0000, kUnder, kUnder, kUnder}},
    {"aboveAndLeft", {-1, 1, 2, 2}, {kUnder, kUnder, kUnder, 0xFF0000FF, kUnder, kUnder}},
    {"faraway", {3e9F, -3e9F, 2, 2}, {kUnder, kUnder, kUnder, kUnder, kUnder, kUnder}},
};

TEST(BRFrameSmoosher, TheCursorIsBlendedWhereItLies)
{
    for (const CursorCase &c : kCursorCases) {
        // Once with the lowest row first in memory, once with the top row first.
        Pixels upward(6, kUnder);
        BRFrameSmoosher::overlayCursorData(reinterpret_cast<const std::byte *>(kCursor.data()),
                                           {2, 2}, {bytes(upward), 12, 3, 2}, c.place);
        EXPECT_EQ(upward, c.lowestRowFirst) << c.name;
        Pixels downward(6, kUnder);
        BRFrameSmoosher::overlayCursorData(reinterpret_cast<const std::byte *>(kCursor.data()),
                                           {2, 2}, {bytes(downward) + 12, -12, 3, 2}, c.place);
        std::rotate(downward.begin(), downward.begin() + 3, downward.end());
        EXPECT_EQ(downward, c.lowestRowFirst) << c.name;
    }
}

TEST(BRFrameSmoosher, ARectangleCountsFromThePicturesLowerLeft)
{
    Pixels picture(12, 0);
    Pixels rectangle{1, 2, 3, 4};
    BRFrameSmoosher::overlayDirtyRect(bytes(rectangle), bytes(picture), 16, {1, 0, 2, 2}, 3);
    EXPECT_EQ(picture, (Pixels{0, 0, 0, 0, 0, 1, 2, 0, 0, 3, 4, 0}));
}

TEST(BRFrameSmoosher, PackingTurnsRowsAroundAndMakesThemOpaque)
{
    Pixels buffer(21);
    for (std::size_t i = 0; i < buffer.size(); ++i)
        buffer[i] = static_cast<std::uint32_t>(i);
    for (int width = 1; width <= 7; ++width) {
        Pixels packed(static_cast<std::size_t>(width) * 3, 0);
        BRFrameSmoosher::packOpaqueRows(bytes(buffer) + 56, -28, width, 3, bytes(packed));
        for (int i = 0; i < width * 3; ++i)
            EXPECT_EQ(packed[static_cast<std::size_t>(i)],
                      0xFF000000U + static_cast<std::uint32_t>((2 - i / width) * 7 + i % width));
    }
}

} // namespace
