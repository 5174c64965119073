#include "bench/rawmovie/Captures.h"

#include "bench/export/OwnExport.h"
#include "bench/rawmovie/DeskWork.h"
#include "capture/BRDirtyRects.h"
#include "capture/framefile/BRFrameStreamer.h"

#include <QDir>
#include <QFile>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// When the recorder makes one: after more than so many grabs and so much time.
constexpr int kGrabsBetweenKeyFrames = 30;
constexpr double kTimeBetweenKeyFrames = 3.0;

[[noreturn]] void fail(const PXError &error)
{
    (void)std::fprintf(stderr, "%s\n", qUtf8Printable(PXErrorLine(error)));
    std::exit(1);
}

PXExpected<void> writeFrame(BRFrameStreamer &streamer, const std::vector<PXRect> &rects,
                            double time, QImage &canvas)
{
    const PXPixelView view{reinterpret_cast<std::byte *>(canvas.scanLine(canvas.height() - 1)),
                           -canvas.bytesPerLine(), canvas.width(), canvas.height()};
    auto written = streamer.writeFrameWithDirtyRects(rects, time);
    for (const PXRect &rect : rects) {
        if (written)
            written = streamer.writeDirtyRect(rect, rect, view);
    }
    return written;
}

PXExpected<void> recordDeskWork(const QString &path, std::uint32_t frames)
{
    constexpr PXRect kAll{0, 0, DeskWork::kWidth, DeskWork::kHeight};
    auto streamer = BRFrameStreamer::withFilePathForWriting(path, {kAll.width, kAll.height},
                                                            BRRawCompression::LZO, 0);
    if (!streamer)
        return PXFail(streamer.error());
    DeskWork work;
    const auto timeOf = [](std::uint32_t frame) {
        return static_cast<double>(frame) / DeskWork::kFramesPerSecond;
    };
    std::uint32_t keyFrame = 0;
    PXExpected<void> written;
    for (std::uint32_t i = 0; i < frames && written; ++i) {
        std::vector<PXRect> rects;
        for (const PXPixelRect &changed : work.paintNextFrame())
            rects.push_back(PXRectFromPixels(changed, {0, 0, DeskWork::kWidth, DeskWork::kHeight}));
        if (i == 0
            || (i - keyFrame > kGrabsBetweenKeyFrames
                && timeOf(i) - timeOf(keyFrame) > kTimeBetweenKeyFrames)) {
            keyFrame = i;
            rects = {kAll};
        }
        written = writeFrame(**streamer, BRMergeDirtyRects(rects, kAll), timeOf(i), work.canvas());
    }
    return written.and_then([&] { return (*streamer)->setDuration(timeOf(frames)); }).and_then([&] {
        return (*streamer)->setTotalNumberOfFrames(frames);
    });
}

} // namespace

Captures::Captures(const QString &folder) : _folder(folder)
{
    QDir().mkpath(folder);
}

void Captures::record(const QString &path, std::uint32_t frames)
{
    if (const auto recorded = recordDeskWork(path, frames); !recorded)
        fail(recorded.error());
}

QString Captures::capture(int minutes) const
{
    QString path = _folder + u"/desk-%1-min"_s.arg(minutes);
    if (QFile::exists(path))
        return path;
    (void)std::fprintf(stderr, "making %s\n", qUtf8Printable(path));
    const QString unfinished = path + u".unfinished"_s;
    const auto frames = static_cast<std::uint32_t>(minutes * DeskWork::kFramesPerMinute);
    record(unfinished, frames);
    QFile::remove(path + u".index"_s);
    QFile::rename(unfinished + u".index"_s, path + u".index"_s);
    QFile::rename(unfinished, path);
    return path;
}

QString Captures::movie(int minutes) const
{
    QString path = _folder + u"/desk-%1-min.mov"_s.arg(minutes);
    if (QFile::exists(path))
        return path;
    const QString capture = this->capture(minutes);
    (void)std::fprintf(stderr, "making %s\n", qUtf8Printable(path));
    const QString unfinished = path + u".unfinished"_s;
    exportWithUs(capture, unfinished, PXEncoderSpeed::Medium);
    QFile::rename(unfinished, path);
    return path;
}
