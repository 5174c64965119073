#pragma once

#include <cstdint>
#include <cstring>

/// Pixels that are worked on together. The compiler's own vectors: an SSE2 register on any
/// x86-64, whatever there is elsewhere. Load and store with std::memcpy; rows are not aligned.
using BRPixelVector [[gnu::vector_size(16)]] = std::uint32_t;

inline constexpr int kBRPixelsPerVector = sizeof(BRPixelVector) / 4;

inline BRPixelVector BRPixelVectorOf(std::uint32_t pixel)
{
    return BRPixelVector{} + pixel;
}

inline bool BRPixelVectorIsZero(BRPixelVector pixels)
{
    std::uint64_t parts[sizeof pixels / 8];
    std::memcpy(parts, &pixels, sizeof pixels);
    return (parts[0] | parts[1]) == 0;
}

/// Each pixel's four bytes in reverse.
inline BRPixelVector BRPixelVectorReversed(BRPixelVector pixels)
{
    const BRPixelVector halves = pixels << 16U | pixels >> 16U;
    return (halves & 0x00FF00FFU) << 8U | (halves >> 8U & 0x00FF00FFU);
}
