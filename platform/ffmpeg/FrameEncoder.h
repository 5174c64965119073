#pragma once

#include "platform/PXCompressionSession.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include <cstdint>
#include <deque>
#include <optional>

/// Gives an encoder its frames, each with the duration that the next one's time settles, and
/// hands out what comes back. One thread.
class FrameEncoder final {
public:
    /// Borrows both.
    FrameEncoder(AVCodecContext &context, const PXCompressionSession::Output &output);

    /// The frame's `pts` is its time, not before the one before.
    void encode(ffmpeg::Frame frame);
    /// Encodes the last frame and waits for all that the encoder still holds.
    PXExpected<void> complete(double soleFrameDuration);

    /// Set when the encoder found no memory: nothing that comes out later can be relied on.
    [[nodiscard]] const std::optional<PXError> &failure() const { return _failure; }

private:
    struct Waiting {
        std::int64_t displayTime;
        std::int64_t duration; ///< 0: replaced, and not in the encoder at all.
    };

    void send(std::int64_t duration);
    /// Takes what is ready; the encoder's status when nothing is.
    int receive();
    /// Remembers one that is a failure for good; answers it.
    int noted(int status);
    void handOut(ffmpeg::Packet packet);
    /// Those whose turn it is.
    void handOutReplacedFrames();
    [[nodiscard]] std::int64_t durationOfLastFrame(double soleFrameDuration) const;

    AVCodecContext &_context;
    const PXCompressionSession::Output &_output;
    ffmpeg::Frame _pending; ///< Known by picture and time, not yet by duration.
    std::deque<Waiting> _inEncoder; ///< In order; no encoder of ours reorders.
    std::optional<std::int64_t> _lastDuration;
    std::optional<PXError> _failure;
};
