#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The run-length codecs. One row of pixels at a time, no allocation. Tokens are a literal (three
// channels) or a run of 2 to 255 equal pixels (the three channels twice, then the count); there is
// no header, and the row's length is known from outside.
//
// Encoding: a pair of neighbours starts a run when they agree under the pair mask, which leaves
// out blue (the low byte of a B, G, R, A word); the run grows over pixels that agree with its
// first one under the extension mask, which leaves out nothing. So two pixels that differ in blue
// only become one run of two. The last one or two pixels that no run reached are literals.

/// The bits of two pixel words that the lossy encoders compare. Level 0 to 4; for any other level
/// all bits.
std::uint32_t BRLossyLevelToMask(int level);

/// Most bytes that a row of `pixels` encodes to: runs of two cost seven bytes.
constexpr std::size_t RLEMaximumLength(std::size_t pixels)
{
    return pixels * 7 / 2 + 3;
}

// Encoders. `output` has room for RLEMaximumLength(pixels); the result is the encoded length.
std::size_t RLECompressBGRAToRGB(const std::byte *row, std::size_t pixels, std::byte *output);
std::size_t RLECompressBGRAToRGBLossy(const std::byte *row, std::size_t pixels, std::byte *output,
                                      std::uint32_t mask);
std::size_t RLECompressARGBToRGB(const std::byte *row, std::size_t pixels, std::byte *output);
std::size_t RLECompressARGBToRGBLossy(const std::byte *row, std::size_t pixels, std::byte *output,
                                      std::uint32_t mask);
std::size_t RLECompressBGRAToBGR(const std::byte *row, std::size_t pixels, std::byte *output);
std::size_t RLECompressBGRAToBGRLossy(const std::byte *row, std::size_t pixels, std::byte *output,
                                      std::uint32_t mask);
/// `RLECompressBGRAToRGB` (mask 0) or its lossy sibling of a row whose pixels count as opaque
/// whatever their alpha bytes hold, without a pass over the row that would set them.
std::size_t RLECompressOpaqueBGRAToRGB(const std::byte *row, std::size_t pixels, std::byte *output,
                                       std::uint32_t lossyMask);

// Decoders. Write at most `output.size()` bytes, leave out what goes beyond, and return how many
// they wrote; alpha is 255. A count behind the row's end reads as 2, a comparison that would reach
// behind it as not equal; one to three bytes at the end are copied after an alpha byte.
std::size_t RLEUncompressRGBToARGB(std::span<const std::byte> row, std::span<std::byte> output);
std::size_t RLEUncompressBGRToBGRA(std::span<const std::byte> row, std::span<std::byte> output);
std::size_t RLEUncompressBGRToARGB(std::span<const std::byte> row, std::span<std::byte> output);
/// Straight from the file's tokens to B, G, R, A: the first one, its bytes reversed.
std::size_t RLEUncompressRGBToBGRA(std::span<const std::byte> row, std::span<std::byte> output);

// The same scheme for single bytes and for 32-bit words, with equality as the only comparison:
// a literal is the value, a run the value twice and then a one-byte count.

/// Most bytes: runs of two cost three.
constexpr std::size_t RLE8bitMaximumLength(std::size_t values)
{
    return values * 3 / 2 + 1;
}
std::size_t RLECompress8bit(const std::uint8_t *values, std::size_t count, std::byte *output);
/// Returns how many values it wrote, at most `output.size()`.
std::size_t RLEUncompress8bit(std::span<const std::byte> row, std::span<std::uint8_t> output);

/// Most bytes: runs of two cost nine.
constexpr std::size_t RLE32bitMaximumLength(std::size_t values)
{
    return values * 9 / 2 + 4;
}
std::size_t RLECompress32bit(const std::uint32_t *values, std::size_t count, std::byte *output);
std::size_t RLEUncompress32bit(std::span<const std::byte> row, std::span<std::uint32_t> output);
