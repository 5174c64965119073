#include "platform/ffmpeg/YUVConverter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// Factors have this many fractional bits. With 15 and 8 bits a sample, as with 13 and 10, the
// largest factor still fits a signed 16-bit number, which lets the compiler multiply eight at once.
constexpr int fractionBits(int bitsPerSample)
{
    return bitsPerSample == 8 ? 15 : 13;
}

struct Factors {
    std::int16_t y[3], u[3], v[3]; ///< For red, green, blue.
    std::int32_t yOffset, uvOffset; ///< Scaled like the factors, half a unit for rounding included.
    int bits;
};

// Kr and Kb are those of ITU-R BT.709 and BT.601; the colour differences are (B - Y) / 2(1 - Kb)
// and (R - Y) / 2(1 - Kr).
Factors makeFactors(const YUVConverter::Layout &layout)
{
    const bool isFull = layout.matrix == YUVConverter::Matrix::BT601Full;
    const double kr = isFull ? 0.299 : 0.2126;
    const double kb = isFull ? 0.114 : 0.0722;
    const double kg = 1 - kr - kb;
    const int bits = fractionBits(layout.bitsPerSample);
    const double scale = std::ldexp(1.0, layout.bitsPerSample - 8);
    const double luma = (isFull ? 255 : 219) * scale / 255;
    const double chroma = (isFull ? 255 : 224) * scale / 255;
    const auto fixed = [bits](double value) {
        return static_cast<std::int16_t>(std::lround(std::ldexp(value, bits)));
    };

    Factors factors{};
    factors.bits = bits;
    factors.y[0] = fixed(kr * luma);
    factors.y[2] = fixed(kb * luma);
    // The sums are exact by construction: white is exactly white, grey has exactly no colour.
    factors.y[1] = static_cast<std::int16_t>(fixed(luma) - factors.y[0] - factors.y[2]);
    factors.u[0] = fixed(-kr / (2 * (1 - kb)) * chroma);
    factors.u[1] = fixed(-kg / (2 * (1 - kb)) * chroma);
    factors.u[2] = static_cast<std::int16_t>(-factors.u[0] - factors.u[1]);
    factors.v[1] = fixed(-kg / (2 * (1 - kr)) * chroma);
    factors.v[2] = fixed(-kb / (2 * (1 - kr)) * chroma);
    factors.v[0] = static_cast<std::int16_t>(-factors.v[1] - factors.v[2]);
    const std::int32_t half = 1 << (bits - 1);
    factors.yOffset
        = half + (isFull ? 0 : static_cast<std::int32_t>(std::lround(16 * scale)) * (1 << bits));
    factors.uvOffset = static_cast<std::int32_t>(std::lround(128 * scale)) * (1 << bits);
    return factors;
}

// Pixels that are handled together: their sums stay in the first-level cache.
constexpr int kChunk = 512;

template <typename Sample>
void lumaRow(const Factors &f, const std::uint32_t *pixels, int width, Sample *out)
{
    const std::int16_t r = f.y[0];
    const std::int16_t g = f.y[1];
    const std::int16_t b = f.y[2];
    const std::int32_t offset = f.yOffset;
    constexpr int bits = fractionBits(sizeof(Sample) == 1 ? 8 : 10);
    for (int x = 0; x < width; ++x) {
        const std::uint32_t pixel = pixels[x];
        const auto red = static_cast<std::int16_t>(pixel >> 16 & 0xFF);
        const auto green = static_cast<std::int16_t>(pixel >> 8 & 0xFF);
        const auto blue = static_cast<std::int16_t>(pixel & 0xFF);
        out[x] = static_cast<Sample>((r * red + g * green + b * blue + offset) >> bits);
    }
}

struct ColourSums {
    std::int16_t red[kChunk], green[kChunk], blue[kChunk];
};

// Adds up the pixels that share a colour: `rows` rows, two or one columns.
template <int columns>
void sumColours(const std::uint32_t *pixels, std::ptrdiff_t pixelsPerRow, int rows, int count,
                ColourSums &sums)
{
    for (int row = 0; row < rows; ++row) {
        const std::uint32_t *line = pixels + row * pixelsPerRow;
        for (std::ptrdiff_t i = 0; i < count; ++i) {
            const std::uint32_t a = line[columns * i];
            const std::uint32_t b = columns == 2 ? line[columns * i + 1] : 0;
            const auto red = static_cast<std::int16_t>((a >> 16 & 0xFF) + (b >> 16 & 0xFF));
            const auto green = static_cast<std::int16_t>((a >> 8 & 0xFF) + (b >> 8 & 0xFF));
            const auto blue = static_cast<std::int16_t>((a & 0xFF) + (b & 0xFF));
            sums.red[i] = static_cast<std::int16_t>(row == 0 ? red : sums.red[i] + red);
            sums.green[i] = static_cast<std::int16_t>(row == 0 ? green : sums.green[i] + green);
            sums.blue[i] = static_cast<std::int16_t>(row == 0 ? blue : sums.blue[i] + blue);
        }
    }
}

template <typename Sample>
void chromaRow(const std::int16_t (&factors)[3], std::int32_t uvOffset, const ColourSums &sums,
               int count, int sharedBits, Sample *out)
{
    const std::int16_t r = factors[0];
    const std::int16_t g = factors[1];
    const std::int16_t b = factors[2];
    const int shift = fractionBits(sizeof(Sample) == 1 ? 8 : 10) + sharedBits;
    const std::int32_t offset = uvOffset * (1 << sharedBits) + (1 << (shift - 1));
    constexpr std::int32_t largest = sizeof(Sample) == 1 ? 255 : 1023;
    for (int i = 0; i < count; ++i) {
        const std::int32_t value
            = (r * sums.red[i] + g * sums.green[i] + b * sums.blue[i] + offset) >> shift;
        // The full range's pure blue and red round to 256.
        out[i] = static_cast<Sample>(std::min(value, largest));
    }
}

template <typename Sample>
void convertSamples(const YUVConverter::Layout &layout, const std::byte *pixels,
                    std::ptrdiff_t bytesPerRow, int width, int height,
                    const YUVConverter::Planes &planes)
{
    const Factors factors = makeFactors(layout);
    const auto pixelRow
        = [&](int y) { return reinterpret_cast<const std::uint32_t *>(pixels + y * bytesPerRow); };
    const auto outRow = [&](int plane, int y) {
        return reinterpret_cast<Sample *>(planes.data[plane] + y * planes.bytesPerRow[plane]);
    };
    const int rows = 1 << layout.verticalShift;
    const int sharedBits = layout.horizontalShift + layout.verticalShift;
    const int chromaWidth = width >> layout.horizontalShift;
    ColourSums sums;

    for (int y = 0; y < height; y += rows) {
        for (int row = 0; row < rows; ++row)
            lumaRow(factors, pixelRow(y + row), width, outRow(0, y + row));
        const int chromaY = y >> layout.verticalShift;
        for (int x = 0; x < chromaWidth; x += kChunk) {
            const int count = std::min(kChunk, chromaWidth - x);
            const std::uint32_t *first = pixelRow(y) + (x << layout.horizontalShift);
            const std::ptrdiff_t pixelsPerRow = bytesPerRow / 4;
            if (layout.horizontalShift == 1)
                sumColours<2>(first, pixelsPerRow, rows, count, sums);
            else
                sumColours<1>(first, pixelsPerRow, rows, count, sums);
            chromaRow(factors.u, factors.uvOffset, sums, count, sharedBits, outRow(1, chromaY) + x);
            chromaRow(factors.v, factors.uvOffset, sums, count, sharedBits, outRow(2, chromaY) + x);
        }
    }
}

} // namespace

void YUVConverter::convert(const Layout &layout, const std::byte *pixels,
                           std::ptrdiff_t bytesPerRow, int width, int height, const Planes &planes)
{
    if (layout.bitsPerSample == 8)
        convertSamples<std::uint8_t>(layout, pixels, bytesPerRow, width, height, planes);
    else
        convertSamples<std::uint16_t>(layout, pixels, bytesPerRow, width, height, planes);
}
