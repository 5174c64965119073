#pragma once

#include "platform/PXCompressionSession.h"
#include "platform/ffmpeg/BoundedQueue.h"
#include "platform/ffmpeg/FFmpegEncodedFrame.h"
#include "platform/ffmpeg/FFmpegHandles.h"
#include "platform/ffmpeg/FrameEncoder.h"
#include "platform/ffmpeg/PicturePainter.h"

#include <memory>
#include <optional>
#include <thread>
#include <vector>

/// caller ─▶ updates ─▶ converter thread ─▶ frames ─▶ encoder thread ─▶ output
class FFmpegCompressionSession final : public PXCompressionSession {
public:
    static PXExpected<std::unique_ptr<FFmpegCompressionSession>>
    create(const PXCompressionSessionOptions &options, Output output);
    ~FFmpegCompressionSession() override;

    PXExpected<void> encodeFrame(const PXPictureView &picture, std::int64_t displayTime,
                                 std::span<const PXPixelRect> changed) override;
    PXExpected<void> completeFrames(double soleFrameDuration) override;
    [[nodiscard]] std::optional<PXError> failure() const override;
    [[nodiscard]] const PXTrackFormat &trackFormat() const override { return _trackFormat; }

private:
    using Update = std::unique_ptr<PictureUpdate>;

    FFmpegCompressionSession(const PXCompressionSessionOptions &options, Output output,
                             ffmpeg::CodecContext encoder);
    PXExpected<void> begin(const PXPictureView &picture);
    PXExpected<void> take(const PXPictureView &picture, std::int64_t displayTime,
                          std::span<const PXPixelRect> changed);
    PXExpected<void> convertPictures();
    PXExpected<void> encodePictures();
    /// Lets no thread wait any longer, and nothing come out.
    void fail(const PXError &error);

    PXCompressionSessionOptions _options;
    Output _output;
    ffmpeg::CodecContext _context;
    FFmpegTrackFormat _trackFormat;

    // The caller's.
    std::vector<PXPixelRect> _changed; ///< What the next update has to show.
    std::int64_t _lastDisplayTime = 0;
    int _sourceWidth = 0, _sourceHeight = 0;
    int _blockColumns = 1, _blockRows = 1;
    bool _isComplete = false;
    double _soleFrameDuration = 0; ///< Set before the queue that tells the encoder thread closes.

    std::unique_ptr<PicturePainter> _painter; ///< The converter thread's, once that runs.
    FrameEncoder _encoder; ///< The encoder thread's.
    PXExpected<void> _completion; ///< Its last word; read after joining it.
    mutable PXMutex _failureLock;
    std::optional<PXError> _failure PX_GUARDED_BY(_failureLock);

    // Updates go round: empty ones wait in the first, so that memory is bounded and used again.
    BoundedQueue<Update> _emptyUpdates;
    BoundedQueue<Update> _updates;
    BoundedQueue<ffmpeg::Frame> _pictures;
    std::jthread _converterThread;
    std::jthread _encoderThread;
};
