// The half of the recorder that runs on the display link's thread: when to grab, and what.

#include "capture/BRScreenRecorder.h"

#include "capture/BRDirtyRects.h"
#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "foundation/PXMainThread.h"

#include <algorithm>
#include <limits>

namespace {

/// A refresh that comes this much too early grabs all the same; else the rate would slip by a
/// whole refresh whenever a tick comes a little early.
constexpr double kEarlyWindow = 0.01;
/// Makes the refresh that is asked for fall inside the window above and not on its edge.
constexpr double kInsideEarlyWindow = 0.0001;
constexpr double kTimeBetweenStatusUpdates = 1.0;
constexpr double kTimeBetweenPointerQuestions = 0.2;
constexpr double kLongestWaitInRing = 0.25;
/// When reads have failed for so long the display will not give any pixels again.
constexpr double kLongestTimeWithoutRead = 2.0;
/// The link may call this much before the wished time; what was due then is due now.
constexpr double kEarlyCall = 0.005;
constexpr std::uint32_t kGrabsBetweenKeyFrames = 30;
constexpr double kTimeBetweenKeyFrames = 3.0;

} // namespace

std::uint64_t BRScreenRecorder::_displayLinkCallback()
{
    if (!_isRecording) {
        BRLog(BRLogDebug, "BRScreenRecorder displayLinkCallback stopping...");
        _displayLink->stop();
        _informMainThreadAndWait();
        BRLog(BRLogDebug, "BRScreenRecorder displayLinkCallback stopped.");
        return PXDisplayLink::kWhenWoken;
    }
    if (_hasFailed)
        return PXDisplayLink::kWhenWoken;
    PXLock lock(_grabbingLock);
    const double now = PXTimeIntervalSinceReferenceDate();
    const double elapsed = now - _absoluteTimeOfLastFrame;
    const bool isTime = elapsed > _interval || _interval - elapsed < kEarlyWindow;
    if (isTime && _maySomethingHaveChanged(now)) {
        // What fails is tried again at the next refresh, unless it failed for good.
        static_cast<void>(_grabRectsNow(now));
    } else {
        _updateStatusItem(now);
    }
    _deliverFramesThatWaitedTooLong(now);
    return _whenToCallNext();
}

void BRScreenRecorder::_informMainThreadAndWait()
{
    PXMainThread::post(&_mainThread, [this] {
        _informDelegateRecordingStopped();
        PXLock lock(_stoppedLock);
        _hasBeenInformed = true;
        _stopped.notify_all();
    });
    PXLock lock(_stoppedLock);
    _stopped.wait(lock, [this]() PX_NO_THREAD_ANALYSIS { return _hasBeenInformed; });
}

bool BRScreenRecorder::_watchesPointer() const
{
    const BRScreenRecordingOptions options = _currentOptions();
    return options.showCursor || options.cameraMode == 1;
}

bool BRScreenRecorder::_isSomethingKnownToHaveChanged()
{
    if (_hasDamage || _mustLook)
        return true;
    PXLock lock(_dirtyRectsLock);
    return !_dirtyRects.empty();
}

bool BRScreenRecorder::_maySomethingHaveChanged(double now)
{
    if (_isSomethingKnownToHaveChanged())
        return true;
    if (!_watchesPointer()
        || now - _timeOfLastPointerQuestion < kTimeBetweenPointerQuestions - kEarlyCall)
        return false;
    _timeOfLastPointerQuestion = now;
    return _frameReader->cursorSource().mayHaveMoved();
}

std::uint64_t BRScreenRecorder::_whenToCallNext()
{
    _hostTimeOfNextGrab = PXHostTimeForReferenceTime(_absoluteTimeOfLastFrame + _interval
                                                     - kEarlyWindow + kInsideEarlyWindow);
    double next = std::numeric_limits<double>::infinity();
    if (_watchesPointer()) {
        // Before its time a grab would not be made anyway.
        next = std::max(_timeOfLastPointerQuestion + kTimeBetweenPointerQuestions,
                        _absoluteTimeOfLastFrame + _interval - kEarlyWindow + kInsideEarlyWindow);
        _frameReader->cursorSource().callOnceWhenMoved([this] {
            _mustLook = true;
            _wakeDisplayLink();
        });
    }
    if (_statusItem)
        next = std::min(next, _timeOfLastStatusItemUpdate + kTimeBetweenStatusUpdates + kEarlyCall);
    if (_frameReader->hasWaitingFrames())
        next = std::min(next, _timeOfLastPush + kLongestWaitInRing);
    // Last: what has arrived meanwhile must not wait for a rest to end.
    if (_isSomethingKnownToHaveChanged())
        return _hostTimeOfNextGrab;
    return next == std::numeric_limits<double>::infinity() ? PXDisplayLink::kWhenWoken
                                                           : PXHostTimeForReferenceTime(next);
}

void BRScreenRecorder::_wakeDisplayLink()
{
    if (PXDisplayLink *link = _runningDisplayLink)
        link->wake(_hostTimeOfNextGrab);
}

PXExpected<void> BRScreenRecorder::_grabRectsNow(double time)
{
    _mustLook = false;
    _timeOfLastPointerQuestion = time;
    const BRScreenRecordingOptions options = _currentOptions();
    const PXRect selection = options.screenSelectionRect;
    _updateStatusItem(time);
    if (options.showCursor)
        _frameReader->cursorSource().askAhead();
    if (auto taken = _takeDamage(); !taken)
        return taken;
    PXRect cursorRect;
    if (options.showCursor)
        cursorRect = _frameReader->captureCursorWithTimestamp(time, selection);
    std::vector<PXRect> rects = _rectsToGrab(cursorRect, options);
    if (!rects.empty()) {
        if (_isTimeForKeyFrame(time)) {
            rects = {selection};
            _totalNumberOfFramesAtLastKeyFrame = _totalFramesGrabbed;
            _absoluteTimeOfLastKeyFrame = time;
        }
        auto pushed
            = _frameReader->pushDirtyRects(rects, time - _absoluteTimeOfFirstFrame, selection);
        if (!pushed) {
            _addDirtyRects(rects);
            // Once, however often it is tried again; what the display refused is in the log.
            if (!_timeOfFirstFailedRead && pushed.error().domain != kPXDisplayErrorDomain)
                BRLog(BRLogWarning, PXErrorLine(pushed.error()));
            if (!_timeOfFirstFailedRead)
                _timeOfFirstFailedRead = time;
            // A display that changes may refuse a read or two.
            if (PXIsDisplayLost(pushed.error())
                || time - *_timeOfFirstFailedRead > kLongestTimeWithoutRead)
                _fail(pushed.error());
            return pushed;
        }
        _timeOfFirstFailedRead.reset();
        _previousCaptureRect = selection;
        _absoluteTimeOfLastFrame = _timeOfLastPush = time;
        ++_totalFramesGrabbed;
    }
    if (options.cameraMode == 1) {
        _takeNoticeThatMouseMoved(_lastMouseLocation);
        // The next grab has to show the new place, also when nothing moves any more.
        if (currentScreenSelectionRect() != selection)
            _mustLook = true;
    }
    // After the camera's move, so that the frame does not flash up around a place that was left.
    if (_movieBounds && options.displayMovieBounds && _isRecording && !rects.empty())
        _movieBounds->selectionWasRead(selection);
    return {};
}

void BRScreenRecorder::_updateStatusItem(double time)
{
    if (!_statusItem || !_isRecording
        || time - _timeOfLastStatusItemUpdate <= kTimeBetweenStatusUpdates)
        return;
    const auto text
        = BRRecordingStatusText(time - _absoluteTimeOfFirstFrame, _frameWriter->bytesReadWritten());
    if (text)
        _statusItem->setStatusItemText(text);
    _timeOfLastStatusItemUpdate = time;
}

PXExpected<void> BRScreenRecorder::_takeDamage()
{
    if (!_isRecording || !_hasDamage.exchange(false))
        return {};
    _damage.clear();
    if (auto taken = _damageSource->takeDamage(_damage); !taken) {
        _fail(taken.error());
        return taken;
    }
    const PXPixelRect display = _platform.mainDisplay().bounds();
    PXLock lock(_dirtyRectsLock);
    for (const PXPixelRect &pixels : _damage)
        _dirtyRects.push_back(PXRectFromPixels(pixels, display));
    return {};
}

std::vector<PXRect> BRScreenRecorder::_rectsToGrab(const PXRect &cursorRect,
                                                   const BRScreenRecordingOptions &options)
{
    const PXRect selection = options.screenSelectionRect;
    const std::optional<PXCursor> &cursor = _frameReader->capturedCursor();
    const std::uint64_t cursorSerial = cursor ? cursor->serial : 0;
    std::vector<PXRect> dirtyRects;
    {
        PXLock lock(_dirtyRectsLock);
        // The serial too: a cursor that turns in its place changes its picture and not its area.
        if (cursorRect != _previousCursorRect || cursorSerial != _previousCursorSerial) {
            for (const PXRect &area : {_previousCursorRect, cursorRect}) {
                if (PXIntersectsRect(selection, area))
                    _dirtyRects.push_back(PXIntersectionRect(selection, area));
            }
        }
        dirtyRects = std::exchange(_dirtyRects, {});
    }
    _previousCursorRect = cursorRect;
    _previousCursorSerial = cursorSerial;
    bool hasMoved = false;
    if (options.cameraMode == 1) {
        const PXPoint mouse = _mouseLocation().value_or(_lastMouseLocation);
        hasMoved = mouse != _lastMouseLocation;
        _lastMouseLocation = mouse;
    }
    // Also where the camera stands after it was told to stop following.
    if (hasMoved || (_totalFramesGrabbed > 0 && selection != _previousCaptureRect))
        return {selection};
    return BRMergeDirtyRects(dirtyRects, selection);
}

bool BRScreenRecorder::_isTimeForKeyFrame(double time) const
{
    return _totalFramesGrabbed - _totalNumberOfFramesAtLastKeyFrame > kGrabsBetweenKeyFrames
        && time - _absoluteTimeOfLastKeyFrame > kTimeBetweenKeyFrames;
}

void BRScreenRecorder::_addDirtyRects(std::span<const PXRect> rects)
{
    PXLock lock(_dirtyRectsLock);
    _dirtyRects.insert(_dirtyRects.end(), rects.begin(), rects.end());
}

void BRScreenRecorder::_addWholeSelection()
{
    const PXRect selection = currentScreenSelectionRect();
    _addDirtyRects({&selection, 1});
}

void BRScreenRecorder::_deliverFramesThatWaitedTooLong(double now)
{
    if (now - _timeOfLastPush < kLongestWaitInRing - kEarlyCall
        || !_frameReader->hasWaitingFrames())
        return;
    if (_frameWriter->isMailboxEmpty())
        _frameReader->deliverOldestWaitingFrame();
}

bool BRScreenRecorder::frameReaderShouldGrabRects(BRFrameReader &, std::span<const PXRect>, double)
{
    ++_currentProposedFrameIndex;
    return true;
}

void BRScreenRecorder::frameReaderWillGrabRects(BRFrameReader &, std::span<const PXRect>, double)
{
    ++_totalNumberOfFramesInStream;
}

void BRScreenRecorder::frameReaderDidGrabDirtyRects(BRFrameReader &, std::vector<PXRect> dirtyRects,
                                                    std::vector<PXRect> rectsWithinBuffer,
                                                    double timestamp, const PXPixelView &buffer,
                                                    const PXRect &captureRect)
{
    // All that the camera showed then, which is less than a frame where the screen is smaller.
    const bool isKeyFrame = dirtyRects.size() == 1
        && dirtyRects.front() == PXRect{0, 0, captureRect.width, captureRect.height};
    const auto replaced
        = _frameWriter->handOff({buffer, std::move(dirtyRects), std::move(rectsWithinBuffer),
                                 captureRect, timestamp, isKeyFrame});
    if (!replaced)
        return;
    // Its pixels never reach the file, so they must be grabbed again.
    --_totalNumberOfFramesInStream;
    std::vector<PXRect> rects = replaced->dirtyRects;
    for (PXRect &rect : rects) {
        rect.x += replaced->captureRect.x;
        rect.y += replaced->captureRect.y;
    }
    _addDirtyRects(rects);
}
