#include "capture/framefile/BRRowCodecs.h"

#include "capture/framefile/BRPixelVector.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kLongestRun = 255;

template <typename T> T load(const void *from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename T> void store(std::byte *to, T value)
{
    std::memcpy(to, &value, sizeof value);
}

/// How many pixels from `pixels` on agree with `pixel` under `mask`, at most `limit`.
std::size_t countMatching(const std::byte *pixels, std::size_t limit, std::uint32_t pixel,
                          std::uint32_t mask)
{
    std::size_t count = 0;
    const BRPixelVector wantedPixels = BRPixelVectorOf(pixel);
    const BRPixelVector masks = BRPixelVectorOf(mask);
    while (count + kBRPixelsPerVector <= limit) {
        const auto these = load<BRPixelVector>(pixels + count * 4);
        if (!BRPixelVectorIsZero((these ^ wantedPixels) & masks))
            break;
        count += kBRPixelsPerVector;
    }
    while (count < limit && ((load<std::uint32_t>(pixels + count * 4) ^ pixel) & mask) == 0)
        ++count;
    return count;
}

// What a pixel word becomes: three channels in the low three bytes, in the order of the file.
std::uint32_t tokenRGBFromBGRA(std::uint32_t pixel)
{
    return __builtin_bswap32(pixel) >> 8;
}
std::uint32_t tokenRGBFromARGB(std::uint32_t pixel)
{
    return pixel >> 8;
}
std::uint32_t tokenBGRFromBGRA(std::uint32_t pixel)
{
    return pixel & 0xFFFFFFU;
}

// Tokens are stored as whole words, a byte further than they reach; the next one goes over it.
template <std::uint32_t (*token)(std::uint32_t)>
std::size_t compress(const std::byte *row, std::size_t pixels, std::byte *output,
                     std::uint32_t pairMask, std::uint32_t extensionMask)
{
    std::byte *out = output;
    std::size_t i = 0;
    while (i + 2 < pixels) {
        const auto pair = load<std::uint64_t>(row + i * 4);
        const auto pixel = static_cast<std::uint32_t>(pair);
        const std::uint32_t colour = token(pixel);
        if (((pixel ^ static_cast<std::uint32_t>(pair >> 32U)) & pairMask) != 0) {
            store(out, colour);
            out += 3;
            ++i;
            continue;
        }
        const std::size_t limit = std::min(pixels - i, kLongestRun) - 2;
        const std::size_t count = 2 + countMatching(row + (i + 2) * 4, limit, pixel, extensionMask);
        store(out, colour | std::uint64_t{colour} << 24U | std::uint64_t{count} << 48U);
        out += 7;
        i += count;
    }
    for (; i < pixels; ++i) {
        store(out, token(load<std::uint32_t>(row + i * 4)));
        out += 3;
    }
    return static_cast<std::size_t>(out - output);
}

// What a token's low three bytes become, as a pixel word with its alpha byte at 255.
std::uint32_t pixelARGBFromRGB(std::uint32_t token)
{
    return token << 8U | 0xFFU;
}
std::uint32_t pixelBGRAFromBGR(std::uint32_t token)
{
    return token | 0xFF000000U;
}
std::uint32_t pixelReversed(std::uint32_t token)
{
    return __builtin_bswap32(token << 8U | 0xFFU);
}
std::uint32_t pixelARGBFromBGR(std::uint32_t token)
{
    return __builtin_bswap32(token << 8U) << 8U | 0xFFU;
}

/// Where decoded pixels go; leaves out what goes beyond the end.
struct Output {
    std::byte *next;
    std::byte *end;

    void put(std::uint32_t pixel)
    {
        if (end - next >= 4) {
            store(next, pixel);
            next += 4;
        }
    }
    void put(std::uint32_t pixel, std::size_t count)
    {
        const std::size_t room = static_cast<std::size_t>(end - next) / 4;
        count = std::min(count, room);
        std::byte *to = next;
        next += count * 4;
        // Whole vectors for as long as they fit, further than the run where there is room: what
        // follows goes over it.
        const BRPixelVector pixels = BRPixelVectorOf(pixel);
        while (to < next && end - to >= static_cast<std::ptrdiff_t>(sizeof pixels)) {
            store(to, pixels);
            to += sizeof pixels;
        }
        for (; to < next; to += 4)
            store(to, pixel);
    }
};

/// The last bytes of a row, fewer than a whole token can be read at once from.
template <std::uint32_t (*pixel)(std::uint32_t)>
void uncompressTail(std::span<const std::byte> row, std::size_t k, Output &output,
                    bool hasAlphaFirst)
{
    while (row.size() - k > 3) {
        std::uint32_t token = 0;
        std::memcpy(&token, row.data() + k, 3);
        const bool isRun
            = row.size() - k >= 6 && std::memcmp(row.data() + k, row.data() + k + 3, 3) == 0;
        if (!isRun) {
            output.put(pixel(token));
            k += 3;
            continue;
        }
        const bool hasCount = row.size() - k > 6;
        output.put(pixel(token), hasCount ? std::to_integer<std::size_t>(row[k + 6]) : 2);
        k += hasCount ? 7 : 6;
    }
    if (k == row.size())
        return;
    if (row.size() - k == 3) {
        std::uint32_t token = 0;
        std::memcpy(&token, row.data() + k, 3);
        output.put(pixel(token));
        return;
    }
    // A damaged row: copied as it is, so that the same bytes always give the same picture.
    std::byte bytes[3] = {};
    std::size_t length = 0;
    if (hasAlphaFirst)
        bytes[length++] = std::byte{255};
    for (; k < row.size(); ++k)
        bytes[length++] = row[k];
    length = std::min(length, static_cast<std::size_t>(output.end - output.next));
    std::copy_n(bytes, length, output.next);
    output.next += length;
}

template <std::uint32_t (*pixel)(std::uint32_t)>
std::size_t uncompress(std::span<const std::byte> row, std::span<std::byte> output,
                       bool hasAlphaFirst)
{
    Output out{output.data(), output.data() + output.size()};
    std::size_t k = 0;
    while (row.size() - k >= 8) {
        const auto token = load<std::uint64_t>(row.data() + k);
        if (((token ^ token >> 24U) & 0xFFFFFFU) == 0) {
            out.put(pixel(static_cast<std::uint32_t>(token) & 0xFFFFFFU), token >> 48U & 0xFFU);
            k += 7;
        } else {
            out.put(pixel(static_cast<std::uint32_t>(token) & 0xFFFFFFU));
            k += 3;
        }
    }
    uncompressTail<pixel>(row, k, out, hasAlphaFirst);
    return static_cast<std::size_t>(out.next - output.data());
}

template <typename T> std::size_t compressValues(const T *values, std::size_t count, std::byte *out)
{
    std::byte *const begin = out;
    for (std::size_t i = 0; i < count;) {
        const std::size_t limit = std::min(count - i, kLongestRun);
        std::size_t run = 1;
        while (run < limit && values[i + run] == values[i])
            ++run;
        store(out, values[i]);
        out += sizeof(T);
        if (run > 1) {
            store(out, values[i]);
            out += sizeof(T);
            *out++ = static_cast<std::byte>(run);
        }
        i += run;
    }
    return static_cast<std::size_t>(out - begin);
}

template <typename T>
std::size_t uncompressValues(std::span<const std::byte> row, std::span<T> output)
{
    std::size_t written = 0;
    std::size_t k = 0;
    while (row.size() - k >= sizeof(T)) {
        const T value = load<T>(row.data() + k);
        k += sizeof(T);
        std::size_t run = 1;
        if (row.size() - k >= sizeof(T) && load<T>(row.data() + k) == value) {
            k += sizeof(T);
            run = k < row.size() ? std::to_integer<std::size_t>(row[k++]) : 2;
        }
        run = std::min(run, output.size() - written);
        std::fill_n(output.begin() + static_cast<std::ptrdiff_t>(written), run, value);
        written += run;
    }
    return written;
}

} // namespace

std::uint32_t BRLossyLevelToMask(int level)
{
    // The lowest byte is blue in a B, G, R, A word: it takes no part in finding runs.
    constexpr std::uint32_t masks[] = {0xFFFFFF00, 0xFEFEFE00, 0xFCFCFC00, 0xF8F8F800, 0xF0F0F000};
    return level >= 0 && level <= 4 ? masks[level] : 0xFFFFFFFF;
}

std::size_t RLECompressBGRAToRGB(const std::byte *row, std::size_t pixels, std::byte *output)
{
    return compress<tokenRGBFromBGRA>(row, pixels, output, 0xFFFFFF00, 0xFFFFFFFF);
}
std::size_t RLECompressBGRAToRGBLossy(const std::byte *row, std::size_t pixels, std::byte *output,
                                      std::uint32_t mask)
{
    return compress<tokenRGBFromBGRA>(row, pixels, output, mask, mask);
}
std::size_t RLECompressARGBToRGB(const std::byte *row, std::size_t pixels, std::byte *output)
{
    return compress<tokenRGBFromARGB>(row, pixels, output, 0x00FFFFFF, 0xFFFFFFFF);
}
std::size_t RLECompressARGBToRGBLossy(const std::byte *row, std::size_t pixels, std::byte *output,
                                      std::uint32_t mask)
{
    return compress<tokenRGBFromARGB>(row, pixels, output, mask, mask);
}
std::size_t RLECompressBGRAToBGR(const std::byte *row, std::size_t pixels, std::byte *output)
{
    return compress<tokenBGRFromBGRA>(row, pixels, output, 0xFFFFFF00, 0xFFFFFFFF);
}
std::size_t RLECompressBGRAToBGRLossy(const std::byte *row, std::size_t pixels, std::byte *output,
                                      std::uint32_t mask)
{
    return compress<tokenBGRFromBGRA>(row, pixels, output, mask, mask);
}
std::size_t RLECompressOpaqueBGRAToRGB(const std::byte *row, std::size_t pixels, std::byte *output,
                                       std::uint32_t lossyMask)
{
    // Equal alphas never decide a comparison, so leaving them out is the same as having set them.
    constexpr std::uint32_t colours = 0x00FFFFFF;
    if (lossyMask == 0)
        return compress<tokenRGBFromBGRA>(row, pixels, output, 0x00FFFF00, colours);
    return compress<tokenRGBFromBGRA>(row, pixels, output, lossyMask & colours,
                                      lossyMask & colours);
}

std::size_t RLEUncompressRGBToARGB(std::span<const std::byte> row, std::span<std::byte> output)
{
    return uncompress<pixelARGBFromRGB>(row, output, true);
}
std::size_t RLEUncompressBGRToBGRA(std::span<const std::byte> row, std::span<std::byte> output)
{
    return uncompress<pixelBGRAFromBGR>(row, output, false);
}
std::size_t RLEUncompressBGRToARGB(std::span<const std::byte> row, std::span<std::byte> output)
{
    return uncompress<pixelARGBFromBGR>(row, output, true);
}
std::size_t RLEUncompressRGBToBGRA(std::span<const std::byte> row, std::span<std::byte> output)
{
    return uncompress<pixelReversed>(row, output, false);
}

std::size_t RLECompress8bit(const std::uint8_t *values, std::size_t count, std::byte *output)
{
    return compressValues(values, count, output);
}
std::size_t RLEUncompress8bit(std::span<const std::byte> row, std::span<std::uint8_t> output)
{
    return uncompressValues(row, output);
}
std::size_t RLECompress32bit(const std::uint32_t *values, std::size_t count, std::byte *output)
{
    return compressValues(values, count, output);
}
std::size_t RLEUncompress32bit(std::span<const std::byte> row, std::span<std::uint32_t> output)
{
    return uncompressValues(row, output);
}
