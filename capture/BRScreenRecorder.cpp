#include "capture/BRScreenRecorder.h"

#include "capture/BRCameraPlacement.h"
#include "capture/BRDiskSyncer.h"
#include "capture/framefile/BRFrameFormat.h"
#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXNotificationCenter.h"
#include "foundation/PXPropertyList.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <stdexcept>

using namespace Qt::StringLiterals;

const QString kBRScreenRecorderScreenSelectionRectChangedNotification
    = u"BRScreenRecorderScreenSelectionRectChangedNotification"_s;

namespace {

PXExpected<void> checkOptions(const BRScreenRecordingOptions &options)
{
    const auto fail = [](const QString &what, const QString &suggestion) {
        return PXFail({kPXPOSIXErrorDomain, EINVAL, what, suggestion, {}});
    };
    if (!(options.numberOfFramesPerSecond > 0))
        return fail(u"Cannot record %1 frames per second"_s.arg(
                        static_cast<double>(options.numberOfFramesPerSecond)),
                    u"Choose a rate above 0."_s);
    const PXSize size = options.screenSelectionSize;
    if (std::max(size.width, size.height) > BRFrameFormat::kLargestSide)
        return fail(u"Cannot record an area of %1x%2 pixels"_s
                        .arg(PXClampToInt64(static_cast<double>(size.width)))
                        .arg(PXClampToInt64(static_cast<double>(size.height))),
                    u"Choose sides of at most %1."_s.arg(BRFrameFormat::kLargestSide));
    const std::int32_t compression = options.videoCompression;
    if (compression < 0 || compression > static_cast<std::int32_t>(BRRawCompression::RLE))
        return fail(u"Cannot record with compression %1"_s.arg(compression),
                    u"Choose 1 (LZO) or 2 (RLE)."_s);
    // Large, and only whole frames of it read back: nobody chooses that, a setting went wrong.
    if (compression == static_cast<std::int32_t>(BRRawCompression::None))
        BRLog(BRLogWarning, "Recording without compression, which is neither LZO nor RLE.");
    return {};
}

} // namespace

BRScreenRecorder::BRScreenRecorder(QString uuid, BRScreenRecorderDelegate *delegate,
                                   PXScreenPlatform &platform, BRStatusItem *statusItem,
                                   BRMovieBounds *movieBounds)
    : _uuid(std::move(uuid)),
      _delegate(delegate),
      _platform(platform),
      _statusItem(statusItem),
      _movieBounds(movieBounds)
{
    BRLog(BRLogDebug, "BRScreenRecorder created");
}

BRScreenRecorder::~BRScreenRecorder()
{
    BRLog(BRLogDebug, "BRScreenRecorder dealloc");
    _delegate = nullptr;
    if (_isRecording)
        stopRecording();
    {
        PXLock lock(_stoppedLock);
        _hasBeenInformed = true;
    }
    _stopped.notify_all();
    if (_displayLink)
        _displayLink->stop();
    // An owner that did not wait for the end gets a whole file all the same, with every frame that
    // was grabbed, but not with the last state of the screen.
    if (_frameReader) {
        _frameReader->flushRemainingDirtyRects();
        _frameWriter->writeFrameThatMustBeWritten();
        _finishFile();
    }
    // Their threads wake the link, which goes first, or report failures.
    _frameReader.reset();
    _damageSource.reset();
    _frameWriter.reset();
    _diskSyncer.reset();
}

PXExpected<void> BRScreenRecorder::startRecording(const BRScreenRecordingOptions &options)
{
    BRLog(BRLogDebug, "BRScreenRecorder startRecording:");
    if (_frameWriter || _isStopping || _hasReported)
        throw std::logic_error("BRScreenRecorder: records once");
    if (auto checked = checkOptions(options); !checked)
        return checked;
    _setOptions(options);
    if (auto created = _createFrameReaderAndWriter(); !created)
        return created;
    _setIsRecording(true);
    if (_statusItem)
        _statusItem->setStatusItemImage(u"status-recording"_s);
    if (options.cameraMode == 1)
        _takeNoticeThatMouseMoved(_mouseLocation().value_or(PXPoint{}));
    else
        _setScreenSelectionRect(currentScreenSelectionRect());
    if (_movieBounds && options.displayMovieBounds) {
        _movieBounds->setScreenSelectionRect(currentScreenSelectionRect());
        _movieBounds->orderFront();
    }
    if (_delegate)
        _delegate->screenRecorderCVHostTimeOfFirstFrame(*this, PXCurrentHostTime());
    if (auto grabbed = _grabFirstFrame(); !grabbed) {
        _takeBackStart();
        return grabbed;
    }
    _startDisplayLink();
    _frameWriter->startThread();
    return {};
}

void BRScreenRecorder::_takeBackStart()
{
    _displayChanges.end();
    _damageSource.reset();
    _frameReader.reset();
    _frameWriter.reset();
    _diskSyncer.reset();
    if (_movieBounds)
        _movieBounds->orderOut();
    {
        // The caller gets the error; nobody is to hear of it twice.
        const PXLock lock(_failureLock);
        _failure.reset();
    }
    _hasFailed = false;
    _setIsRecording(false);
    if (_statusItem) {
        _statusItem->setStatusItemText(std::nullopt);
        _statusItem->setStatusItemImage(u"status-normal"_s);
    }
    // The next try begins like the first.
    const PXLock lock(_grabbingLock);
    _timeOfLastStatusItemUpdate = 0;
    _timeOfFirstFailedRead.reset();
}

void BRScreenRecorder::_setOptions(const BRScreenRecordingOptions &options)
{
    PXLock lock(_optionsLock);
    _options = options;
    // Whole pixels: a selection that began between two of them would be a pixel wider on the
    // screen than in the file.
    _options.screenSelectionSize = {std::trunc(options.screenSelectionSize.width),
                                    std::trunc(options.screenSelectionSize.height)};
    // Nor larger than the frames, whose buffers it is read into: in a camera mode that nobody
    // knows the rectangle is whatever the recording before left.
    const PXSize size = _options.screenSelectionSize;
    const PXRect rect = options.screenSelectionRect;
    _options.screenSelectionRect
        = {std::trunc(rect.x), std::trunc(rect.y), std::min(std::trunc(rect.width), size.width),
           std::min(std::trunc(rect.height), size.height)};
    _interval = 1.0 / static_cast<double>(options.numberOfFramesPerSecond);
}

PXExpected<void> BRScreenRecorder::_grabFirstFrame()
{
    PXLock lock(_grabbingLock);
    const double now = PXTimeIntervalSinceReferenceDate();
    _absoluteTimeOfLastFrame = 0;
    _absoluteTimeOfFirstFrame = _absoluteTimeOfLastKeyFrame = now;
    // Damage is collected from before the first read on: what is painted during it is reported.
    auto collecting = _damageSource->start([this] {
        _hasDamage = true;
        _wakeDisplayLink();
    });
    if (!collecting)
        return collecting;
    // Another output, or another place of it: the damage may have been reported, and read, before
    // we hear where the display is now.
    _displayChanges = _platform.mainDisplay().addChangedObserver([this] {
        _addWholeSelection();
        _wakeDisplayLink();
    });
    _addWholeSelection();
    return _grabRectsNow(now);
}

PXExpected<void> BRScreenRecorder::_createFrameReaderAndWriter()
{
    const BRScreenRecordingOptions options = _currentOptions();
    auto damageSource = _platform.makeDamageSource();
    auto frameReader = BRFrameReader::pixelsWide(
        PXClampToInt(static_cast<double>(options.screenSelectionSize.width)),
        PXClampToInt(static_cast<double>(options.screenSelectionSize.height)), options.showCursor,
        _platform, *this);
    if (!damageSource || !frameReader) {
        BRLog(BRLogError, "Could not create a frame reader.");
        return PXFail(frameReader ? damageSource.error() : frameReader.error());
    }

    _folderPath
        = PXDefaults::standardUserDefaults().stringValue(u"moviesFolderPath"_s) + u'/' + _uuid;
    if (auto made = PXFileManager::createAllDirectoriesForPath(_folderPath); !made) {
        BRLog(BRLogDebug, "Could not create a frame streamer.");
        return made;
    }
    const QString filePath = _folderPath + u'/' + kBRCaptureVideoDataName;
    const auto fail = [this](const PXError &error) { _fail(error); };
    auto diskSyncer
        = std::make_unique<BRDiskSyncer>(QStringList{filePath, filePath + u".index"_s}, fail);
    auto makeStreamer = [alert = _alert, filePath, options] {
        auto streamer = BRFrameStreamer::withFilePathForWriting(
            filePath, options.screenSelectionSize,
            static_cast<BRRawCompression>(options.videoCompression), options.lossyLevel);
        if (!streamer && alert)
            alert->beep(PXErrorLine(streamer.error()));
        return streamer;
    };
    auto frameWriter
        = BRFrameWriter::withStreamer(std::move(makeStreamer), fail, [syncer = diskSyncer.get()] {
              syncer->noteThatFilesWereWritten();
          });
    if (!frameWriter) {
        BRLog(BRLogDebug, "Could not create a frame streamer.");
        return PXFail(std::move(frameWriter).error());
    }
    _damageSource = *std::move(damageSource);
    _frameReader = *std::move(frameReader);
    _diskSyncer = std::move(diskSyncer);
    _frameWriter = *std::move(frameWriter);
    return {};
}

void BRScreenRecorder::_startDisplayLink()
{
    auto displayLink = _platform.makeDisplayLink();
    if (!displayLink) {
        BRLog(BRLogWarning, PXErrorLine(displayLink.error()));
        return;
    }
    _displayLink = *std::move(displayLink);
    if (const auto started = _displayLink->start([this](auto) { return _displayLinkCallback(); });
        !started) {
        BRLog(BRLogWarning, PXErrorLine(started.error()));
        _displayLink.reset();
        return;
    }
    _runningDisplayLink = _displayLink.get();
    // What came before found no link to wake.
    _wakeDisplayLink();
}

void BRScreenRecorder::_setIsRecording(bool isRecording)
{
    _isRecording = isRecording;
    if (_delegate)
        _delegate->screenRecorderIsRecordingDidChange(*this);
}

void BRScreenRecorder::stopRecording()
{
    if (_isStopping)
        return;
    if (_hasReported)
        return;
    _isStopping = true;
    BRLog(BRLogDebug, "BRScreenRecorder stopRecording:");
    if (!_frameReader) {
        // Never started: there is nothing to end, and the owner still waits for the report.
        PXMainThread::post(&_mainThread, [this] { _tellDelegateThatRecordingStopped(); });
        return;
    }
    _displayChanges.end();
    _damageSource->stop();
    BRLog(BRLogDebug, "BRScreenRecorder stopRecording: after unregistering screen refresh");
    _frameWriter->stopThread();
    _frameWriter->closeMailbox();
    BRLog(BRLogDebug, "BRScreenRecorder stopRecording: after lock release");
    _setIsRecording(false);
    {
        PXLock lock(_grabbingLock);
        // With the lock, or a text that the link's thread is just setting would stay.
        if (_statusItem) {
            _statusItem->setStatusItemText(std::nullopt);
            _statusItem->setStatusItemImage(u"status-normal"_s);
        }
        const double duration = _absoluteTimeOfLastFrame - _absoluteTimeOfFirstFrame;
        // A single grab has no rate.
        _averageFPS = duration > 0 ? static_cast<float>(_totalFramesGrabbed / duration) : 0.0F;
    }
    BRLog(BRLogDebug, "BRScreenRecorder stopRecording: end");
    if (_displayLink)
        _displayLink->wake(PXDisplayLink::kAtOnce);
    else
        PXMainThread::post(&_mainThread, [this] { _informDelegateRecordingStopped(); });
}

void BRScreenRecorder::_informDelegateRecordingStopped()
{
    BRLog(BRLogDebug, "BRScreenRecorder _informDelegateRecordingStopped:");
    {
        PXLock lock(_grabbingLock);
        _addWholeSelection();
        // Without it the recording ends on the frame before; the log says why.
        if (!_hasFailed)
            static_cast<void>(_grabRectsNow(PXTimeIntervalSinceReferenceDate()));
        BRLog(BRLogDebug, "BRScreenRecorder stopRecording: after _grabRectsNow:");
        _frameReader->flushRemainingDirtyRects();
        _frameWriter->writeFrameThatMustBeWritten();
    }
    if (_movieBounds)
        _movieBounds->orderOut();
    _writeAverageCaptureRate();
    BRLog(BRLogDebug, "BRScreenRecorder _informDelegateRecordingStopped: tidy streamer");
    _finishFile();
    _frameReader.reset();
    BRLog(BRLogDebug, "BRScreenRecorder _informDelegateRecordingStopped: all done");
    _tellDelegateThatRecordingStopped();
}

void BRScreenRecorder::_finishFile()
{
    PXLock lock(_grabbingLock);
    // Frames after a failed write were grabbed and dropped: the header counts what is there.
    const std::uint32_t frames
        = std::min(_totalNumberOfFramesInStream.load(), _frameWriter->totalFramesWritten());
    const auto finished
        = _frameWriter->finish(_absoluteTimeOfLastFrame - _absoluteTimeOfFirstFrame, frames);
    if (!finished)
        _fail(finished.error());
    _diskSyncer->noteThatFilesWereWritten();
}

PXExpected<void> BRScreenRecorder::waitUntilStored()
{
    if (!_diskSyncer)
        return {};
    const auto stored = _diskSyncer->finish();
    // What the owner was told while it recorded is not told twice.
    return _hasToldOfFailure ? PXExpected<void>() : stored;
}

void BRScreenRecorder::_tellDelegateThatRecordingStopped()
{
    _tellDelegateOfFailure();
    _hasReported = true;
    if (_delegate)
        _delegate->screenRecorderDidStopRecording(*this);
    _isStopping = false;
}

void BRScreenRecorder::_writeAverageCaptureRate() const
{
    const QString path = _folderPath + u'/' + kBRMovieInfoName;
    QVariantMap info;
    if (QFileInfo::exists(path)) {
        auto read = PXPropertyList::read(path);
        if (!read) {
            // Better without a rate than without the rest of what it says.
            BRLog(BRLogWarning, PXErrorLine(read.error()));
            return;
        }
        info = *std::move(read);
    }
    info.insert(u"averageCaptureRate"_s, _averageFPS);
    auto written = PXFileManager::createAllDirectoriesForPath(_folderPath);
    if (written)
        written = PXPropertyList::write(info, path, PXPropertyList::Format::XML);
    // On a disk that is known to be full this is no news.
    if (!written)
        BRLog(_hasFailed ? BRLogError : BRLogWarning, PXErrorLine(written.error()));
}

void BRScreenRecorder::_fail(const PXError &error)
{
    if (_hasFailed.exchange(true))
        return;
    {
        const PXLock lock(_failureLock);
        _failure = error;
    }
    PXMainThread::post(&_mainThread, [this] { _tellDelegateOfFailure(); });
}

void BRScreenRecorder::_tellDelegateOfFailure()
{
    std::optional<PXError> failure;
    {
        const PXLock lock(_failureLock);
        failure = std::exchange(_failure, std::nullopt);
    }
    // After the end only the disk can fail, and waitUntilStored() tells that.
    if (failure && _delegate && !_hasReported) {
        _hasToldOfFailure = true;
        _delegate->screenRecorderFailed(*this, *failure);
    }
}

BRScreenRecordingOptions BRScreenRecorder::_currentOptions() const
{
    PXLock lock(_optionsLock);
    return _options;
}

PXRect BRScreenRecorder::currentScreenSelectionRect() const
{
    return _currentOptions().screenSelectionRect;
}

std::uint32_t BRScreenRecorder::totalFramesWritten() const
{
    return _frameWriter ? _frameWriter->totalFramesWritten() : 0;
}

void BRScreenRecorder::toggleCameraMode()
{
    {
        PXLock lock(_optionsLock);
        _options.cameraMode = _options.cameraMode == 0 ? 1 : 0;
    }
    _mustLook = true;
    _wakeDisplayLink();
}

std::optional<PXPoint> BRScreenRecorder::_mouseLocation()
{
    // The answer about the cursor has told it; asking again would cost a round trip in each grab.
    PXPixelRect pixel;
    if (const std::optional<PXCursor> &cursor = _frameReader->capturedCursor())
        pixel = cursor->pointerPixel;
    else if (const auto asked = _frameReader->cursorSource().pointerPixel())
        pixel = *asked;
    else
        return std::nullopt;
    return PXPointFromPixels(pixel.x, pixel.y, _platform.mainDisplay().bounds());
}

void BRScreenRecorder::_setScreenSelectionRect(const PXRect &rect)
{
    {
        PXLock lock(_optionsLock);
        _options.screenSelectionRect = rect;
    }
    PXNotificationCenter::defaultCenter().postNotificationName(
        kBRScreenRecorderScreenSelectionRectChangedNotification, this);
}

void BRScreenRecorder::_takeNoticeThatMouseMoved(PXPoint mouseLocation)
{
    const BRScreenRecordingOptions options = _currentOptions();
    const PXPixelRect display = _platform.mainDisplay().bounds();
    _setScreenSelectionRect(BRCenterCameraRectAtMouseLocation(
        mouseLocation, options.screenSelectionSize,
        {static_cast<float>(display.width), static_cast<float>(display.height)}));
    if (_movieBounds && options.displayMovieBounds)
        _movieBounds->setScreenSelectionRect(currentScreenSelectionRect());
}
