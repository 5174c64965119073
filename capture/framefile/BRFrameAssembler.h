#pragma once

#include "capture/framefile/BRFrameStreamer.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Reads a raw capture as whole pictures: each frame lays its rectangles over the one before.
/// Delivers complete frames, and of a damaged one that the index leads past what could be read.
/// Borrows the streamer, which must be a reader and is used by nobody else meanwhile. One thread
/// at a time.
class BRFrameAssembler final {
public:
    enum class Result {
        Frame, ///< `picture`, `rects` and the rest are those of a new frame.
        End, ///< No frame follows. `wasCutShort` says whether one should have.
    };

    BRFrameAssembler(BRFrameStreamer &streamer, BRPixelOrder order);

    /// Lays the next frame over the picture. The error is that there is no memory for one, or
    /// (`kPXFileReadCorruptFileError`) that the file is too small to hold a picture of the size
    /// that it claims. What cannot be read ends the stream there, once, with "Dirty rect stream
    /// ended early!" in the log; where the index knows a later frame, this one is delivered with
    /// what could be read of it, at the index's time where not even its record reads, and with the
    /// same line in the log.
    PXExpected<Result> readNextFrame();

    /// The next frame read is `index`, laid over the picture as it is: begin at a key frame.
    /// False, and nothing happens, where the index has none.
    bool gotoFrameIndex(std::uint32_t index);

    [[nodiscard]] int width() const { return _width; }
    [[nodiscard]] int height() const { return _height; }
    /// width * height * 4 bytes, top row first, rows without gaps; empty before the first frame.
    /// Stays where it is in memory and is changed by the next `readNextFrame`; once that answered
    /// End it is still the last frame's, save where a frame that was all there did not decode: its
    /// rectangles before the bad one lie over it.
    [[nodiscard]] std::span<const std::byte> picture() const;

    /// Of the frame read last. Rectangles are pixels of the selection, y up.
    [[nodiscard]] std::uint32_t frameIndex() const { return _frameIndex; }
    [[nodiscard]] double timestamp() const { return _timestamp; }
    [[nodiscard]] bool isKeyFrame() const { return _isKeyFrame; }
    [[nodiscard]] const std::vector<PXRect> &rects() const { return _rects; }

    /// After End: bytes of an incomplete frame follow, or the header counts more frames than
    /// there were.
    [[nodiscard]] bool wasCutShort() const { return _wasCutShort; }

private:
    PXExpected<void> _makeCanvas();
    bool _readRects(std::uint32_t count, std::uint64_t end);
    Result _end(bool isCutShort);
    [[nodiscard]] std::size_t _pictureBytes() const;

    BRFrameStreamer &_streamer;
    BRPixelOrder _order;
    int _width = 0;
    int _height = 0;
    PXBuffer _canvas;
    std::vector<PXRect> _rects;
    std::uint32_t _frameIndex = 0;
    std::uint32_t _nextFrameIndex = 0;
    double _timestamp = 0;
    bool _isKeyFrame = false;
    bool _wasCutShort = false;
    bool _hasEnded = false;
};
