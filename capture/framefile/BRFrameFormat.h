#pragma once

#include <cstddef>
#include <cstdint>

/// Numbers of the raw capture's files that more than one place needs.
namespace BRFrameFormat {

inline constexpr std::uint32_t kV2Magic = 0x544F4C56;
inline constexpr std::uint64_t kV2HeaderLength = 41; ///< Frames begin here.
inline constexpr std::uint64_t kV2DurationPosition = 20; ///< A double; the frame count follows.
inline constexpr std::uint64_t kV2IndexRecordLength = 24;
inline constexpr std::uint32_t kKeyFrameFlag = 1;

// Version 1's tags, read in the file's byte order.
inline constexpr std::uint32_t kV1Preamble = 0x5644454F; // 'VDEO'
inline constexpr std::uint32_t kV1FrameTag = 0x4652414D; // 'FRAM'
inline constexpr std::uint32_t kV1RectangleTag = 0x52454354; // 'RECT'

/// No X screen is larger, and width * height * 4 still fits the file's 32 bits.
inline constexpr std::uint32_t kLargestSide = 32767;

/// Of a frame. Recorders merge what changed into some dozens; what claims more is damaged.
inline constexpr std::uint32_t kMostRectsOfAFrame = 65'536;

/// Larger buffers are told about, not refused.
inline constexpr std::size_t kTemporaryBufferBound = 65'536'000;
inline constexpr std::size_t kWritingBufferBound = 131'072'000;

/// The most bytes of pixels that a byte of file can stand for: LZO's longest match grows by 255
/// bytes a byte; a run is 1020 bytes for seven.
inline constexpr std::uint64_t kLargestExpansion = 256;

/// The most memory for pixels that a file of `length` bytes justifies: what it can hold, or a
/// large screen, on which small rectangles may lie.
constexpr std::uint64_t pixelBytesJustified(std::uint64_t length)
{
    return length * kLargestExpansion > kTemporaryBufferBound ? length * kLargestExpansion
                                                              : kTemporaryBufferBound;
}

} // namespace BRFrameFormat
