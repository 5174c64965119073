#pragma once

#include "foundation/PXError.h"

#include <QString>

#include <cstdint>

/// What a movie's atoms tell that libavformat keeps to itself.
struct MovieAtoms {
    /// Reads the outline of the file. Fails with an error that names it where it is no regular
    /// file, has no index, or is an ordinary movie whose end is missing.
    [[nodiscard]] static PXExpected<MovieAtoms> of(const QString &path);

    int timeScale = 0; ///< Of the movie, in units a second: edits are told in it.
    bool isInFragments = false; ///< Pieces of index and data follow one another.
    bool isIndexInFront = false; ///< Of all data.
    std::int64_t wholeBytes = 0; ///< What follows is a fragment that was not written to its end.
};
