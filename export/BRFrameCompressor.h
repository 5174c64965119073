#pragma once

#include "export/BRCompressionSettings.h"
#include "export/BRMovieFile.h"
#include "export/BRReplacedFile.h"
#include "foundation/PXAlert.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXMutex.h"
#include "platform/PXMediaPlatform.h"

#include <QImage>
#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

class BRFrameAssembler;
class BRFrameCompressor;

/// What a compressor tells its owner; on the main thread, no lock held. Everything is optional.
/// One of the last three ends an export, save that without memory for a single picture nobody is
/// told: only the alert sounds, and `isCompressing` answers no. The compressor may be destroyed in
/// none of them.
class BRFrameCompressorDelegate {
public:
    /// The raw file is open and counted.
    virtual void frameCompressorWillBeginCompression(BRFrameCompressor &, std::uint32_t) { }
    /// A frame is handed to the encoder. The picture is the captured one; null unless
    /// `setSendsPictures` asked for it, for three frames of four, and while the one before has not
    /// been delivered yet.
    virtual void frameCompressorWillEncodeFrame(BRFrameCompressor &, const QImage &) { }
    /// The encoder returned a frame; so many are not finished now. The frame comes without its
    /// data, which would pile up while the main thread is busy.
    virtual void frameCompressorDidCompressFrame(BRFrameCompressor &, const PXEncodedFrame &,
                                                 std::uint32_t)
    {
    }
    /// The movie is at the path, which is another than asked for where that could not be had.
    virtual void frameCompressorDidFinishCompression(BRFrameCompressor &, const QString &) { }
    virtual void frameCompressorDidCancelCompression(BRFrameCompressor &) { }
    virtual void frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &) { }

protected:
    ~BRFrameCompressorDelegate() = default;
};

/// What an export is made with.
struct BRCompressionOptions {
    std::optional<PXCompressionSessionOptions> options; ///< Its codec and size are not looked at.
    std::uint32_t codec = 0; ///< Four-character code.
    int width = 0; ///< Of the movie, pixels.
    int height = 0;
};

/// Turns one raw capture into a QuickTime movie with a single video track. Reads and rebuilds
/// frames on a thread of its own, has a compression session encode them, and moves the finished
/// movie to its place on the main thread.
/// Everything public is for the main thread, except where another thread is named. One export
/// at a time; another may follow. Destroying a compressor that is exporting cancels silently.
class BRFrameCompressor final {
public:
    struct Progress {
        std::uint32_t framesDone = 0;
        std::uint32_t totalFrames = 0; ///< 0 until the raw file is counted.
    };

    /// `isUpsideDown` says how a version 1 capture lies. Adopts the user's saved settings.
    /// Borrows `media` and `defaults`.
    BRFrameCompressor(QString filePath, bool isUpsideDown, PXMediaPlatform &media,
                      PXDefaults &defaults);
    ~BRFrameCompressor();
    BRFrameCompressor(const BRFrameCompressor &) = delete;
    BRFrameCompressor &operator=(const BRFrameCompressor &) = delete;

    static PXCompressionSessionOptions defaultOptions() { return {}; }

    /// Reads the saved settings again and replaces options and codec.
    void adoptUserCompressionOptions();
    /// Saves settings for every compressor and adopts them.
    PXExpected<void> saveCompressionSettings(const BRCompressionSettings &settings);

    /// May be changed until an export starts; what is changed here is not saved.
    BRCompressionOptions &compressionOptions() { return _compressionOptions; }
    [[nodiscard]] const SCTemporalSettings &temporalSettings() const { return _temporalSettings; }
    [[nodiscard]] const SCSpatialSettings &spatialSettings() const { return _spatialSettings; }

    [[nodiscard]] BRFrameCompressorDelegate *delegate() const { return _delegate; }
    void setDelegate(BRFrameCompressorDelegate *delegate) { _delegate = delegate; }
    /// Beeps when a frame, or the end of the encoding, fails and the export goes on without, and
    /// when there is no memory for a picture. Borrowed; null (at first) is silent.
    void setAlert(PXAlert *alert) { _alert = alert; }
    /// Size of the captured area. Where the raw file says another, that one holds.
    void setScreenSelectionSize(PXSize size) { _screenSelectionSize = size; }
    /// Size of the movie; fractions are cut off.
    void setMovieExportSize(PXSize size);
    /// Frames a second that the recording aimed at (30 until set): how long a capture's only frame
    /// lasts at least, and what the encoder's rate control expects.
    void setCaptureRate(double rate) { _captureRate = rate; }
    /// Whether the delegate is shown the frames (it is not until set).
    void setSendsPictures(bool sends) { _sendsPictures = sends; }

    /// Begins an export to `outputPath`; the delegate hears of its end. A file that is there is
    /// taken out of the way now and comes back unless the export succeeds. After a failure
    /// everything is as before and the delegate hears nothing.
    PXExpected<void> startCompression(const QString &outputPath);
    /// Any thread; the export ends with the frame it is at. Harmless when there is none.
    void cancelCompression() { _cancel = true; }
    /// Any thread.
    [[nodiscard]] Progress progress() const;
    /// Frames that this export, or the last one, goes without because the encoder refused them. Any
    /// thread.
    [[nodiscard]] std::uint32_t missingFrames() const { return _missingFrames; }
    /// Whether the delegate is still to hear of an export's end. Any thread.
    [[nodiscard]] bool isCompressing() const { return _isCompressing; }
    /// The first sample or index that could not be written (a full disk). The export goes on to
    /// its end then, and fails there with this error.
    [[nodiscard]] std::optional<PXError> firstWriteError() const;

private:
    /// How the export thread ended.
    struct Ending {
        std::optional<PXError> error;
        bool wasOpened = true; ///< The raw file.
    };

    void _getSavedSettings();
    PXExpected<void> _createCompressionSessionWithCodec();
    PXExpected<void> _exportMovieToPath(const QString &outputPath);
    PXExpected<void> _detachThread();
    void _threadedCompressFrames();
    std::optional<Ending> _compressFrames();
    std::optional<Ending> _compressFramesWithinMemory();
    void _informDelegateCompressionStarted(std::uint32_t totalFrames);
    PXExpected<void> _flushFrames(double captureDuration);
    PXExpected<void> _exportFrame(const BRFrameAssembler &frame);
    void _informDelegateFrameBegan(const BRFrameAssembler &frame);
    void _frameCameOut(const PXExpected<PXEncodedFramePtr> &frame);
    void _doneCompressingFrame(const PXEncodedFramePtr &frame);
    void _compressingFrameFailed();
    void _noteWriteError(const PXError &error);
    void _logAndBeep(const QString &message);

    void _informDelegateCompressionIsDone();
    void _informDelegateCompressionWasCancelled();
    void _informDelegateCompressionFailed(const PXError &error);
    [[nodiscard]] std::optional<PXError> _errorOfFinishedMovie() const;
    /// Closes and deletes the temporary movie and puts back what it was to replace. Ends the
    /// export thread first, whose last message may still be under way: only for endings.
    void cleanupDueToError();

    BRFrameCompressorDelegate *_delegate = nullptr;
    PXAlert *_alert = nullptr;
    QString _filePath;
    bool _isUpsideDown;
    BRCompressionOptions _compressionOptions;
    PXSize _screenSelectionSize;
    SCTemporalSettings _temporalSettings;
    SCSpatialSettings _spatialSettings;
    std::atomic<std::uint32_t> _totalNumberOfFrames = 0;
    std::atomic<std::uint32_t> _numberOfFramesRemaining = 0;
    std::atomic<std::uint32_t> _numberOfFramesInPipeline = 0;
    std::atomic<std::uint32_t> _missingFrames = 0;
    std::atomic<bool> _cancel = false;
    std::atomic<bool> _isCompressing = false;
    std::unique_ptr<BRMovieFile> _movie; ///< There from the start of an export to its end.

    PXMediaPlatform &_media;
    PXDefaults &_defaults;
    const PXError _noMemory; ///< Made before it is needed: then there may be none to make it.
    double _captureRate = 30;
    double _exportedCaptureRate = 30; ///< As they were when the export began.
    PXSize _exportedSelectionSize;
    std::uint32_t _framesRead = 0; ///< The export thread's,
    std::uint32_t _samplesAdded = 0; ///< the encoder's; for others once that has ended.
    std::atomic<bool> _sendsPictures = false;
    std::atomic<bool> _pictureIsWaiting = false; ///< For the main thread: one at a time.
    BRReplacedFile _replacedFile;
    mutable PXMutex _writeErrorLock;
    std::optional<PXError> _firstWriteError PX_GUARDED_BY(_writeErrorLock);
    QObject _mainThread; ///< Context of what the other threads post.
    std::unique_ptr<PXCompressionSession> _compressionSession;
    std::jthread _exportThread;
};
