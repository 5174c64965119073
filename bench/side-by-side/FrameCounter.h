#pragma once

#include <array>
#include <cstdint>
#include <optional>

/// The number that every update of a content paints with itself, as a row of black and white
/// cells, so that the recording can be asked which updates it holds: white, black, sixteen bits
/// (highest first), even parity, white. Half a number, or none, does not read as one.
inline constexpr int kCounterCells = 20;

/// Where the cells lie on the screen: pixels, y down, from the first cell's upper left corner.
struct CounterPlace {
    int x = 0;
    int y = 0;
    int cellWidth = 8;
    int cellHeight = 8;
};

/// True is white. Numbers wrap at 65536, 36 minutes at 30 updates a second.
[[nodiscard]] std::array<bool, kCounterCells> counterCells(std::uint32_t number);

/// The number, or none where the cells are not a counter's.
[[nodiscard]] std::optional<std::uint32_t>
counterNumber(const std::array<bool, kCounterCells> &cells);
