#pragma once

#include <cstdint>

/// How the pixels of a raw capture's rectangles are stored; the number stands in the file.
enum class BRRawCompression : std::uint32_t {
    None = 0,
    LZO = 1,
    RLE = 2,
};
