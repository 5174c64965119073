#pragma once

#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXPixelView.h"
#include "platform/PXScreenPlatform.h"

#include <QImage>

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <vector>

class BRFrameReader;

/// Hears of each frame that leaves the ring, on the thread that pushes or flushes.
class BRFrameReaderDelegate {
public:
    /// NO leaves the frame out.
    virtual bool frameReaderShouldGrabRects(BRFrameReader &reader, std::span<const PXRect> rects,
                                            double timestamp)
        = 0;
    virtual void frameReaderWillGrabRects(BRFrameReader &reader, std::span<const PXRect> rects,
                                          double timestamp)
        = 0;
    /// `dirtyRects` relative to the selection, `rectsWithinBuffer` the same ones relative to
    /// `buffer`, `captureRect` the selection at the time of the read. The pixels stay until the
    /// slot is read into again, four pushes after its own.
    virtual void frameReaderDidGrabDirtyRects(BRFrameReader &reader, std::vector<PXRect> dirtyRects,
                                              std::vector<PXRect> rectsWithinBuffer,
                                              double timestamp, const PXPixelView &buffer,
                                              const PXRect &captureRect)
        = 0;

protected:
    ~BRFrameReaderDelegate() = default;
};

/// Reads changed areas of the screen into a ring of four buffers; what is read is handed on two
/// pushes later, so that a writer can be at work on one buffer while the next ones are read into.
/// Draws the cursor, which the frame buffer lacks, into them. One thread at a time.
class BRFrameReader final {
public:
    /// A width or height of 0, or a screen that cannot be read, is an error. `platform` and
    /// `delegate` outlive the reader.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRFrameReader>>
    pixelsWide(int width, int height, bool captureCursor, PXScreenPlatform &platform,
               BRFrameReaderDelegate &delegate);
    ~BRFrameReader();

    /// Reads `rects` (global coordinates, inside `captureRect`) into the ring, then hands on what
    /// was read two pushes ago. When reading fails nothing is handed on and the ring is unchanged.
    [[nodiscard]] PXExpected<void> pushDirtyRects(std::vector<PXRect> rects, double timestamp,
                                                  const PXRect &captureRect);

    /// Notes the cursor, as it is now, for the slot of the next push, which gives time and
    /// selection once more; tells the area that the cursor covers in global coordinates, the zero
    /// rectangle when none is visible.
    PXRect captureCursorWithTimestamp(double timestamp, const PXRect &captureRect);
    /// The cursor of the next push.
    [[nodiscard]] const std::optional<PXCursor> &capturedCursor() const
    {
        return _slots[_currentIndex].cursor;
    }

    /// Hands on everything that waits, in the order in which it was read.
    void flushRemainingDirtyRects();
    /// Hands on the oldest frame that waits; false when none does.
    bool deliverOldestWaitingFrame();
    [[nodiscard]] bool hasWaitingFrames() const;

    /// The whole main display as it is now.
    [[nodiscard]] static PXExpected<QImage> grabScreenshot(PXScreenPlatform &platform);

    /// The pointer and what tells of its moves.
    [[nodiscard]] PXCursorSource &cursorSource() { return *_cursorSource; }

private:
    struct Slot {
        std::unique_ptr<PXPixelBuffer> memory;
        PXPixelView buffer;
        std::vector<PXRect> rects; ///< Global coordinates; empty when nothing waits here.
        PXRect unionOfRects;
        PXPixelRect unionOfPixels; ///< The same on the desktop.
        PXRect captureRect;
        double timestamp = 0;
        std::optional<PXCursor> cursor;
    };
    static constexpr std::size_t kSlots = 4;

    BRFrameReader(PXScreenPlatform &platform, BRFrameReaderDelegate &delegate, bool showCursor);

    /// Once the first frame is read, which this would have delayed.
    void _prepareSlotsWithoutFrame();
    void _grabDirtyRectsFromBufferAtIndex(std::size_t index);
    void drawCursorAtIndex(std::size_t index) const;

    PXScreenPlatform &_platform;
    BRFrameReaderDelegate &_delegate;
    const bool _showCursor;
    std::unique_ptr<PXFrameBufferReader> _frameBuffer;
    std::unique_ptr<PXCursorSource> _cursorSource;
    std::array<Slot, kSlots> _slots;
    std::vector<PXPixelRect> _pixelRects; ///< Kept so that a grab allocates nothing.
    std::size_t _currentIndex = 0;
    bool _hasPreparedSlots = false;
};
