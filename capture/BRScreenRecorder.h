#pragma once

#include "capture/BRFrameReader.h"
#include "capture/BRFrameWriter.h"
#include "capture/BRRecordingStatus.h"
#include "capture/BRScreenRecordingOptions.h"
#include "foundation/PXAlert.h"
#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXMutex.h"
#include "foundation/PXObservation.h"
#include "platform/PXScreenPlatform.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

class BRDiskSyncer;
class BRScreenRecorder;

/// Posted each time the camera moved; the sender is the recorder. In follow mode on the grabbing
/// thread, which may not wait for the main thread there.
extern const QString kBRScreenRecorderScreenSelectionRectChangedNotification;

/// What a recorder tells its owner, which outlives it; always on the main thread, no lock held.
class BRScreenRecorderDelegate {
public:
    /// Once, when everything is written. The recorder must not be destroyed before this has
    /// returned; a posted call (`PXMainThread::post`) is soon enough.
    virtual void screenRecorderDidStopRecording(BRScreenRecorder &recorder) = 0;
    /// Recording cannot go on: the disk is full, the display has gone. The owner is to call
    /// `stopRecording()`. At most once, and before the report of the end when the very last
    /// frames could not be written; never after it.
    virtual void screenRecorderFailed(BRScreenRecorder &recorder, const PXError &error) = 0;
    /// Optional. Host time of frame 0 in nanoseconds, to line up the sound; from inside
    /// `startRecording()`.
    virtual void screenRecorderCVHostTimeOfFirstFrame(BRScreenRecorder &, std::uint64_t) { }
    /// Optional. `isRecording()` has changed.
    virtual void screenRecorderIsRecordingDidChange(BRScreenRecorder &) { }

protected:
    ~BRScreenRecorderDelegate() = default;
};

/// The frame that is drawn around the recorded area. Called on any thread; must not wait for the
/// main thread.
///
/// It may stand around the area, but never in it: what was around the camera's old place is inside
/// its new one. So it must have gone when `setScreenSelectionRect()` with another rectangle
/// returns, and may be drawn around that one once it was read: a camera that is on its way has no
/// frame, which would be in the next picture.
class BRMovieBounds {
public:
    virtual void setScreenSelectionRect(const PXRect &rect) = 0;
    /// The pixels of `rect` have been read. While recording, after each read.
    virtual void selectionWasRead(const PXRect &rect) = 0;
    virtual void orderFront() = 0;
    virtual void orderOut() = 0;

protected:
    ~BRMovieBounds() = default;
};

/// Records an area of the main display into a raw capture file.
///
/// The display link's thread paces: it takes the damage, has the frame reader read the pixels and
/// hands each frame to the writer's thread. While the screen is still the link rests, but for the
/// status text once a second and, where the pointer counts, a question after it five times a
/// second. Records once; the owner makes a new recorder for each recording. Public calls on the
/// main thread, unless said. Rectangles are in global coordinates, times in seconds of the
/// reference-date clock. While it records, the main display's changed handler is the recorder's.
class BRScreenRecorder final : private BRFrameReaderDelegate {
public:
    /// `statusItem` and `movieBounds` may be missing; what is given outlives the recorder.
    BRScreenRecorder(QString uuid, BRScreenRecorderDelegate *delegate, PXScreenPlatform &platform,
                     BRStatusItem *statusItem = nullptr, BRMovieBounds *movieBounds = nullptr);
    ~BRScreenRecorder();
    BRScreenRecorder(const BRScreenRecorder &) = delete;
    BRScreenRecorder &operator=(const BRScreenRecorder &) = delete;

    /// Grabs the first frame, a whole one, before it returns. The capture's folder is
    /// `moviesFolderPath`/`uuid`. On failure nothing runs and it may be tried again; what stays is
    /// the folder and files in it, where the failure came after they were made. A recorder that
    /// has recorded, or reported its end, throws std::logic_error.
    [[nodiscard]] PXExpected<void> startRecording(const BRScreenRecordingOptions &options);
    /// Returns at once; `screenRecorderDidStopRecording` tells of the end. Calling it again does
    /// nothing.
    void stopRecording();

    [[nodiscard]] bool isRecording() const { return _isRecording; }
    [[nodiscard]] const QString &uuid() const { return _uuid; }
    [[nodiscard]] BRScreenRecorderDelegate *delegate() const { return _delegate; }
    void setDelegate(BRScreenRecorderDelegate *delegate) { _delegate = delegate; }
    /// Beeps when the capture's files cannot be made. Before the start; outlives the recorder.
    void setAlert(PXAlert *alert) { _alert = alert; }
    /// Where the camera is now. Any thread.
    [[nodiscard]] PXRect currentScreenSelectionRect() const;
    /// From a fixed area to one that follows the pointer and back; at the next grab.
    void toggleCameraMode();

    /// After the report of the end: waits until what was recorded is on the disk. Fails with what
    /// the disk refused and nobody was told of yet.
    [[nodiscard]] PXExpected<void> waitUntilStored();

    /// Frames written to the file so far. Any thread.
    [[nodiscard]] std::uint32_t totalFramesWritten() const;

private:
    bool frameReaderShouldGrabRects(BRFrameReader &reader, std::span<const PXRect> rects,
                                    double timestamp) override;
    void frameReaderWillGrabRects(BRFrameReader &reader, std::span<const PXRect> rects,
                                  double timestamp) override;
    void frameReaderDidGrabDirtyRects(BRFrameReader &reader, std::vector<PXRect> dirtyRects,
                                      std::vector<PXRect> rectsWithinBuffer, double timestamp,
                                      const PXPixelView &buffer,
                                      const PXRect &captureRect) override;

    // Start and stop, on the main thread.
    void _setOptions(const BRScreenRecordingOptions &options);
    PXExpected<void> _createFrameReaderAndWriter();
    PXExpected<void> _grabFirstFrame();
    void _takeBackStart();
    void _startDisplayLink();
    void _setIsRecording(bool isRecording);
    void _informDelegateRecordingStopped();
    void _finishFile();
    void _tellDelegateThatRecordingStopped();
    void _writeAverageCaptureRate() const;
    void _fail(const PXError &error);
    void _tellDelegateOfFailure();

    // Pacing and grabbing, on the display link's thread (the main thread for the first and the
    // last frame).
    std::uint64_t _displayLinkCallback();
    void _informMainThreadAndWait();
    [[nodiscard]] bool _watchesPointer() const;
    bool _isSomethingKnownToHaveChanged();
    bool _maySomethingHaveChanged(double now) PX_REQUIRES(_grabbingLock);
    std::uint64_t _whenToCallNext() PX_REQUIRES(_grabbingLock);
    PXExpected<void> _grabRectsNow(double time) PX_REQUIRES(_grabbingLock);
    void _updateStatusItem(double time) PX_REQUIRES(_grabbingLock);
    PXExpected<void> _takeDamage() PX_REQUIRES(_grabbingLock);
    std::vector<PXRect> _rectsToGrab(const PXRect &cursorRect,
                                     const BRScreenRecordingOptions &options)
        PX_REQUIRES(_grabbingLock);
    [[nodiscard]] bool _isTimeForKeyFrame(double time) const PX_REQUIRES(_grabbingLock);
    void _addDirtyRects(std::span<const PXRect> rects);
    void _addWholeSelection();
    void _deliverFramesThatWaitedTooLong(double now) PX_REQUIRES(_grabbingLock);
    void _wakeDisplayLink();

    // The camera.
    [[nodiscard]] BRScreenRecordingOptions _currentOptions() const;
    std::optional<PXPoint> _mouseLocation();
    void _setScreenSelectionRect(const PXRect &rect);
    void _takeNoticeThatMouseMoved(PXPoint mouseLocation);

    const QString _uuid;
    BRScreenRecorderDelegate *_delegate;
    PXScreenPlatform &_platform;
    BRStatusItem *const _statusItem;
    BRMovieBounds *const _movieBounds;
    PXAlert *_alert = nullptr;
    QString _folderPath;

    mutable PXMutex _optionsLock;
    BRScreenRecordingOptions _options PX_GUARDED_BY(_optionsLock);
    double _interval = 0; ///< Seconds between frames at the wanted rate.

    std::atomic<bool> _isRecording = false;
    bool _isStopping = false;
    bool _hasReported = false;
    bool _hasToldOfFailure = false;
    std::atomic<bool> _hasFailed = false;
    PXMutex _failureLock;
    std::optional<PXError> _failure PX_GUARDED_BY(_failureLock); ///< Not told to the owner yet.
    float _averageFPS = 0;

    PXMutex _dirtyRectsLock;
    std::vector<PXRect> _dirtyRects PX_GUARDED_BY(_dirtyRectsLock);
    std::atomic<bool> _hasDamage = false; ///< The damage source has something to take.
    std::atomic<bool> _mustLook = false; ///< The pointer moved or the camera mode changed.
    std::atomic<std::uint64_t> _hostTimeOfNextGrab = 0; ///< No grab is wanted before.

    // Whoever grabs holds this: the link's thread, or the main thread before the link runs and
    // while it waits for the last frame.
    PXMutex _grabbingLock;
    double _absoluteTimeOfFirstFrame PX_GUARDED_BY(_grabbingLock) = 0;
    double _absoluteTimeOfLastFrame PX_GUARDED_BY(_grabbingLock) = 0;
    double _absoluteTimeOfLastKeyFrame PX_GUARDED_BY(_grabbingLock) = 0;
    double _timeOfLastStatusItemUpdate PX_GUARDED_BY(_grabbingLock) = 0;
    double _timeOfLastPush PX_GUARDED_BY(_grabbingLock) = 0;
    double _timeOfLastPointerQuestion PX_GUARDED_BY(_grabbingLock) = 0;
    std::uint32_t _totalNumberOfFramesAtLastKeyFrame PX_GUARDED_BY(_grabbingLock) = 0;
    std::uint32_t _totalFramesGrabbed PX_GUARDED_BY(_grabbingLock) = 0;
    PXRect _previousCursorRect PX_GUARDED_BY(_grabbingLock);
    std::uint64_t _previousCursorSerial PX_GUARDED_BY(_grabbingLock) = 0;
    PXPoint _lastMouseLocation PX_GUARDED_BY(_grabbingLock);
    PXRect _previousCaptureRect PX_GUARDED_BY(_grabbingLock); ///< Selection of the push before.
    /// Kept so that a grab allocates nothing.
    std::vector<PXPixelRect> _damage PX_GUARDED_BY(_grabbingLock);
    /// Of those since the last that went well.
    std::optional<double> _timeOfFirstFailedRead PX_GUARDED_BY(_grabbingLock);
    std::atomic<std::uint32_t> _totalNumberOfFramesInStream = 0;
    std::atomic<std::uint32_t> _currentProposedFrameIndex = 0;

    // The link's thread waits here while the main thread ends the recording.
    PXMutex _stoppedLock;
    std::condition_variable_any _stopped;
    bool _hasBeenInformed PX_GUARDED_BY(_stoppedLock) = false;

    std::unique_ptr<BRDiskSyncer> _diskSyncer;
    std::unique_ptr<BRFrameWriter> _frameWriter;
    std::unique_ptr<BRFrameReader> _frameReader;
    std::unique_ptr<PXDamageSource> _damageSource;
    PXObservation _displayChanges;
    QObject _mainThread; ///< Context of posted calls.
    // Last, so that its thread ends before anything that it uses goes.
    std::unique_ptr<PXDisplayLink> _displayLink;
    /// The link once it runs; what the back ends' threads wake.
    std::atomic<PXDisplayLink *> _runningDisplayLink = nullptr;
};
