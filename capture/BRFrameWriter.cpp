#include "capture/BRFrameWriter.h"

#include "foundation/BRLog.h"
#include "foundation/PXThread.h"

BRFrameWriter::BRFrameWriter(StreamerFactory makeStreamer,
                             std::function<void(const PXError &)> failed,
                             std::function<void()> wrote)
    : _makeStreamer(std::move(makeStreamer)), _failed(std::move(failed)), _wrote(std::move(wrote))
{
}

BRFrameWriter::~BRFrameWriter() = default;

PXExpected<std::unique_ptr<BRFrameWriter>>
BRFrameWriter::withStreamer(StreamerFactory makeStreamer,
                            std::function<void(const PXError &)> failed,
                            std::function<void()> wrote)
{
    auto streamer = makeStreamer();
    if (!streamer)
        return PXFail(std::move(streamer).error());
    std::unique_ptr<BRFrameWriter> writer(
        new BRFrameWriter(std::move(makeStreamer), std::move(failed), std::move(wrote)));
    PXLock lock(writer->_frameWritingLock);
    writer->_frameStreamer = *std::move(streamer);
    return writer;
}

void BRFrameWriter::startThread()
{
    _isRunningThreadedWriteDirtyRects = true;
    _thread = std::jthread([this](const std::stop_token &stop) { _threadedWriteDirtyRects(stop); });
}

void BRFrameWriter::_threadedWriteDirtyRects(const std::stop_token &stop)
{
    PXSetThreadName("tolvane-writer");
    // The files are made anew here: what the thread writes to is its own from the first byte on.
    auto streamer = _makeStreamer();
    PXLock lock(_frameWritingLock);
    if (streamer) {
        _frameStreamer = *std::move(streamer);
        const auto hasFrame = [this]() PX_NO_THREAD_ANALYSIS { return _frameMustBeWritten; };
        while (_mailboxChanged.wait(lock, stop, hasFrame) && !stop.stop_requested()) {
            _writeFrameThatMustBeWritten();
            _mailboxChanged.notify_all();
        }
    } else {
        BRLog(BRLogError, "Could not create a frame streamer.");
        _failed(streamer.error());
        _hasNoWriter = true;
        _mailboxChanged.notify_all();
    }
    _isRunningThreadedWriteDirtyRects = false;
}

std::optional<BRFrameToWrite> BRFrameWriter::handOff(BRFrameToWrite frame)
{
    PXLock lock(_frameWritingLock);
    _mailboxChanged.wait(lock, [this]() PX_NO_THREAD_ANALYSIS {
        const bool holdsKeyFrame = _frameMustBeWritten && _frameToWrite.isKeyFrame;
        return !holdsKeyFrame || _isMailboxClosed || _hasNoWriter;
    });
    if (_isMailboxClosed) {
        _writeFrameThatMustBeWritten();
        _frameToWrite = std::move(frame);
        _frameMustBeWritten = true;
        _writeFrameThatMustBeWritten();
        return std::nullopt;
    }
    // Its place in the file is needed when the files are made anew at the end.
    if (_hasNoWriter && _frameMustBeWritten && _frameToWrite.isKeyFrame)
        return frame;
    std::optional<BRFrameToWrite> replaced;
    if (_frameMustBeWritten)
        replaced = std::move(_frameToWrite);
    _frameToWrite = std::move(frame);
    _frameMustBeWritten = true;
    _mailboxChanged.notify_all();
    return replaced;
}

bool BRFrameWriter::isMailboxEmpty()
{
    if (!_frameWritingLock.try_lock())
        return false;
    const bool isEmpty = !_frameMustBeWritten;
    _frameWritingLock.unlock();
    return isEmpty;
}

void BRFrameWriter::stopThread()
{
    _thread.request_stop();
    if (_isRunningThreadedWriteDirtyRects)
        BRLog(BRLogDebug, "Waiting for _isRunningThreadedWriteDirtyRects == NO");
    if (_thread.joinable())
        _thread.join();
}

void BRFrameWriter::closeMailbox()
{
    PXLock lock(_frameWritingLock);
    // The thread's attempt may have left the files of the start without a name or a header, and
    // the last frames would be lost with them.
    if (_hasNoWriter) {
        if (auto streamer = _makeStreamer())
            _frameStreamer = *std::move(streamer);
    }
    _isMailboxClosed = true;
    _mailboxChanged.notify_all();
}

void BRFrameWriter::writeFrameThatMustBeWritten()
{
    PXLock lock(_frameWritingLock);
    _writeFrameThatMustBeWritten();
}

void BRFrameWriter::_writeFrameThatMustBeWritten()
{
    if (!_frameMustBeWritten)
        return;
    _frameMustBeWritten = false;
    if (_hasFailed)
        return;
    if (const auto written = _write(_frameToWrite); !written) {
        _hasFailed = true;
        _failed(written.error());
        return;
    }
    ++_totalFramesWritten;
    _bytesReadWritten = _frameStreamer->bytesReadWritten();
    _wrote();
}

PXExpected<void> BRFrameWriter::_write(const BRFrameToWrite &frame)
{
    if (auto begun = _frameStreamer->writeFrameWithDirtyRects(frame.dirtyRects, frame.timestamp);
        !begun)
        return begun;
    for (std::size_t i = 0; i < frame.dirtyRects.size(); ++i) {
        auto written = _frameStreamer->writeDirtyRect(
            frame.dirtyRects[i], frame.dirtyRectsWithinBuffer[i], frame.buffer);
        if (!written)
            return written;
    }
    return {};
}

PXExpected<void> BRFrameWriter::finish(double duration, std::uint32_t numberOfFrames)
{
    PXLock lock(_frameWritingLock);
    auto patched = _frameStreamer->setDuration(duration);
    if (patched)
        patched = _frameStreamer->setTotalNumberOfFrames(numberOfFrames);
    _frameStreamer.reset();
    return patched;
}
