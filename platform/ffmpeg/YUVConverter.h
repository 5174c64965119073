#pragma once

#include <cstddef>
#include <cstdint>

/// From the screen's red, green and blue to the encoders' luma and colour differences, a block of
/// a picture at a time, so that only what changed needs converting.
namespace YUVConverter {

/// Which red, green and blue weigh how much, and how far the numbers reach.
enum class Matrix {
    BT709Limited, ///< What video players assume for anything of a screen's size: 16…235.
    BT601Full, ///< What JPEG is defined with: 0…255.
};

/// How many columns and rows share one pair of colour differences: 1 << shift.
struct Layout {
    int horizontalShift = 1;
    int verticalShift = 1;
    int bitsPerSample = 8; ///< 8 (a byte) or 10 (in 16 bits of the machine's order).
    Matrix matrix = Matrix::BT709Limited;
};

/// Where a block goes: its first sample in each plane and the bytes from row to row.
struct Planes {
    std::uint8_t *data[3];
    std::ptrdiff_t bytesPerRow[3];
};

/// Converts width x height pixels (B, G, R, x; `bytesPerRow` apart; 4-byte aligned). Width and
/// height are multiples of what shares a colour, which is the mean of the pixels sharing it.
void convert(const Layout &layout, const std::byte *pixels, std::ptrdiff_t bytesPerRow, int width,
             int height, const Planes &planes);

} // namespace YUVConverter
