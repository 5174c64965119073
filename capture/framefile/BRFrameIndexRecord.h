#pragma once

#include <cstdint>

/// What the index file says about one frame, byte for byte as it lies there: little-endian, like
/// every machine that Debian calls amd64 or arm64.
struct [[gnu::packed]] BRFrameIndexRecord {
    std::uint32_t index = 0; ///< From 0.
    std::uint64_t position = 0; ///< Of the frame record in the frame file.
    double timestamp = 0; ///< Seconds since frame 0.
    std::uint32_t flags = 0; ///< 1: a key frame, from which reading can start.

    [[nodiscard]] bool isKeyFrame() const { return (flags & 1U) != 0; }
    friend bool operator==(const BRFrameIndexRecord &, const BRFrameIndexRecord &) = default;
};
static_assert(sizeof(BRFrameIndexRecord) == 24);
