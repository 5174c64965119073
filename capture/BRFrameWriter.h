#pragma once

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXMutex.h"
#include "foundation/PXPixelView.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

/// One grabbed frame on its way to the file.
struct BRFrameToWrite {
    PXPixelView buffer; ///< Belongs to the frame reader.
    std::vector<PXRect> dirtyRects; ///< Relative to the selection: what the file gets.
    std::vector<PXRect> dirtyRectsWithinBuffer; ///< The same ones relative to `buffer`.
    PXRect captureRect; ///< The selection at that moment, global coordinates.
    double timestamp = 0; ///< Seconds since the first frame.
    bool isKeyFrame = false;
};

/// A mailbox for one frame and the thread that empties it into the raw capture file, so that
/// compressing and writing do not delay the next grab.
///
/// The lock is held for as long as a frame is being written: whoever hands over the next one
/// waits for it, and no buffer is read into again before it is written. A frame that nobody has
/// begun to write is replaced by the next one, except for a key frame, for which a reader that
/// seeks would look in vain.
class BRFrameWriter final {
public:
    using StreamerFactory = std::function<PXExpected<std::unique_ptr<BRFrameStreamer>>()>;

    /// Makes the files at once, so that a recording that cannot be written fails at its start.
    /// `failed` is called with the first error of a write, from when on frames are dropped, and
    /// when the thread cannot make its files: frames then wait for `closeMailbox()`. `wrote` is
    /// called after each frame. Both on the thread that writes, with the mailbox's lock held: they
    /// may not call the writer.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRFrameWriter>>
    withStreamer(StreamerFactory makeStreamer, std::function<void(const PXError &)> failed,
                 std::function<void()> wrote);
    ~BRFrameWriter();

    void startThread();

    /// Puts a frame into the mailbox and answers the one that it replaced. After `closeMailbox()`
    /// frames are written at once on the calling thread.
    [[nodiscard]] std::optional<BRFrameToWrite> handOff(BRFrameToWrite frame);
    /// Nothing waits and nothing is being written. Never waits.
    [[nodiscard]] bool isMailboxEmpty();

    /// Ends the thread after the frame that it is writing; one that waits stays in the mailbox.
    void stopThread();
    /// From now on the mailbox holds nothing back. Call after `stopThread()`. Files that the
    /// thread could not make are tried once more.
    void closeMailbox();
    /// Writes what `stopThread()` left in the mailbox.
    void writeFrameThatMustBeWritten();

    /// Bytes in the file so far, for display. Any thread.
    [[nodiscard]] std::uint64_t bytesReadWritten() const { return _bytesReadWritten; }
    [[nodiscard]] std::uint32_t totalFramesWritten() const { return _totalFramesWritten; }
    /// Writes duration and frame count into the header and closes the files. After
    /// `closeMailbox()`.
    [[nodiscard]] PXExpected<void> finish(double duration, std::uint32_t numberOfFrames);

private:
    BRFrameWriter(StreamerFactory makeStreamer, std::function<void(const PXError &)> failed,
                  std::function<void()> wrote);

    void _threadedWriteDirtyRects(const std::stop_token &stop);
    void _writeFrameThatMustBeWritten() PX_REQUIRES(_frameWritingLock);
    PXExpected<void> _write(const BRFrameToWrite &frame) PX_REQUIRES(_frameWritingLock);

    const StreamerFactory _makeStreamer;
    const std::function<void(const PXError &)> _failed;
    const std::function<void()> _wrote;
    std::atomic<std::uint32_t> _totalFramesWritten = 0;
    std::atomic<std::uint64_t> _bytesReadWritten = 0;
    std::atomic<bool> _isRunningThreadedWriteDirtyRects = false;

    PXMutex _frameWritingLock;
    std::condition_variable_any _mailboxChanged;
    std::unique_ptr<BRFrameStreamer> _frameStreamer PX_GUARDED_BY(_frameWritingLock);
    BRFrameToWrite _frameToWrite PX_GUARDED_BY(_frameWritingLock);
    bool _frameMustBeWritten PX_GUARDED_BY(_frameWritingLock) = false;
    bool _isMailboxClosed PX_GUARDED_BY(_frameWritingLock) = false;
    bool _hasNoWriter PX_GUARDED_BY(_frameWritingLock) = false;
    bool _hasFailed PX_GUARDED_BY(_frameWritingLock) = false;
    std::jthread _thread;
};
