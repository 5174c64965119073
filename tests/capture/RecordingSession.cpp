#include "tests/capture/RecordingSession.h"

#include "capture/framefile/BRFrameAssembler.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"
#include "platform/x11/X11ScreenPlatform.h"

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {
constexpr int kPatienceMs = 30'000;
const QString kUUID = u"7C0FFEE0-0000-4000-8000-000000000001"_s;
} // namespace

RecordingSession::RecordingSession(const VirtualDisplay &display, BRStatusItem *statusItem,
                                   BRMovieBounds *movieBounds)
{
    auto platform = X11ScreenPlatform::open(display.name());
    if (!platform)
        throw std::runtime_error(PXErrorLine(platform.error()).toStdString());
    _platform = *std::move(platform);
    PXDefaults::standardUserDefaults().setArgumentValue(u"moviesFolderPath"_s, _folder.path());
    _recorder = std::make_unique<BRScreenRecorder>(
        kUUID, static_cast<BRScreenRecorderDelegate *>(this), *_platform, statusItem, movieBounds);
}

RecordingSession::~RecordingSession() = default;

BRScreenRecordingOptions RecordingSession::options() const
{
    const PXPixelRect display = _platform->mainDisplay().bounds();
    BRScreenRecordingOptions options;
    options.screenSelectionRect = PXRectFromPixels(display, display);
    options.screenSelectionSize = options.screenSelectionRect.size();
    options.numberOfFramesPerSecond = 30;
    options.showCursor = true;
    options.videoCompression = 1;
    return options;
}

PXExpected<void> RecordingSession::start(const BRScreenRecordingOptions &options)
{
    return _recorder->startRecording(options);
}

void RecordingSession::stop()
{
    const int before = timesStopped;
    _recorder->stopRecording();
    waitUntil([&] { return timesStopped > before; });
}

void RecordingSession::waitUntil(const std::function<bool()> &isTrue)
{
    const QDeadlineTimer deadline(kPatienceMs);
    QEventLoop loop;
    // Frames arrive in a file, which tells nobody: look often.
    QTimer timer;
    timer.start(5);
    while (!isTrue()) {
        if (deadline.hasExpired())
            throw std::runtime_error("waited in vain");
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    }
}

void RecordingSession::waitForFrames(std::uint32_t count)
{
    waitUntil([&] { return _recorder->totalFramesWritten() >= count; });
}

QString RecordingSession::filePath() const
{
    return _folder.filePath(kUUID + u'/' + kBRCaptureVideoDataName);
}

QVariantMap RecordingSession::info() const
{
    return PXPropertyList::read(_folder.filePath(kUUID + u'/' + kBRMovieInfoName)).value();
}

std::vector<RecordedFrame> RecordingSession::frames() const
{
    auto reader = BRFrameStreamer::withFilePathForReading(filePath(), true);
    if (!reader)
        throw std::runtime_error(PXErrorLine(reader.error()).toStdString());
    BRFrameAssembler assembler(**reader, BRPixelOrder::BGRA);
    std::vector<RecordedFrame> frames;
    while (assembler.readNextFrame().value() == BRFrameAssembler::Result::Frame) {
        const QImage picture(reinterpret_cast<const uchar *>(assembler.picture().data()),
                             assembler.width(), assembler.height(), QImage::Format_RGB32);
        frames.push_back(
            {assembler.timestamp(), assembler.isKeyFrame(), assembler.rects(), picture.copy()});
    }
    return frames;
}
