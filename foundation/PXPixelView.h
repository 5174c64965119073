#pragma once

#include <cstddef>

/// Rows of 4-byte pixels, B, G, R, A in memory, the lowest row of the picture first.
/// `bytesPerRow` is the step to the row above; it is negative where a back end delivers the top
/// row first in memory. The alpha byte is undefined until somebody sets it.
struct PXPixelView {
    std::byte *lowestRow = nullptr;
    std::ptrdiff_t bytesPerRow = 0;
    int width = 0;
    int height = 0;

    [[nodiscard]] std::byte *pixel(int x, int y) const
    {
        return lowestRow + static_cast<std::ptrdiff_t>(y) * bytesPerRow
            + static_cast<std::ptrdiff_t>(x) * 4;
    }
};
