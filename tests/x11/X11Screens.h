#pragma once

#include "platform/x11/X11ScreenPlatform.h"
#include "tests/support/ValueOf.h"
#include "tests/support/VirtualDisplay.h"

#include <QImage>

#include <cstring>
#include <memory>
#include <random>
#include <span>

/// The same numbers in each run, so that a failure can be looked at again.
inline std::mt19937 repeatable(unsigned seed)
{
    return std::mt19937(seed);
}

inline std::unique_ptr<PXScreenPlatform> openScreen(const VirtualDisplay &display,
                                                    X11PixelWay way = X11PixelWay::Best)
{
    return valueOf(X11ScreenPlatform::open(display.name(), way));
}

/// A picture of the screen that is kept up to date by reading rectangles.
class Canvas final {
public:
    Canvas(PXScreenPlatform &screen, const QSize &size, QRgb color)
        : _reader(valueOf(screen.makeFrameBufferReader())),
          _buffer(valueOf(_reader->makeBuffer(size.width(), size.height()))),
          _image(size, QImage::Format_RGB32)
    {
        _image.fill(color);
    }

    PXExpected<void> read(std::span<const PXPixelRect> rects)
    {
        auto view = _reader->read(rects, *_buffer);
        if (!view)
            return PXFail(std::move(view).error());
        PXPixelRect area;
        for (const PXPixelRect &rect : rects)
            area = PXUnion(area, rect);
        for (const PXPixelRect &rect : rects)
            for (int y = rect.y; y < rect.y + rect.height; ++y)
                _copyRow(*view, area, rect, y);
        return {};
    }

    /// All that was read; every pixel's top byte is 255.
    [[nodiscard]] const QImage &image() const { return _image; }

private:
    void _copyRow(const PXPixelView &view, const PXPixelRect &area, const PXPixelRect &rect, int y)
    {
        for (int x = rect.x; x < rect.x + rect.width; ++x) {
            QRgb pixel = 0;
            std::memcpy(&pixel, view.pixel(x - area.x, area.y + area.height - 1 - y), 4);
            if (_image.rect().contains(x, y))
                _image.setPixel(x, y, pixel | 0xFF000000);
        }
    }

    std::unique_ptr<PXFrameBufferReader> _reader;
    std::unique_ptr<PXPixelBuffer> _buffer;
    QImage _image;
};
