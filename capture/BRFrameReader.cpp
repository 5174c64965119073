#include "capture/BRFrameReader.h"

#include "capture/framefile/BRFrameSmoosher.h"
#include "foundation/BRLog.h"

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

BRFrameReader::BRFrameReader(PXScreenPlatform &platform, BRFrameReaderDelegate &delegate,
                             bool showCursor)
    : _platform(platform), _delegate(delegate), _showCursor(showCursor)
{
}

BRFrameReader::~BRFrameReader() = default;

PXExpected<std::unique_ptr<BRFrameReader>>
BRFrameReader::pixelsWide(int width, int height, bool captureCursor, PXScreenPlatform &platform,
                          BRFrameReaderDelegate &delegate)
{
    std::unique_ptr<BRFrameReader> reader(new BRFrameReader(platform, delegate, captureCursor));
    auto frameBuffer = platform.makeFrameBufferReader();
    if (!frameBuffer || width <= 0 || height <= 0) {
        BRLog(BRLogError,
              "BRFrameReader init...: unsatisfying parameters. context: %x  width: %d  height: %d",
              frameBuffer ? 1U : 0U, width, height);
        if (!frameBuffer)
            return PXFail(std::move(frameBuffer).error());
        return PXFail({kBRErrorDomain,
                       1,
                       u"Cannot record an area of %1x%2 pixels"_s.arg(width).arg(height),
                       u"Choose an area with a width and a height."_s,
                       {}});
    }
    reader->_frameBuffer = *std::move(frameBuffer);
    auto arrival = reader->_frameBuffer->makeBuffer(width, height);
    if (!arrival) {
        BRLog(BRLogError, "Memory allocation failed");
        return PXFail(std::move(arrival).error());
    }
    reader->_arrival = *std::move(arrival);
    reader->_pixelsOfSlot = std::int64_t{width} * height;
    const std::size_t slotBytes = static_cast<std::size_t>(reader->_pixelsOfSlot) * 4;
    for (Slot &slot : reader->_slots) {
        slot.memory.reset(static_cast<std::byte *>(
            PXvalloc2(slotBytes, slotBytes, "Source/BRFrameReader", __LINE__)));
        if (!slot.memory) {
            BRLog(BRLogError, "Memory allocation failed");
            return PXFail(
                PXPOSIXError(ENOMEM, u"Could not make the buffers of the frame reader"_s));
        }
    }
    auto cursorSource = platform.makeCursorSource();
    if (!cursorSource)
        return PXFail(std::move(cursorSource).error());
    reader->_cursorSource = *std::move(cursorSource);
    return reader;
}

PXExpected<void> BRFrameReader::pushDirtyRects(std::vector<PXRect> rects, double timestamp,
                                               const PXRect &captureRect)
{
    const PXPixelRect display = _platform.mainDisplay().bounds();
    _pixelRects.clear();
    for (const PXRect &rect : rects)
        _pixelRects.push_back(PXPixelsFromRect(rect, display));
    const auto arrived = _frameBuffer->read(_pixelRects, *_arrival);
    if (!arrived)
        return PXFail(arrived.error());
    Slot &slot = _slots[_currentIndex];
    slot.rects = std::move(rects);
    _takeOver(*arrived, slot);
    slot.timestamp = timestamp;
    slot.captureRect = captureRect;
    _currentIndex = (_currentIndex + 1) % kSlots;
    // The cursor belongs to the push that was just made; the next slot starts without one.
    _slots[_currentIndex].cursor.reset();
    _grabDirtyRectsFromBufferAtIndex((_currentIndex + 1) % kSlots);
    return {};
}

void BRFrameReader::_takeOver(const PXPixelView &arrived, Slot &slot) const
{
    PXPixelRect whole;
    int widest = 0;
    int rows = 0;
    for (const PXPixelRect &rect : _pixelRects) {
        whole = PXUnion(whole, rect);
        widest = std::max(widest, rect.width);
        rows += rect.height;
    }
    // One above the other the rectangles lie close together, and the widest is ready to be
    // compressed as it is. Where that takes more room than there is they lie as on the screen.
    const bool isStack = std::int64_t{widest} * rows <= _pixelsOfSlot;
    const int width = isStack ? widest : whole.width;
    const int height = isStack ? rows : whole.height;
    slot.buffer = {slot.memory.get(), std::ptrdiff_t{4} * width, width, height, true};
    slot.rectsWithinBuffer.clear();
    slot.pieces.clear();
    int y = 0;
    for (const PXPixelRect &rect : _pixelRects) {
        const int xOfWhole = rect.x - whole.x;
        const int yOfWhole = whole.y + whole.height - rect.y - rect.height;
        const int x = isStack ? 0 : xOfWhole;
        y = isStack ? y : yOfWhole;
        const PXPixelView view{slot.buffer.pixel(x, y), slot.buffer.bytesPerRow, rect.width,
                               rect.height, true};
        BRFrameSmoosher::copyOpaqueRows(arrived.pixel(xOfWhole, yOfWhole), arrived.bytesPerRow,
                                        rect.width, rect.height, view.lowestRow, view.bytesPerRow);
        slot.rectsWithinBuffer.push_back({static_cast<float>(x), static_cast<float>(y),
                                          static_cast<float>(rect.width),
                                          static_cast<float>(rect.height)});
        if (isStack)
            slot.pieces.push_back({rect, view});
        y += rect.height;
    }
    if (!isStack)
        slot.pieces.push_back({whole, slot.buffer});
}

PXRect BRFrameReader::captureCursorWithTimestamp(double, const PXRect &)
{
    Slot &slot = _slots[_currentIndex];
    slot.cursor.reset();
    if (!_showCursor)
        return {};
    auto cursor = _cursorSource->cursor();
    if (!cursor) {
        // A display that has gone was logged when that was found out.
        if (!PXIsDisplayLost(cursor.error()))
            BRLog(BRLogError, "CGSGetGlobalCursorData failed %d", cursor.error().code);
        return {};
    }
    if (!*cursor)
        return {};
    slot.cursor = **std::move(cursor);
    return PXRectFromPixels(slot.cursor->rect, _platform.mainDisplay().bounds());
}

void BRFrameReader::_grabDirtyRectsFromBufferAtIndex(std::size_t index)
{
    Slot &slot = _slots[index];
    const std::vector<PXRect> rects = std::exchange(slot.rects, {});
    if (rects.empty())
        return;
    if (!_delegate.frameReaderShouldGrabRects(*this, rects, slot.timestamp))
        return;
    _delegate.frameReaderWillGrabRects(*this, rects, slot.timestamp);
    std::vector<PXRect> rectsWithinFrame;
    rectsWithinFrame.reserve(rects.size());
    for (const PXRect &rect : rects)
        rectsWithinFrame.push_back(
            {rect.x - slot.captureRect.x, rect.y - slot.captureRect.y, rect.width, rect.height});
    if (_showCursor)
        drawCursorAtIndex(index);
    _delegate.frameReaderDidGrabDirtyRects(*this, std::move(rectsWithinFrame),
                                           std::exchange(slot.rectsWithinBuffer, {}),
                                           slot.timestamp, slot.buffer, slot.captureRect);
}

void BRFrameReader::drawCursorAtIndex(std::size_t index) const
{
    const Slot &slot = _slots[index];
    if (!slot.cursor)
        return;
    const PXCursorImage &image = *slot.cursor->image;
    const PXSize size{static_cast<float>(image.width), static_cast<float>(image.height)};
    // From pixels to pixels: the display may have moved on the desktop since they were read.
    for (const Piece &piece : slot.pieces)
        BRFrameSmoosher::overlayCursorData(image.pixels.data(), size, piece.view,
                                           PXRectFromPixels(slot.cursor->rect, piece.pixels));
}

void BRFrameReader::flushRemainingDirtyRects()
{
    // Twice round: a delegate that refuses a frame leaves nothing behind, and the second round
    // finds the slots empty.
    for (std::size_t k = 1; k <= 2 * kSlots; ++k)
        _grabDirtyRectsFromBufferAtIndex((_currentIndex + k) % kSlots);
}

bool BRFrameReader::deliverOldestWaitingFrame()
{
    for (std::size_t k = 1; k <= kSlots; ++k) {
        const std::size_t index = (_currentIndex + k) % kSlots;
        if (_slots[index].rects.empty())
            continue;
        _grabDirtyRectsFromBufferAtIndex(index);
        return true;
    }
    return false;
}

bool BRFrameReader::hasWaitingFrames() const
{
    return std::any_of(_slots.begin(), _slots.end(),
                       [](const Slot &slot) { return !slot.rects.empty(); });
}

PXExpected<QImage> BRFrameReader::grabScreenshot(PXScreenPlatform &platform)
{
    auto frameBuffer = platform.makeFrameBufferReader();
    if (!frameBuffer)
        return PXFail(std::move(frameBuffer).error());
    const PXPixelRect display = platform.mainDisplay().bounds();
    auto memory = (*frameBuffer)->makeBuffer(display.width, display.height);
    if (!memory)
        return PXFail(std::move(memory).error());
    const auto view = (*frameBuffer)->read({&display, 1}, **memory);
    if (!view)
        return PXFail(view.error());
    QImage image(display.width, display.height, QImage::Format_RGB32);
    if (image.isNull())
        return PXFail(PXPOSIXError(
            ENOMEM,
            u"Could not make a picture of %1 x %2"_s.arg(display.width).arg(display.height)));
    for (int y = 0; y < display.height; ++y) {
        BRFrameSmoosher::packOpaqueRows(view->pixel(0, display.height - 1 - y), view->bytesPerRow,
                                        display.width, 1,
                                        reinterpret_cast<std::byte *>(image.scanLine(y)));
    }
    return image;
}
