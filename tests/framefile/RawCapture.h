#pragma once

#include "capture/framefile/BRFrameAssembler.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

/// The same numbers in every run, so that a failure can be repeated.
inline std::mt19937 repeatableNumbers(std::uint32_t seed)
{
    return std::mt19937(seed);
}

/// Bytes from hexadecimal digits; spaces between them are for the reader.
inline QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

/// A picture of words with alpha in the top byte, top row first.
using Picture = std::vector<std::uint32_t>;

/// A test with a folder of its own, and helpers for raw captures in it.
class RawCaptureTest : public testing::Test {
protected:
    QTemporaryDir folder;
    QString path = folder.filePath(QStringLiteral("frames"));
    QString indexPath = path + QStringLiteral(".index");

    std::unique_ptr<BRFrameStreamer> writer(PXSize size, BRRawCompression compression,
                                            int lossyLevel = 0) const
    {
        auto made = BRFrameStreamer::withFilePathForWriting(path, size, compression, lossyLevel);
        if (!made)
            throw std::runtime_error(made.error().description.toStdString());
        return *std::move(made);
    }
    std::unique_ptr<BRFrameStreamer> reader(bool isUpsideDown = false) const
    {
        auto made = BRFrameStreamer::withFilePathForReading(path, isUpsideDown);
        if (!made)
            throw std::runtime_error(made.error().description.toStdString());
        return *std::move(made);
    }

    struct Frame {
        double timestamp;
        bool isKeyFrame;
        std::vector<PXRect> rects;
        Picture picture;
    };
    static std::vector<Frame> framesOf(BRFrameStreamer &streamer, bool *wasCutShort = nullptr,
                                       BRPixelOrder order = BRPixelOrder::BGRA)
    {
        std::vector<Frame> frames;
        BRFrameAssembler assembler(streamer, order);
        while (assembler.readNextFrame() == BRFrameAssembler::Result::Frame) {
            Picture picture(assembler.picture().size() / 4);
            std::memcpy(picture.data(), assembler.picture().data(), assembler.picture().size());
            frames.push_back({assembler.timestamp(), assembler.isKeyFrame(), assembler.rects(),
                              std::move(picture)});
        }
        if (wasCutShort != nullptr)
            *wasCutShort = assembler.wasCutShort();
        return frames;
    }
};

/// What a recorder does, on random pictures: a key frame, then frames of a few rectangles.
class RandomRecording {
public:
    RandomRecording(std::uint32_t seed, int pixelsWide, int pixelsHigh)
        : random(seed),
          width(pixelsWide),
          height(pixelsHigh),
          picture(static_cast<std::size_t>(pixelsWide * pixelsHigh))
    {
    }

    /// Paints a new frame, writes it, and remembers the rectangles and the picture.
    PXExpected<void> writeFrame(BRFrameStreamer &streamer, double timestamp)
    {
        std::vector<PXRect> changed;
        const bool isKeyFrame = timestamp == 0
            || (framesBetweenKeyFrames > 0 && ++_framesSinceKeyFrame >= framesBetweenKeyFrames);
        _framesSinceKeyFrame = isKeyFrame ? 0 : _framesSinceKeyFrame;
        for (int i = isKeyFrame ? 0 : static_cast<int>(random() % 4); i >= 0; --i)
            changed.push_back(isKeyFrame ? PXRect{0, 0, float(width), float(height)}
                                         : randomRect());
        return writeFrame(streamer, timestamp, changed);
    }
    PXExpected<void> writeFrame(BRFrameStreamer &streamer, double timestamp,
                                const std::vector<PXRect> &changed)
    {
        rects = changed;
        for (const PXRect &rect : rects)
            paint(rect);
        // The alpha is whatever the X server left there.
        Picture captured = picture;
        for (std::uint32_t &pixel : captured)
            pixel = (pixel & 0xFFFFFFU) | static_cast<std::uint32_t>(random()) << 24U;
        auto *pixels = reinterpret_cast<std::byte *>(captured.data());
        const std::ptrdiff_t step = std::ptrdiff_t{4} * width;
        const PXPixelView view{pixels + step * (height - 1), -step, width, height};
        auto result = streamer.writeFrameWithDirtyRects(rects, timestamp);
        for (const PXRect &rect : rects) {
            if (result)
                result = streamer.writeDirtyRect(rect, rect, view);
        }
        return result;
    }

    std::mt19937 random;
    int width;
    int height;
    Picture picture;
    std::vector<PXRect> rects;
    int framesBetweenKeyFrames = 0; ///< None but the first where 0.

private:
    PXRect randomRect()
    {
        const int x = static_cast<int>(random()) & 0x7FFF;
        const int y = static_cast<int>(random()) & 0x7FFF;
        const int left = x % width;
        const int lowest = y % height;
        return {float(left), float(lowest), float(1 + int(random() % unsigned(width - left))),
                float(1 + int(random() % unsigned(height - lowest)))};
    }
    void paint(const PXRect &rect)
    {
        std::uint32_t colour = 0xFF000000U;
        for (int y = int(rect.y); y < int(rect.maxY()); ++y) {
            for (int x = int(rect.x); x < int(rect.maxX()); ++x) {
                // No blue: a run of two may lose its second pixel's.
                if (random() % 3 == 0)
                    colour = 0xFF000000U | (static_cast<std::uint32_t>(random()) & 0x0F0F00U);
                picture[std::size_t(height - 1 - y) * std::size_t(width) + std::size_t(x)] = colour;
            }
        }
    }

    int _framesSinceKeyFrame = 0;
};
