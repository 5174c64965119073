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
        return PXFail({kPXPOSIXErrorDomain,
                       EINVAL,
                       u"Cannot record an area of %1x%2 pixels"_s.arg(width).arg(height),
                       u"Choose an area with a width and a height."_s,
                       {}});
    }
    reader->_frameBuffer = *std::move(frameBuffer);
    for (Slot &slot : reader->_slots) {
        auto memory = reader->_frameBuffer->makeBuffer(width, height);
        if (!memory) {
            BRLog(BRLogError, "Memory allocation failed");
            return PXFail(std::move(memory).error());
        }
        slot.memory = *std::move(memory);
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
    Slot &slot = _slots[_currentIndex];
    PXPixelRect unionOfPixels;
    _pixelRects.clear();
    for (const PXRect &rect : rects) {
        _pixelRects.push_back(PXPixelsFromRect(rect, display));
        unionOfPixels = PXUnion(unionOfPixels, _pixelRects.back());
    }
    const auto buffer = _frameBuffer->read(_pixelRects, *slot.memory);
    if (!buffer)
        return PXFail(buffer.error());
    slot.buffer = *buffer;
    slot.rects = std::move(rects);
    slot.unionOfRects = PXRectFromPixels(unionOfPixels, display);
    slot.unionOfPixels = unionOfPixels;
    slot.timestamp = timestamp;
    slot.captureRect = captureRect;
    _currentIndex = (_currentIndex + 1) % kSlots;
    if (!std::exchange(_hasPreparedSlots, true))
        _prepareSlotsWithoutFrame();
    // The cursor belongs to the push that was just made; the next slot starts without one.
    _slots[_currentIndex].cursor.reset();
    _grabDirtyRectsFromBufferAtIndex((_currentIndex + 1) % kSlots);
    return {};
}

void BRFrameReader::_prepareSlotsWithoutFrame()
{
    for (Slot &slot : _slots) {
        if (slot.rects.empty())
            _frameBuffer->prepare(*slot.memory);
    }
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
    std::vector<PXRect> rectsWithinBuffer;
    rectsWithinFrame.reserve(rects.size());
    rectsWithinBuffer.reserve(rects.size());
    for (const PXRect &rect : rects) {
        rectsWithinFrame.push_back(
            {rect.x - slot.captureRect.x, rect.y - slot.captureRect.y, rect.width, rect.height});
        rectsWithinBuffer.push_back(
            {rect.x - slot.unionOfRects.x, rect.y - slot.unionOfRects.y, rect.width, rect.height});
    }
    if (_showCursor)
        drawCursorAtIndex(index);
    _delegate.frameReaderDidGrabDirtyRects(*this, std::move(rectsWithinFrame),
                                           std::move(rectsWithinBuffer), slot.timestamp,
                                           slot.buffer, slot.captureRect);
}

void BRFrameReader::drawCursorAtIndex(std::size_t index) const
{
    const Slot &slot = _slots[index];
    if (!slot.cursor)
        return;
    // From pixels to pixels: the display may have moved on the desktop since they were read.
    const PXRect placeInBuffer = PXRectFromPixels(slot.cursor->rect, slot.unionOfPixels);
    const PXCursorImage &image = *slot.cursor->image;
    BRFrameSmoosher::overlayCursorData(
        image.pixels.data(), {static_cast<float>(image.width), static_cast<float>(image.height)},
        slot.buffer, placeInBuffer);
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
