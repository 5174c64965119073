#include "bench/side-by-side/FrameCounter.h"

#include <bit>

std::array<bool, kCounterCells> counterCells(std::uint32_t number)
{
    const std::uint32_t bits = number & 0xffffU;
    std::array<bool, kCounterCells> cells = {};
    cells[0] = true;
    for (unsigned bit = 0; bit < 16; ++bit)
        cells[2 + bit] = ((bits >> (15 - bit)) & 1U) != 0;
    cells[18] = std::popcount(bits) % 2 != 0;
    cells[19] = true;
    return cells;
}

std::optional<std::uint32_t> counterNumber(const std::array<bool, kCounterCells> &cells)
{
    std::uint32_t number = 0;
    for (unsigned bit = 0; bit < 16; ++bit)
        number = number << 1U | (cells[2 + bit] ? 1U : 0U);
    if (counterCells(number) != cells)
        return std::nullopt;
    return number;
}
