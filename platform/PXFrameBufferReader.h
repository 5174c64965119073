#pragma once

#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXPixelView.h"

#include <memory>
#include <span>

/// Memory that a back end can read pixels into at the least cost (shared with the X server, for
/// instance). Owned by whoever asked for it; must go before the reader that made it.
class PXPixelBuffer {
public:
    virtual ~PXPixelBuffer() = default;
};

/// Reads rectangles of what the screen shows. One thread at a time.
class PXFrameBufferReader {
public:
    virtual ~PXFrameBufferReader() = default;

    /// A buffer that holds `width` x `height` pixels, its memory all zero and not touched before
    /// it is needed.
    virtual PXExpected<std::unique_ptr<PXPixelBuffer>> makeBuffer(int width, int height) = 0;

    /// Has all of the buffer's memory made, still zero, so that the first large read into it does
    /// not pay for that. Returns at once, and what it costs is done before the next read.
    virtual void prepare(PXPixelBuffer &buffer) = 0;

    /// Reads `rects` (the desktop's pixels) into `buffer`, laid out as if their union had been
    /// read: the view is as large as the union, and its other pixels are whatever they were.
    /// Parts outside the screen are black. An error with the code `PXDisplayLost` is final;
    /// after another one the next read may succeed.
    virtual PXExpected<PXPixelView> read(std::span<const PXPixelRect> rects, PXPixelBuffer &buffer)
        = 0;
};
