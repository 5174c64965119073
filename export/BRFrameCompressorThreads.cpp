// What the export thread and the encoder's thread run; BRFrameCompressor.cpp is the main thread's.

#include "export/BRFrameCompressor.h"

#include "capture/framefile/BRFrameAssembler.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRFrameWithoutData.h"
#include "foundation/BRLog.h"
#include "foundation/PXMainThread.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kFramesPerPicture = 4;
constexpr qint64 kSmallestFrame = 12; // Bytes in a capture.

/// -1, which no session takes, for what is no time.
std::int64_t displayTimeOf(double timestamp)
{
    return timestamp >= 0 ? PXClampToInt64(timestamp * kPXCompressionTimeScale) : -1;
}

std::vector<PXPixelRect> changedPixels(const BRFrameAssembler &frame)
{
    // The capture's lower left corner is the origin of its rectangles, as on the main display.
    const PXPixelRect picture{0, 0, frame.width(), frame.height()};
    std::vector<PXPixelRect> pixels;
    pixels.reserve(frame.rects().size());
    for (const PXRect &rect : frame.rects())
        pixels.push_back(PXPixelsFromRect(rect, picture));
    return pixels;
}

} // namespace

void BRFrameCompressor::_threadedCompressFrames()
{
    const std::optional<Ending> ending = _compressFramesWithinMemory();
    // Without memory for a picture there is nobody to tell, and nothing is cleaned up.
    if (!ending) {
        _isCompressing = false;
        _logAndBeep(u"Could not allocate buffer from pool."_s);
        return;
    }
    if (ending->wasOpened)
        BRLog(BRLogDebug, "_threadedCompressFrames: after flush");
    _compressionSession.reset();
    BRLog(BRLogDebug, "_threadedCompressFrames: after releases");
    if (_cancel) {
        PXMainThread::post(&_mainThread, [this] { _informDelegateCompressionWasCancelled(); });
    } else if (ending->error) {
        PXMainThread::post(&_mainThread, [this, error = *ending->error] {
            _informDelegateCompressionFailed(error);
        });
    } else {
        PXMainThread::post(&_mainThread, [this] { _informDelegateCompressionIsDone(); });
    }
    BRLog(BRLogDebug, "_threadedCompressFrames: end");
}

std::optional<BRFrameCompressor::Ending> BRFrameCompressor::_compressFramesWithinMemory()
{
    try {
        return _compressFrames();
    } catch (const std::bad_alloc &) {
        return Ending{.error = _noMemory};
    }
}

std::optional<BRFrameCompressor::Ending> BRFrameCompressor::_compressFrames()
{
    const auto streamer = BRFrameStreamer::withFilePathForReading(_filePath, _isUpsideDown);
    if (!streamer)
        return Ending{streamer.error(), false};
    // Laid out as the encoder's thread and a QImage read it, so that nobody turns pixels around.
    BRFrameAssembler frames(**streamer, BRPixelOrder::BGRA);
    const PXSize size{static_cast<float>(frames.width()), static_cast<float>(frames.height())};
    if (_exportedSelectionSize != PXSize{} && _exportedSelectionSize != size) {
        BRLog(BRLogWarning, "%s holds frames of %d x %d, not of %g x %g", qUtf8Printable(_filePath),
              frames.width(), frames.height(), static_cast<double>(_exportedSelectionSize.width),
              static_cast<double>(_exportedSelectionSize.height));
    }
    _informDelegateCompressionStarted((*streamer)->numberOfFrames());

    while (!_cancel) {
        const auto result = frames.readNextFrame();
        if (!result && result.error().code == ENOMEM)
            return std::nullopt;
        if (!result)
            return Ending{.error = result.error()};
        if (*result == BRFrameAssembler::Result::End)
            break;
        if (++_framesRead > _totalNumberOfFrames) { // The header counted too few.
            ++_totalNumberOfFrames;
            ++_numberOfFramesRemaining;
        }
        if (const auto exported = _exportFrame(frames); !exported)
            return Ending{.error = exported.error()};
    }
    BRLog(BRLogDebug, "_threadedCompressFrames: end of loop");
    if (!_cancel) {
        if (const auto flushed = _flushFrames((*streamer)->duration()); !flushed)
            return Ending{.error = flushed.error()};
    }
    return Ending{};
}

void BRFrameCompressor::_informDelegateCompressionStarted(std::uint32_t totalFrames)
{
    _totalNumberOfFrames = totalFrames;
    _numberOfFramesRemaining = totalFrames;
    // A damaged header must not have room reserved for frames that the file cannot hold.
    const qint64 mostFrames = QFileInfo(_filePath).size() / kSmallestFrame;
    _movie->setExpectedNumberOfSamples(
        static_cast<std::uint64_t>(std::min<qint64>(totalFrames, mostFrames)));
    PXMainThread::post(&_mainThread, [this, totalFrames] {
        if (_delegate)
            _delegate->frameCompressorWillBeginCompression(*this, totalFrames);
    });
    BRLog(BRLogDebug, "_threadedCompressFrames: starting loop (%d total frames)", totalFrames);
}

PXExpected<void> BRFrameCompressor::_flushFrames(double captureDuration)
{
    const double shortest = _exportedCaptureRate > 0 ? 1 / _exportedCaptureRate : 0;
    const double soleFrameDuration = std::max(captureDuration, shortest);
    if (const std::uint32_t left = _numberOfFramesInPipeline; left != 0)
        BRLog(BRLogInfo, "_threadedCompressFrame: waiting for frames remaining (%d)", left);
    // Comes back when every frame has come out.
    const auto completed = _compressionSession->completeFrames(soleFrameDuration);
    if (const auto failure = _compressionSession->failure())
        return PXFail(*failure);
    if (!completed) {
        _logAndBeep(QString::asprintf("ICMCompressionSessionCompleteFrames() failed with error %i",
                                      completed.error().code));
    }
    return {};
}

// An error ends the export; a single frame that fails does not.
PXExpected<void> BRFrameCompressor::_exportFrame(const BRFrameAssembler &frame)
{
    _informDelegateFrameBegan(frame);
    ++_numberOfFramesInPipeline;
    const PXPictureView picture{frame.picture().data(), std::ptrdiff_t{4} * frame.width(),
                                frame.width(), frame.height()};
    const auto taken = _compressionSession->encodeFrame(picture, displayTimeOf(frame.timestamp()),
                                                        changedPixels(frame));
    if (taken)
        return {};
    --_numberOfFramesInPipeline;
    --_numberOfFramesRemaining;
    if (const auto failure = _compressionSession->failure())
        return PXFail(*failure);
    ++_missingFrames;
    _logAndBeep(QString::asprintf("ICMCompressionSessionEncodeFrame() failed with error %i",
                                  taken.error().code));
    return {};
}

void BRFrameCompressor::_logAndBeep(const QString &message)
{
    BRLog(BRLogError, message);
    if (_alert)
        _alert->beep(message);
}

void BRFrameCompressor::_informDelegateFrameBegan(const BRFrameAssembler &frame)
{
    QImage picture;
    // A copy of each would cost more than anybody sees.
    const bool isShown = _sendsPictures && (_framesRead - 1) % kFramesPerPicture == 0;
    const bool isWaited = isShown && !_pictureIsWaiting.exchange(true);
    if (isWaited) {
        picture = QImage(reinterpret_cast<const uchar *>(frame.picture().data()), frame.width(),
                         frame.height(), qsizetype{4} * frame.width(), QImage::Format_RGB32)
                      .copy();
    }
    PXMainThread::post(&_mainThread, [this, picture, isWaited] {
        if (isWaited) // Null all the same where there was no memory for it.
            _pictureIsWaiting = false;
        if (_delegate)
            _delegate->frameCompressorWillEncodeFrame(*this, picture);
    });
}

// The encoder's thread

void BRFrameCompressor::_frameCameOut(const PXExpected<PXEncodedFramePtr> &frame)
{
    if (frame)
        _doneCompressingFrame(*frame);
    else
        _compressingFrameFailed();
}

void BRFrameCompressor::_compressingFrameFailed()
{
    ++_missingFrames;
    --_numberOfFramesRemaining;
    --_numberOfFramesInPipeline;
}

void BRFrameCompressor::_doneCompressingFrame(const PXEncodedFramePtr &frame)
{
    --_numberOfFramesRemaining;
    --_numberOfFramesInPipeline;
    if (frame->decodeDuration() > 0) {
        if (const auto added = _movie->addMediaSample(*frame); added) {
            ++_samplesAdded;
        } else {
            BRLog(BRLogError, "AddMediaSampleFromEncodedFrame() failed with error %i",
                  added.error().code);
            _noteWriteError(added.error());
        }
    }
    PXMainThread::post(&_mainThread, [this, light = BRFrameWithoutData(*frame)] {
        if (_delegate)
            _delegate->frameCompressorDidCompressFrame(*this, light, _numberOfFramesRemaining);
    });
}

void BRFrameCompressor::_noteWriteError(const PXError &error)
{
    const PXLock lock(_writeErrorLock);
    if (!_firstWriteError)
        _firstWriteError = error;
}
