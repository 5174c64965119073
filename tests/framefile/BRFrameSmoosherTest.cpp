#include "capture/framefile/BRFrameSmoosher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
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

} // namespace
