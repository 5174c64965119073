#include "bench/export/ExportContents.h"

#include "capture/framefile/BRFrameStreamer.h"

#include <QFile>

#include <array>
#include <random>

namespace {

PXPixelRect paintDesktop(QImage &canvas)
{
    canvas.fill(qRgb(40, 60, 90));
    std::mt19937 random(5);
    for (int y = 100; y < 900; y += 14) {
        for (int x = 120; x < 1200; x += 9) {
            if (random() % 5 != 0) {
                const QRgb ink = qRgb(200, static_cast<int>(random() % 256), 200);
                for (int i = 0; i < 20; ++i)
                    canvas.setPixel(x + static_cast<int>(random() % 7),
                                    y + static_cast<int>(random() % 11), ink);
            }
        }
    }
    return {0, 0, kBenchWidth, kBenchHeight};
}

PXPixelRect paintAnimation(QImage &canvas, int frame)
{
    if (frame == 0)
        return paintDesktop(canvas);
    constexpr PXPixelRect rect{700, 400, 640, 360};
    for (int y = 0; y < rect.height; ++y) {
        for (int x = 0; x < rect.width; ++x) {
            canvas.setPixel(
                rect.x + x, rect.y + y,
                qRgb((x + 3 * frame) % 256, (y * 2 + frame) % 256, (x * y / 64 + 5 * frame) % 256));
        }
    }
    return rect;
}

PXPixelRect paintMotion(QImage &canvas, int frame)
{
    for (int y = 0; y < kBenchHeight; ++y) {
        auto *row = reinterpret_cast<QRgb *>(canvas.scanLine(y));
        for (int x = 0; x < kBenchWidth; ++x)
            row[x] = qRgb((x / 2 + 3 * frame) % 256, (y + frame * 2) % 256,
                          ((x ^ y) / 4 + 5 * frame) % 256);
    }
    return {0, 0, kBenchWidth, kBenchHeight};
}

const ExportContent kContents[] = {
    {"animation", 60, 1.0 / 30, paintAnimation},
    {"motion", 60, 1.0 / 30, paintMotion},
    {"still", 2, 600,
     [](QImage &canvas, int frame) {
         return frame == 0 ? paintDesktop(canvas) : paintAnimation(canvas, frame);
     }},
};

} // namespace

std::span<const ExportContent> ExportContent::all()
{
    return kContents;
}

void ExportContent::record(int lengths, const QString &capture, const QString &raw) const
{
    auto streamer = BRFrameStreamer::withFilePathForWriting(capture, {kBenchWidth, kBenchHeight},
                                                            BRRawCompression::LZO, 0)
                        .value();
    QFile pictures(raw);
    if (!raw.isEmpty())
        pictures.open(QIODevice::WriteOnly);
    QImage canvas(kBenchWidth, kBenchHeight, QImage::Format_RGB32);
    const int count = frames * lengths;
    for (int i = 0; i < count; ++i) {
        const PXPixelRect changed = paint(canvas, i);
        const PXRect rect = PXRectFromPixels(changed, {0, 0, kBenchWidth, kBenchHeight});
        const PXPixelView view{reinterpret_cast<std::byte *>(canvas.scanLine(kBenchHeight - 1)),
                               -canvas.bytesPerLine(), kBenchWidth, kBenchHeight};
        (void)streamer->writeFrameWithDirtyRects(std::array{rect}, i * secondsPerFrame);
        (void)streamer->writeDirtyRect(rect, rect, view);
        if (pictures.isOpen())
            pictures.write(reinterpret_cast<const char *>(canvas.constBits()),
                           canvas.sizeInBytes());
    }
    (void)streamer->setDuration(count * secondsPerFrame);
    (void)streamer->setTotalNumberOfFrames(static_cast<std::uint32_t>(count));
}
