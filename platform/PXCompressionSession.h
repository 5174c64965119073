#pragma once

#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

/// Display times and durations of encoded frames are counted in this many parts of a second.
inline constexpr int kPXCompressionTimeScale = 3000;

/// The best quality that still is a lossy one's scale; 768 is "high", 512 "normal".
inline constexpr int kPXBestQuality = 1024;

/// A whole picture: 4 bytes a pixel, B, G, R and one that is not looked at, the top row first.
struct PXPictureView {
    const std::byte *pixels = nullptr;
    std::ptrdiff_t bytesPerRow = 0;
    int width = 0;
    int height = 0;
};

enum class PXEncoderSpeed { Fast, Medium };

struct PXCompressionSessionOptions {
    std::uint32_t codec = 0; ///< Four-character code.
    int width = 0; ///< Of the movie; the pictures are scaled to it.
    int height = 0;
    int quality = 768; ///< 0 to `kPXBestQuality`; more is better. Lossless codecs ignore it.
    int keyFrameInterval = 0; ///< Frames from one key frame to the next at most; 0 is the codec's.
    double expectedFrameRate = 30; ///< A hint for the rate control; times come with the frames.
    std::int64_t bitRate = 0; ///< Bits a second; 0 lets `quality` decide.
    bool fullChroma = false; ///< 4:4:4, which few players can show.
    PXEncoderSpeed speed = PXEncoderSpeed::Medium;
    int threads = 0; ///< Of the encoder; 0 suits the machine.
};

/// How a track's samples are to be read: what a session tells the movie writer of the same back
/// end.
class PXTrackFormat {
public:
    virtual ~PXTrackFormat() = default;
    /// Of the encoded picture. Where the chroma is coarser than the luma an odd size has become
    /// even, by repeating the last column or row.
    [[nodiscard]] virtual int width() const = 0;
    [[nodiscard]] virtual int height() const = 0;
};

/// What came out of the encoder for one frame. Does not change once it is handed out, so threads
/// may share it.
class PXEncodedFrame {
public:
    virtual ~PXEncodedFrame() = default;
    /// 1/3000 s.
    [[nodiscard]] virtual std::int64_t displayTime() const = 0;
    /// 1/3000 s, settled from the time of the frame behind it. 0, and no data, when that frame
    /// has the same time and takes this one's place.
    [[nodiscard]] virtual std::int64_t decodeDuration() const = 0;
    [[nodiscard]] virtual bool isKeyFrame() const = 0;
    [[nodiscard]] virtual std::span<const std::byte> data() const = 0;
};

// Shared because the encoder's thread writes it while the main thread waits to hear of it.
using PXEncodedFramePtr = std::shared_ptr<const PXEncodedFrame>;

/// Turns pictures into encoded frames, on threads of its own behind a bounded queue: one converts
/// or scales, one encodes (and has the encoder's own threads at its side).
/// `encodeFrame` and `completeFrames` belong to one thread. Destroying a session gives up what
/// it has not encoded yet.
class PXCompressionSession {
public:
    /// Called once for each frame that `encodeFrame` took, on the encoder's thread: the encoded
    /// frame, in their order, or why there is none. Must outlive the session and not call it. Where
    /// it runs out of memory (std::bad_alloc) the session fails.
    using Output = std::function<void(const PXExpected<PXEncodedFramePtr> &)>;

    virtual ~PXCompressionSession() = default;

    /// Takes the picture as it is now: only `changed` (pixels, y down) is read, all of it for the
    /// first frame. Nothing changed is a frame that shows the picture before for longer. Waits
    /// while the queue is full. Every picture of a session has the same size.
    /// `displayTime` is in 1/3000 s and never lies before the one before; of several frames at
    /// one time the last picture stays. Fails for a time that cannot be used; what changed is
    /// then shown by the next frame.
    [[nodiscard]] virtual PXExpected<void> encodeFrame(const PXPictureView &picture,
                                                       std::int64_t displayTime,
                                                       std::span<const PXPixelRect> changed)
        = 0;

    /// Waits until every frame has come out. The last lasts as long as the one before it, a sole
    /// one `soleFrameDuration` seconds and at least one tick. No frame may follow.
    [[nodiscard]] virtual PXExpected<void> completeFrames(double soleFrameDuration) = 0;

    /// Why the session failed for good: there was too little memory to make a frame. `encodeFrame`
    /// and `completeFrames` fail from then on, and what has not come out yet never does. Any
    /// thread.
    [[nodiscard]] virtual std::optional<PXError> failure() const = 0;

    [[nodiscard]] virtual const PXTrackFormat &trackFormat() const = 0;
};
