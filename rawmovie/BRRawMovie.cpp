#include "rawmovie/BRRawMovie.h"

#include "capture/framefile/BRFrameFormat.h"
#include "foundation/BRLog.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// A region of more rectangles costs more than the pixels that it saves.
constexpr int kMostChanges = 64;
constexpr int kMostCovers = 256;

} // namespace

PXExpected<std::shared_ptr<BRRawMovie>> BRRawMovie::withFilePath(const QString &filePath)
{
    constexpr bool kIsUpsideDown = false; // Matters for version 1 only, which has no index.
    auto streamer = BRFrameStreamer::withFilePathForReading(filePath, kIsUpsideDown);
    if (!streamer)
        return PXFail(streamer.error());
    if ((*streamer)->frameIndex().empty())
        return PXFail(PXError{kPXCocoaErrorDomain,
                              kPXFileReadCorruptFileError,
                              u"%1 has no frame index"_s.arg(filePath),
                              {},
                              {}});
    const int width = PXClampToInt((*streamer)->selectionSize().width);
    const int height = PXClampToInt((*streamer)->selectionSize().height);
    const std::uint64_t bytes
        = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) * 4;
    QImage picture;
    if (bytes <= BRFrameFormat::pixelBytesJustified((*streamer)->length()))
        picture = QImage(width, height, QImage::Format_RGB32);
    if (picture.isNull()) {
        BRLog(BRLogError, "CVPixelBufferPoolCreate() failed with error %i", ENOMEM);
        return PXFail(PXPOSIXError(
            ENOMEM,
            u"Could not make a picture of %1 x %2 for %3"_s.arg(width).arg(height).arg(filePath)));
    }
    return std::shared_ptr<BRRawMovie>(new BRRawMovie(*std::move(streamer), std::move(picture)));
}

BRRawMovie::BRRawMovie(std::unique_ptr<BRFrameStreamer> streamer, QImage picture)
    : mFrameStreamer(std::move(streamer)), mCurrentFramePixelBuffer(std::move(picture))
{
    const PXLock lock(mPixelLock);
    _buildFrameAtIndex(0);
    _changes = mCurrentFramePixelBuffer.rect();
}

double BRRawMovie::currentTime() const
{
    const PXLock lock(mPixelLock);
    return mCurrentTime;
}

std::uint32_t BRRawMovie::currentFrameIndex() const
{
    const PXLock lock(mPixelLock);
    return mCurrentFrameIndex;
}

double BRRawMovie::timeOfNextFrame() const
{
    const PXLock lock(mPixelLock);
    const std::size_t next = std::size_t{mCurrentFrameIndex} + 1;
    return next < _index().size() ? _index()[next].timestamp
                                  : std::numeric_limits<double>::infinity();
}

double BRRawMovie::timeOfPreviousFrame() const
{
    const PXLock lock(mPixelLock);
    return _index()[std::max(mCurrentFrameIndex, 1U) - 1].timestamp;
}

QImage BRRawMovie::currentFrameImage() const
{
    const PXLock lock(mPixelLock);
    return mCurrentFramePixelBuffer.copy();
}

void BRRawMovie::useCurrentFrame(const std::function<void(const QImage &)> &use) const
{
    const PXLock lock(mPixelLock);
    use(mCurrentFramePixelBuffer);
}

QRegion BRRawMovie::takeChanges()
{
    const PXLock lock(mPixelLock);
    return std::exchange(_changes, {});
}

std::uint64_t BRRawMovie::decodedRects() const
{
    const PXLock lock(mPixelLock);
    return _decodedRects;
}

void BRRawMovie::setCurrentTime(double time)
{
    const PXLock lock(mPixelLock);
    _setCurrentTime(time);
}

bool BRRawMovie::advanceTime(double seconds)
{
    const PXLock lock(mPixelLock);
    return _setCurrentTime(mCurrentTime + seconds);
}

bool BRRawMovie::_setCurrentTime(double time)
{
    const std::uint32_t frame = _frameIndexForTime(time);
    const bool isOther = frame != mCurrentFrameIndex;
    if (isOther)
        _buildFrameAtIndex(frame);
    mCurrentTime = std::min(time, duration());
    return isOther;
}

std::uint32_t BRRawMovie::_frameIndexForTime(double time) const
{
    const auto index = _index();
    const auto isBefore
        = [](const BRFrameIndexRecord &record, double aTime) { return record.timestamp < aTime; };
    const auto found = std::lower_bound(index.begin(), index.end(), time, isBefore);
    const auto frame = static_cast<std::uint32_t>(found - index.begin());
    const bool isAtItsTime = found != index.end() && found->timestamp == time;
    return isAtItsTime || frame == 0 ? frame : frame - 1;
}

std::uint32_t BRRawMovie::_keyframeIndexBeforeFrame(std::uint32_t frame) const
{
    while (frame > 0 && !_index()[frame].isKeyFrame())
        --frame;
    return frame;
}

void BRRawMovie::_buildFrameAtIndex(std::uint32_t frame)
{
    std::uint32_t first = _keyframeIndexBeforeFrame(frame);
    // Going forwards the frames up to the current one lie there already.
    const bool isContinued = mCurrentFrameIndex != kNoFrame && frame > mCurrentFrameIndex
        && first <= mCurrentFrameIndex;
    if (isContinued)
        first = mCurrentFrameIndex + 1;
    else
        _changes = mCurrentFramePixelBuffer.rect();
    const Below below = isContinued ? Below::Current : Below::Black;
    // What does not decode lets shine through what it would have covered.
    if (!_layFrames(first, frame, below, Decode::WhatIsSeen))
        _layFrames(first, frame, below, Decode::Everything);
    mCurrentFrameIndex = frame;
}

/// Lays the frames from `first` to `last` over black or the current picture; false, and a picture
/// that is half done, where `WhatIsSeen` met something that cannot be read.
bool BRRawMovie::_layFrames(std::uint32_t first, std::uint32_t last, Below below, Decode decode)
{
    const QRegion all = mCurrentFramePixelBuffer.rect();
    const std::span<std::byte> canvas(
        reinterpret_cast<std::byte *>(mCurrentFramePixelBuffer.bits()),
        static_cast<std::size_t>(mCurrentFramePixelBuffer.sizeInBytes()));
    QRegion covered; // By what was shown later.
    std::vector<StoredRect> rects;
    std::vector<StoredRect> seen; // From the uppermost down.
    for (std::uint32_t frame = last + 1; frame-- > first;) {
        if (decode == Decode::WhatIsSeen && covered == all)
            break;
        rects.clear();
        if (!_readRectsOfFrame(frame, rects)) {
            if (decode == Decode::WhatIsSeen)
                return false;
            BRLog(BRLogWarning, "Dirty rect stream ended early!");
        }
        // One that does not decode ends its frame: those before one that is seen have to be tried.
        bool isSeen = decode == Decode::Everything;
        std::reverse(rects.begin(), rects.end());
        for (const StoredRect &rect : rects) {
            const QRegion place = _pixelsOf(rect.rect);
            isSeen = isSeen || !place.subtracted(covered).isEmpty();
            if (!isSeen)
                continue;
            if (covered.rectCount() < kMostCovers)
                covered += place;
            seen.push_back(rect);
        }
    }
    // Parts may stay that no rectangle reaches: an index may call key frame what is none.
    if (below == Below::Black && (decode == Decode::Everything || covered != all))
        mCurrentFramePixelBuffer.fill(Qt::black);
    std::optional<std::uint32_t> brokenFrame; // What follows of it is left out.
    std::reverse(seen.begin(), seen.end());
    for (const StoredRect &stored : seen) {
        if (stored.frame == brokenFrame)
            continue;
        mFrameStreamer->setPosition(stored.position);
        PXRect rect;
        ++_decodedRects;
        if (mFrameStreamer->readDirtyRectOntoCanvas(rect, canvas, BRPixelOrder::BGRA)) {
            _noteChange(rect);
        } else if (decode == Decode::WhatIsSeen) {
            return false;
        } else {
            BRLog(BRLogWarning, "Dirty rect stream ended early!");
            brokenFrame = stored.frame;
        }
    }
    return true;
}

/// Where a rectangle of the file lies in the picture.
QRect BRRawMovie::_pixelsOf(const PXRect &rect) const
{
    const int rows = PXClampToInt(rect.height);
    return {PXClampToInt(rect.x), mCurrentFramePixelBuffer.height() - PXClampToInt(rect.y) - rows,
            PXClampToInt(rect.width), rows};
}

void BRRawMovie::_noteChange(const PXRect &rect)
{
    _changes += _pixelsOf(rect);
    if (_changes.rectCount() > kMostChanges)
        _changes = _changes.boundingRect();
}

/// Appends the rectangles of a frame, without their pixels; false where the frame ends early.
bool BRRawMovie::_readRectsOfFrame(std::uint32_t frame, std::vector<StoredRect> &rects)
{
    mFrameStreamer->gotoFrameIndex(frame);
    const std::uint64_t end = std::size_t{frame} + 1 < _index().size()
        ? _index()[frame + 1].position
        : mFrameStreamer->length();
    std::uint32_t count = 0;
    double timestamp = 0;
    if (!mFrameStreamer->readFrame(count, timestamp) || count > BRFrameFormat::kMostRectsOfAFrame)
        return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        StoredRect stored = {frame, mFrameStreamer->position(), {}};
        const bool isLast = i + 1 == count;
        if (stored.position >= end || !mFrameStreamer->skipDirtyRect(stored.rect, isLast))
            return false;
        rects.push_back(stored);
    }
    return true;
}
