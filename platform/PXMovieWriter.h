#pragma once

#include "platform/PXCompressionSession.h"

#include "foundation/PXError.h"

#include <cstdint>

/// Writes one QuickTime movie: time scale 3000, the index in front of the pictures.
/// Samples may come from another thread than the one that made the writer and finishes it, but
/// only one thread at a time. Destroying a writer closes the file and leaves it as it is.
class PXMovieWriter {
public:
    virtual ~PXMovieWriter() = default;

    /// The one video track, in the size of `format`, which is copied. Once, before anything else.
    [[nodiscard]] virtual PXExpected<void> addVideoTrack(const PXTrackFormat &format) = 0;

    /// Checks that this kind of movie can hold the track.
    [[nodiscard]] virtual PXExpected<void> beginMediaEdits() = 0;

    /// Room is left in front of the pictures for the index of this many samples. Should more
    /// come, they are moved back once at the end, which takes as long as copying the file.
    /// Before the first sample.
    virtual void setExpectedNumberOfSamples(std::uint64_t count) = 0;

    /// Appends a sample at its `displayTime`, counted from the first sample's and after the ones
    /// before. It lasts its `decodeDuration`, longer where the next one begins later.
    [[nodiscard]] virtual PXExpected<void> addMediaSample(const PXEncodedFrame &frame) = 0;

    /// No sample follows: what is held back goes to the file.
    [[nodiscard]] virtual PXExpected<void> endMediaEdits() = 0;

    /// Writes the index: from here on the file is a movie. Without samples its track is empty.
    [[nodiscard]] virtual PXExpected<void> addMovieToStorage() = 0;
};
