#include "capture/framefile/BRFrameAssembler.h"

#include "capture/framefile/BRFrameFormat.h"
#include "foundation/BRLog.h"

#include <cerrno>
#include <cstdlib>

using namespace Qt::StringLiterals;

BRFrameAssembler::BRFrameAssembler(BRFrameStreamer &streamer, BRPixelOrder order)
    : _streamer(streamer),
      _order(order),
      _width(PXClampToInt(streamer.selectionSize().width)),
      _height(PXClampToInt(streamer.selectionSize().height))
{
}

std::span<const std::byte> BRFrameAssembler::picture() const
{
    return {_canvas.get(), _canvas ? _pictureBytes() : 0};
}

std::size_t BRFrameAssembler::_pictureBytes() const
{
    return static_cast<std::size_t>(_width) * static_cast<std::size_t>(_height) * 4;
}

PXExpected<void> BRFrameAssembler::_makeCanvas()
{
    if (_canvas)
        return {};
    const QString what
        = u"Could not make a picture of %1 x %2 for %3"_s.arg(_width).arg(_height).arg(
            _streamer.filePath());
    if (_pictureBytes() > BRFrameFormat::pixelBytesJustified(_streamer.length()))
        return PXFail(PXError{kPXCocoaErrorDomain,
                              kPXFileReadCorruptFileError,
                              what + u": the file is too small to hold one"_s,
                              {},
                              {}});
    // Zero without being touched: pages that no rectangle reaches cost nothing.
    _canvas.reset(static_cast<std::byte *>(std::calloc(_pictureBytes(), 1)));
    if (!_canvas)
        return PXFail(PXPOSIXError(ENOMEM, what));
    return {};
}

PXExpected<BRFrameAssembler::Result> BRFrameAssembler::readNextFrame()
{
    if (_hasEnded)
        return Result::End;
    const std::vector<BRFrameIndexRecord> &index = _streamer.frameIndex();
    // The record says where the frame is even if the bytes before it could not be read to their
    // end. Where the index ends early, reading goes on behind the frame of before.
    _streamer.gotoFrameIndex(_nextFrameIndex);
    const bool isLaterFrameKnown = std::size_t{_nextFrameIndex} + 1 < index.size();
    if (_nextFrameIndex >= _streamer.numberOfFrames())
        return _end(_streamer.wasInterrupted() && _streamer.position() < _streamer.length());
    // Looked at first, so that the picture stays the last whole frame's.
    if (!isLaterFrameKnown && !_streamer.isNextFrameWhole())
        return _end(true);

    const auto made = _makeCanvas();
    if (!made)
        return PXFail(made.error());
    // No rectangle of this frame begins behind here. Without the bound a file whose frames all
    // count too many would be read to its end for each of them.
    const std::uint64_t end
        = isLaterFrameKnown ? index[_nextFrameIndex + 1].position : _streamer.length();
    _rects.clear();
    std::uint32_t count = 0;
    const bool hasRecord = _streamer.readFrame(count, _timestamp);
    const bool isWhole = hasRecord && _readRects(count, end);
    // The index is written after the frame, in order: its time is whole where the frame's may be
    // damaged, and one that is far too late would keep every later frame out of an export.
    if (_nextFrameIndex < index.size())
        _timestamp = index[_nextFrameIndex].timestamp;
    if (!isWhole && !isLaterFrameKnown)
        return _end(true);
    if (!isWhole)
        BRLog(BRLogWarning, "Dirty rect stream ended early!");
    _frameIndex = _nextFrameIndex++;
    _isKeyFrame = _rects.size() == 1
        && _rects[0] == PXRect{0, 0, static_cast<float>(_width), static_cast<float>(_height)};
    return Result::Frame;
}

bool BRFrameAssembler::_readRects(std::uint32_t count, std::uint64_t end)
{
    for (std::uint32_t i = 0; i < count; ++i) {
        PXRect rect;
        if (_streamer.position() >= end
            || !_streamer.readDirtyRectOntoCanvas(rect, {_canvas.get(), _pictureBytes()}, _order))
            return false;
        _rects.push_back(rect);
    }
    return true;
}

BRFrameAssembler::Result BRFrameAssembler::_end(bool isCutShort)
{
    _hasEnded = true;
    _wasCutShort = isCutShort;
    if (isCutShort)
        BRLog(BRLogWarning, "Dirty rect stream ended early!");
    return Result::End;
}

bool BRFrameAssembler::gotoFrameIndex(std::uint32_t index)
{
    if (!_streamer.gotoFrameIndex(index))
        return false;
    _nextFrameIndex = index;
    _hasEnded = false;
    return true;
}
