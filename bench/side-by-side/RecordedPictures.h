#pragma once

#include "bench/side-by-side/BenchScreen.h"

#include <cstdint>
#include <memory>
#include <optional>

/// A recording that is read picture by picture; a file that cannot be read ends the program.
class RecordedPictures {
public:
    RecordedPictures() = default;
    RecordedPictures(const RecordedPictures &) = delete;
    RecordedPictures &operator=(const RecordedPictures &) = delete;
    virtual ~RecordedPictures() = default;

    /// By the file's first bytes: the floor's recording, else a raw capture.
    [[nodiscard]] static std::unique_ptr<RecordedPictures> fromFile(const char *path);

    /// Goes on to the next picture; false at the end.
    virtual bool next() = 0;
    /// B in the lowest byte, then G, R and something; y down from the top row.
    [[nodiscard]] virtual std::uint32_t pixel(int x, int y) const = 0;
};
