#pragma once

#include <cstdint>

/// The floor's recording: one `FloorHeader`, then frames: a `FloorFrame`, and for each rectangle
/// a `FloorRect` followed by its rows, LZO1X-1 compressed as one block. All in memory's own order:
/// the file is read where it was written, and only to count what it holds.
inline constexpr std::uint32_t kFloorMagic = 0x464c4f52;

struct FloorHeader {
    std::uint32_t magic;
    std::uint32_t width;
    std::uint32_t height;
};

struct FloorFrame {
    std::int64_t timeNs; ///< CLOCK_MONOTONIC when the damage was taken.
    std::uint32_t rectangleCount;
    std::uint32_t reserved;
};

struct FloorRect {
    std::int16_t x;
    std::int16_t y;
    std::uint16_t width;
    std::uint16_t height;
    std::uint32_t compressedBytes;
};
