#pragma once

#include "platform/x11/X11ScreenPlatform.h"
#include "rawmovie/view/BRRawMovieView.h"
#include "tests/framefile/RawCapture.h"
#include "tests/support/WaitUntil.h"

#include <QImage>
#include <QPainter>

#include <algorithm>
#include <memory>
#include <vector>

/// A test with movies of bright rectangles, none of whose pixels is black, and a display that
/// paces them.
class PaintedMovieTest : public RawCaptureTest {
protected:
    static constexpr int kWidth = 200;
    static constexpr int kHeight = 150;

    /// A movie whose frames begin at `times`. The first is all of different colours; in the others
    /// up to three rectangles change.
    std::shared_ptr<BRRawMovie> movieWithFrames(const std::vector<double> &times, double duration)
    {
        const auto streamer = writer({kWidth, kHeight}, BRRawCompression::LZO);
        QImage canvas(kWidth, kHeight, QImage::Format_RGB32);
        pictures.clear();
        changed.clear();
        for (const double time : times) {
            const QRegion changes = pictures.empty() ? paintAll(canvas) : paintSome(canvas);
            pictures.push_back(canvas.copy());
            changed.push_back(changes);
            std::vector<PXRect> rects;
            for (const QRect &rect : changes)
                rects.push_back(PXRectFromPixels({rect.x(), rect.y(), rect.width(), rect.height()},
                                                 {0, 0, kWidth, kHeight}));
            const PXPixelView view{reinterpret_cast<std::byte *>(canvas.scanLine(kHeight - 1)),
                                   -canvas.bytesPerLine(), kWidth, kHeight};
            EXPECT_TRUE(streamer->writeFrameWithDirtyRects(rects, time));
            for (const PXRect &rect : rects)
                EXPECT_TRUE(streamer->writeDirtyRect(rect, rect, view));
        }
        EXPECT_TRUE(streamer->setDuration(duration));
        EXPECT_TRUE(streamer->setTotalNumberOfFrames(static_cast<std::uint32_t>(times.size())));
        return BRRawMovie::withFilePath(path).value();
    }
    /// A frame each `interval` seconds.
    std::shared_ptr<BRRawMovie> movie(int frames, double interval)
    {
        std::vector<double> times(static_cast<std::size_t>(frames));
        std::generate(times.begin(), times.end(), [&, i = 0]() mutable { return i++ * interval; });
        return movieWithFrames(times, frames * interval);
    }

    [[nodiscard]] BRRawMovieView::MakeDisplayLink makeDisplayLink() const
    {
        return [this] { return _platform->makeDisplayLink(); };
    }

    std::vector<QImage> pictures; ///< Of the frames.
    std::vector<QRegion> changed; ///< In each frame.
    std::mt19937 random = repeatableNumbers(41);

private:
    static QRegion paintAll(QImage &canvas)
    {
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x)
                canvas.setPixel(x, y, qRgb(50 + x, 60 + y, 80 + (x ^ y) % 170));
        }
        return canvas.rect();
    }
    QRegion paintSome(QImage &canvas)
    {
        QRegion changes;
        QPainter painter(&canvas);
        for (auto i = random() % 3 + 1; i > 0; --i) {
            const QRect rect(int(random() % (kWidth - 50)), int(random() % (kHeight - 40)),
                             1 + int(random() % 50), 1 + int(random() % 40));
            painter.fillRect(rect, QColor::fromHsv(int(random() % 360), 255, 255));
            changes += rect;
        }
        return changes;
    }

    std::unique_ptr<PXScreenPlatform> _platform = X11ScreenPlatform::open().value();
};
