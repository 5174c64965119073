#pragma once

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXMutex.h"

#include <QImage>
#include <QRegion>
#include <QString>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <span>
#include <vector>

/// A raw capture as a seekable movie: given a time, the whole picture that was shown then. Decodes
/// what is seen of the frames since the nearest key frame, and when it goes forwards only what is
/// new. Any thread; one builds at a time, and whoever looks at the picture waits for it.
/// Times are seconds since frame 0.
class BRRawMovie final {
public:
    /// Opens the frame file and builds frame 0. Fails also for a file without a frame index: one of
    /// version 1, an empty or interrupted recording, a lost ".index".
    [[nodiscard]] static PXExpected<std::shared_ptr<BRRawMovie>>
    withFilePath(const QString &filePath);

    BRRawMovie(const BRRawMovie &) = delete;
    BRRawMovie &operator=(const BRRawMovie &) = delete;

    [[nodiscard]] double duration() const { return mFrameStreamer->duration(); }
    [[nodiscard]] PXSize dimensions() const { return mFrameStreamer->selectionSize(); }
    [[nodiscard]] std::uint32_t numberOfFrames() const { return mFrameStreamer->numberOfFrames(); }

    [[nodiscard]] double currentTime() const;
    [[nodiscard]] std::uint32_t currentFrameIndex() const;
    /// When the frame after the current one begins; infinite after the last.
    [[nodiscard]] double timeOfNextFrame() const;
    /// When the frame before the current one begins; that of the first before there is any.
    [[nodiscard]] double timeOfPreviousFrame() const;

    /// Shows the last frame whose timestamp is at most `time`, or frame 0; of several with just
    /// this timestamp the first. The time is kept, up to the duration.
    void setCurrentTime(double time);
    /// The same so much later, in one step. Whether another frame is shown.
    bool advanceTime(double seconds);

    /// A copy of the current frame's picture, opaque.
    [[nodiscard]] QImage currentFrameImage() const;
    /// Lends the picture without a copy; it stays as it is until `use` returns.
    void useCurrentFrame(const std::function<void(const QImage &picture)> &use) const;
    /// What became different in the picture since this was asked last, pixels, y down; everything
    /// at first.
    [[nodiscard]] QRegion takeChanges();

    /// Rectangles decoded so far, for benchmarks and tests.
    [[nodiscard]] std::uint64_t decodedRects() const;

private:
    struct StoredRect {
        std::uint32_t frame;
        std::uint64_t position; ///< In the frame file.
        PXRect rect;
    };
    enum class Below { Black, Current };
    enum class Decode { WhatIsSeen, Everything };
    static constexpr std::uint32_t kNoFrame = std::numeric_limits<std::uint32_t>::max();

    explicit BRRawMovie(std::unique_ptr<BRFrameStreamer> streamer, QImage picture);

    [[nodiscard]] std::span<const BRFrameIndexRecord> _index() const
    {
        return mFrameStreamer->frameIndex();
    }
    [[nodiscard]] std::uint32_t _frameIndexForTime(double time) const;
    [[nodiscard]] std::uint32_t _keyframeIndexBeforeFrame(std::uint32_t frame) const;
    bool _setCurrentTime(double time) PX_REQUIRES(mPixelLock);
    void _buildFrameAtIndex(std::uint32_t frame) PX_REQUIRES(mPixelLock);
    bool _layFrames(std::uint32_t first, std::uint32_t last, Below below, Decode decode)
        PX_REQUIRES(mPixelLock);
    [[nodiscard]] QRect _pixelsOf(const PXRect &rect) const PX_REQUIRES(mPixelLock);
    void _noteChange(const PXRect &rect) PX_REQUIRES(mPixelLock);
    bool _readRectsOfFrame(std::uint32_t frame, std::vector<StoredRect> &rects)
        PX_REQUIRES(mPixelLock);

    mutable PXMutex mPixelLock;
    const std::unique_ptr<BRFrameStreamer> mFrameStreamer; ///< Read under the lock.
    /// The rebuilt frame: B, G, R, A in memory, top row first.
    QImage mCurrentFramePixelBuffer PX_GUARDED_BY(mPixelLock);
    double mCurrentTime PX_GUARDED_BY(mPixelLock) = 0;
    std::uint32_t mCurrentFrameIndex PX_GUARDED_BY(mPixelLock) = kNoFrame;
    QRegion _changes PX_GUARDED_BY(mPixelLock);
    std::uint64_t _decodedRects PX_GUARDED_BY(mPixelLock) = 0;
};
