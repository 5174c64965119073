#include "capture/framefile/BRFrameSmoosher.h"

#include "capture/framefile/BRPixelVector.h"
#include "foundation/BRLog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

/// Applies `vectorOperation` to whole vectors and the same to the pixels that are left.
template <typename Operation>
void forPixels(const std::byte *from, std::byte *to, std::size_t pixels, Operation operation)
{
    std::size_t i = 0;
    for (; i + kBRPixelsPerVector <= pixels; i += kBRPixelsPerVector) {
        BRPixelVector some;
        std::memcpy(&some, from + i * 4, sizeof some);
        some = operation(some);
        std::memcpy(to + i * 4, &some, sizeof some);
    }
    if (i == pixels)
        return;
    BRPixelVector rest = {};
    std::memcpy(&rest, from + i * 4, (pixels - i) * 4);
    rest = operation(rest);
    std::memcpy(to + i * 4, &rest, (pixels - i) * 4);
}

void packOpaqueRow(const std::byte *from, std::byte *to, std::size_t pixels, const std::byte *)
{
    forPixels(from, to, pixels, [](BRPixelVector some) { return some | 0xFF000000U; });
}

#if defined(__x86_64__)
/// The same a cache line at a time, while the next row is on its way: the rows are gone through
/// upwards, where the processor fetches nothing ahead by itself. By intrinsics, because what the
/// compiler makes of its own vectors of this width goes through the stack and takes four times as
/// long.
[[gnu::target("avx2")]] void packOpaqueRowWide(const std::byte *from, std::byte *to,
                                               std::size_t pixels, const std::byte *nextRow)
{
    using Vector = __m256i;
    constexpr std::size_t kLine = 2 * sizeof(Vector);
    const Vector opaque = _mm256_set1_epi32(static_cast<int>(0xFF000000U));
    for (; pixels * 4 >= kLine; pixels -= kLine / 4) {
        const Vector left = _mm256_loadu_si256(reinterpret_cast<const Vector *>(from));
        const Vector right = _mm256_loadu_si256(reinterpret_cast<const Vector *>(from) + 1);
        _mm_prefetch(nextRow, _MM_HINT_T1);
        _mm256_storeu_si256(reinterpret_cast<Vector *>(to), _mm256_or_si256(left, opaque));
        _mm256_storeu_si256(reinterpret_cast<Vector *>(to) + 1, _mm256_or_si256(right, opaque));
        from += kLine;
        to += kLine;
        nextRow += kLine;
    }
    packOpaqueRow(from, to, pixels, nextRow);
}
#endif

using PackRow
    = void (*)(const std::byte *from, std::byte *to, std::size_t pixels, const std::byte *nextRow);

PackRow fastestPackOpaqueRow()
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2"))
        return packOpaqueRowWide;
#endif
    return packOpaqueRow;
}

void swapRows(std::byte *a, std::byte *b, std::size_t bytes)
{
    // Small enough to stay in the nearest cache.
    std::array<std::byte, 2048> kept;
    while (bytes > 0) {
        const std::size_t part = std::min(bytes, kept.size());
        std::memcpy(kept.data(), a, part);
        std::memcpy(a, b, part);
        std::memcpy(b, kept.data(), part);
        a += part;
        b += part;
        bytes -= part;
    }
}

std::uint32_t blend(std::uint32_t over, std::uint32_t under)
{
    const std::uint32_t clearness = 255 - (over >> 24U);
    std::uint32_t result = 0xFF000000U;
    for (unsigned shift = 0; shift < 24; shift += 8) {
        const std::uint32_t product = (under >> shift & 0xFFU) * clearness + 128;
        const std::uint32_t rest = (product + (product >> 8U)) >> 8U; // product / 255, rounded
        result |= std::min((over >> shift & 0xFFU) + rest, 255U) << shift;
    }
    return result;
}

} // namespace

namespace BRFrameSmoosher {

void convertBufferBetweenARGBAndBGRA(std::byte *buffer, int width, int height,
                                     std::ptrdiff_t bytesPerRow)
{
    for (int y = 0; y < height; ++y, buffer += bytesPerRow)
        reversePixels(buffer, buffer, width);
}

void reversePixels(const std::byte *from, std::byte *to, int width)
{
    forPixels(from, to, static_cast<std::size_t>(std::max(width, 0)), BRPixelVectorReversed);
}

bool flipBuffer(const std::byte *buffer, std::byte *intoBuffer, int width, int height,
                std::size_t rowBytes)
{
    if (buffer == nullptr || intoBuffer == nullptr || width < 0 || height < 0
        || rowBytes < static_cast<std::size_t>(width) * 4) {
        BRLog(BRLogError, "vertical flip error %d", EINVAL);
        return false;
    }
    const std::size_t bytes = static_cast<std::size_t>(width) * 4;
    const auto rows = static_cast<std::size_t>(height);
    if (buffer == intoBuffer) {
        for (std::size_t y = 0; y < rows / 2; ++y)
            swapRows(intoBuffer + y * rowBytes, intoBuffer + (rows - 1 - y) * rowBytes, bytes);
        return true;
    }
    for (std::size_t y = 0; y < rows; ++y)
        std::memcpy(intoBuffer + y * rowBytes, buffer + (rows - 1 - y) * rowBytes, bytes);
    return true;
}

void overlayCursorData(const std::byte *cursorData, PXSize size,
                       const PXPixelView &ontoUpsidedownBuffer, const PXRect &rect)
{
    const PXPixelView &buffer = ontoUpsidedownBuffer;
    const int width = PXClampToInt(size.width);
    const int height = PXClampToInt(size.height);
    // 64-bit: a cursor far outside must not wrap around into the picture.
    const std::int64_t left = PXClampToInt(std::floor(rect.x));
    const std::int64_t lowest = PXClampToInt(std::floor(rect.y));
    const std::int64_t firstColumn = std::max<std::int64_t>(0, -left);
    const std::int64_t endColumn = std::min<std::int64_t>(width, buffer.width - left);
    for (int row = 0; row < height; ++row) {
        const std::int64_t y = lowest + height - 1 - row;
        if (y < 0 || y >= buffer.height)
            continue;
        const std::byte *source = cursorData + static_cast<std::ptrdiff_t>(row) * width * 4;
        for (std::int64_t x = firstColumn; x < endColumn; ++x) {
            std::uint32_t over = 0;
            std::memcpy(&over, source + x * 4, sizeof over);
            if (over == 0)
                continue;
            std::byte *place = buffer.pixel(static_cast<int>(left + x), static_cast<int>(y));
            std::uint32_t under = 0;
            std::memcpy(&under, place, sizeof under);
            under = blend(over, under);
            std::memcpy(place, &under, sizeof under);
        }
    }
}

void overlayDirtyRect(const std::byte *dirtyRect, std::byte *onPixelBuffer,
                      std::ptrdiff_t bytesPerRow, const PXRect &inRect, int totalHeight)
{
    const int height = PXClampToInt(inRect.height);
    const std::size_t rowBytes = static_cast<std::size_t>(PXClampToInt(inRect.width)) * 4;
    const std::ptrdiff_t topRow = totalHeight - PXClampToInt(inRect.maxY());
    std::byte *to
        = onPixelBuffer + topRow * bytesPerRow + std::ptrdiff_t{4} * PXClampToInt(inRect.x);
    for (int y = 0; y < height; ++y) {
        std::memcpy(to, dirtyRect, rowBytes);
        dirtyRect += rowBytes;
        to += bytesPerRow;
    }
}

void packOpaqueRows(const std::byte *lowestRow, std::ptrdiff_t bytesPerRow, int width, int height,
                    std::byte *intoBuffer)
{
    static const PackRow packRow = fastestPackOpaqueRow();
    const auto pixels = static_cast<std::size_t>(width);
    for (int y = 0; y < height; ++y) {
        const std::byte *row = lowestRow + y * bytesPerRow;
        packRow(row, intoBuffer, pixels, y + 1 < height ? row + bytesPerRow : row);
        intoBuffer += pixels * 4;
    }
}

} // namespace BRFrameSmoosher
