#include "platform/ffmpeg/YUVConverter.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <vector>

namespace {

using YUVConverter::Layout;
using YUVConverter::Matrix;

struct ColourCase {
    const char *name;
    Layout layout;
    std::uint32_t pixel; ///< 0xRRGGBB
    std::array<int, 3> yuv;
};

// Worked out by hand from the matrices' definitions.
const ColourCase kColourCases[] = {
    {"blackIs16", {1, 1, 8, Matrix::BT709Limited}, 0x000000, {16, 128, 128}},
    {"whiteIs235", {1, 1, 8, Matrix::BT709Limited}, 0xFFFFFF, {235, 128, 128}},
    {"red", {1, 1, 8, Matrix::BT709Limited}, 0xFF0000, {63, 102, 240}},
    {"green", {1, 1, 8, Matrix::BT709Limited}, 0x00FF00, {173, 42, 26}},
    {"blue", {1, 1, 8, Matrix::BT709Limited}, 0x0000FF, {32, 240, 118}},
    {"redIn444", {0, 0, 8, Matrix::BT709Limited}, 0xFF0000, {63, 102, 240}},
    {"whiteInTenBits", {1, 0, 10, Matrix::BT709Limited}, 0xFFFFFF, {940, 512, 512}},
    {"redInTenBits", {0, 0, 10, Matrix::BT709Limited}, 0xFF0000, {250, 409, 960}},
    {"jpegBlackIs0", {1, 1, 8, Matrix::BT601Full}, 0x000000, {0, 128, 128}},
    {"jpegRedDoesNotWrapAround", {1, 1, 8, Matrix::BT601Full}, 0xFF0000, {76, 85, 255}},
    {"jpegBlueDoesNotWrapAround", {1, 1, 8, Matrix::BT601Full}, 0x0000FF, {29, 255, 107}},
};

class YUVConverterColours : public testing::TestWithParam<ColourCase> { };

} // namespace

// An area wider than one chunk of the converter, so that the seams are looked at as well.
TEST_P(YUVConverterColours, OfOneColourEverywhere)
{
    const ColourCase &row = GetParam();
    constexpr std::ptrdiff_t width = 1030;
    constexpr std::ptrdiff_t height = 4;
    const std::vector<std::uint32_t> pixels(width * height, row.pixel | 0xFF000000U);
    const int sampleBytes = row.layout.bitsPerSample == 8 ? 1 : 2;
    std::vector<std::vector<std::uint8_t>> planes(
        3, std::vector<std::uint8_t>(std::size_t{width * height * 2 + 1}, 0xEE));
    const std::ptrdiff_t chromaWidth = width >> row.layout.horizontalShift;
    const std::ptrdiff_t chromaHeight = height >> row.layout.verticalShift;
    YUVConverter::convert(
        row.layout, reinterpret_cast<const std::byte *>(pixels.data()), width * 4, int{width},
        int{height},
        {{planes[0].data(), planes[1].data(), planes[2].data()},
         {width * sampleBytes, chromaWidth * sampleBytes, chromaWidth * sampleBytes}});

    for (std::size_t plane = 0; plane < 3; ++plane) {
        const std::ptrdiff_t samples = plane == 0 ? width * height : chromaWidth * chromaHeight;
        const auto *bytes = planes[plane].data();
        for (std::ptrdiff_t i = 0; i < samples; ++i) {
            const int sample = sampleBytes == 1 ? bytes[i] : bytes[2 * i] | bytes[2 * i + 1] << 8;
            ASSERT_NEAR(sample, row.yuv[plane], row.layout.bitsPerSample == 8 ? 0 : 1)
                << "plane " << plane << " sample " << i;
        }
        EXPECT_EQ(bytes[samples * sampleBytes], 0xEE) << "wrote behind plane " << plane;
    }
}

INSTANTIATE_TEST_SUITE_P(Table, YUVConverterColours, testing::ValuesIn(kColourCases),
                         [](const auto &row) { return row.param.name; });

TEST(YUVConverter, SharedColourIsTheMean)
{
    // Red, blue / blue, red: the mean of the four is what a half red, half blue pixel has.
    const std::uint32_t pixels[] = {0xFF0000, 0x0000FF, 0x0000FF, 0xFF0000};
    std::uint8_t y[4];
    std::uint8_t u = 0;
    std::uint8_t v = 0;
    YUVConverter::convert({1, 1, 8, Matrix::BT709Limited},
                          reinterpret_cast<const std::byte *>(pixels), 8, 2, 2,
                          {{y, &u, &v}, {2, 1, 1}});
    EXPECT_EQ(y[0], 63);
    EXPECT_EQ(y[1], 32);
    EXPECT_EQ(u, 171); // (102 + 240) / 2
    EXPECT_EQ(v, 179); // (240 + 118) / 2
}
