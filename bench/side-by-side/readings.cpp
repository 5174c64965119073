// tolvane-bench-readings FILE counter X Y CELL_WIDTH CELL_HEIGHT | FILE pointer X Y WIDTH HEIGHT:
// one line for each frame of a raw capture or of the floor's recording: the counter's number, or
// the upper left corner of what is not flat in the area, relative to it; "-" where there is none.
// The area's flat colour is that of its last pixel.

#include "bench/side-by-side/RecordedPictures.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::optional<std::uint32_t> numberIn(const RecordedPictures &pictures, const CounterPlace &place)
{
    std::array<bool, kCounterCells> cells = {};
    for (int cell = 0; cell < kCounterCells; ++cell) {
        const std::uint32_t pixel = pictures.pixel(
            place.x + cell * place.cellWidth + place.cellWidth / 2, place.y + place.cellHeight / 2);
        cells[static_cast<std::size_t>(cell)] = (pixel & 0xffU) > 127;
    }
    return counterNumber(cells);
}

struct Spot {
    int left;
    int top;
};

std::optional<Spot> spotIn(const RecordedPictures &pictures, const PXPixelRect &area)
{
    constexpr std::uint32_t kColours = 0xffffffU;
    const auto colour
        = [&](int x, int y) { return pictures.pixel(area.x + x, area.y + y) & kColours; };
    const std::uint32_t flat = colour(area.width - 1, area.height - 1);
    std::optional<Spot> spot;
    for (int y = 0; y < area.height; ++y) {
        for (int x = 0; x < (spot ? spot->left : area.width); ++x) {
            if (colour(x, y) != flat)
                spot = Spot{x, spot ? spot->top : y};
        }
    }
    return spot;
}

void printNumber(std::optional<std::uint32_t> number)
{
    number ? std::printf("%u\n", *number) : std::puts("-");
}

void printSpot(const std::optional<Spot> &spot)
{
    spot ? std::printf("%d %d\n", spot->left, spot->top) : std::puts("-");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 7)
        failBench("usage: tolvane-bench-readings FILE counter|pointer X Y WIDTH HEIGHT");
    const auto pictures = RecordedPictures::fromFile(argv[1]);
    std::array<int, 4> place = {};
    for (std::size_t i = 0; i < place.size(); ++i)
        place[i] = static_cast<int>(std::strtol(argv[3 + i], nullptr, 10));
    const bool isCounter = std::strcmp(argv[2], "counter") == 0;
    while (pictures->next()) {
        if (isCounter)
            printNumber(numberIn(*pictures, {place[0], place[1], place[2], place[3]}));
        else
            printSpot(spotIn(*pictures, {place[0], place[1], place[2], place[3]}));
    }
    return 0;
}
