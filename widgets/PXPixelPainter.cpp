#include "widgets/PXPixelPainter.h"

#include <QMouseEvent>

#include <cmath>

PXPixelPainter::PXPixelPainter(QWidget *widget) : QPainter(widget)
{
    const double ratio = widget->devicePixelRatioF();
    // Exactly one where nothing is scaled: pictures are then copied row by row.
    if (ratio != 1)
        scale(1 / ratio, 1 / ratio);
}

QRect PXPixels::widgetRect(const QRect &pixels, const QWidget &widget)
{
    const double ratio = widget.devicePixelRatioF();
    if (ratio == 1)
        return pixels;
    return QRectF(pixels.x() / ratio, pixels.y() / ratio, pixels.width() / ratio,
                  pixels.height() / ratio)
        .toAlignedRect();
}

QRect PXPixels::pixelRect(const QRect &rect, const QWidget &widget)
{
    const double ratio = widget.devicePixelRatioF();
    if (ratio == 1)
        return rect;
    return QRectF(rect.x() * ratio, rect.y() * ratio, rect.width() * ratio, rect.height() * ratio)
        .toAlignedRect();
}

void PXPixels::update(QWidget &widget, const QRegion &pixels)
{
    QRegion region;
    for (const QRect &rect : pixels)
        region += widgetRect(rect, widget);
    widget.update(region);
}

QRect PXPixels::blocksAround(const QRect &pixels)
{
    constexpr int kBlock = 128;
    const auto down = [](int value) { return value & ~(kBlock - 1); };
    return {QPoint(down(pixels.left()), down(pixels.top())),
            QPoint(down(pixels.right()) + kBlock - 1, down(pixels.bottom()) + kBlock - 1)};
}

QPoint PXPixels::position(const QMouseEvent &event, const QWidget &widget)
{
    // The toolkit rounds the position in a widget to whole units of its own, but not that in the
    // window.
    const QPointF corner = widget.mapTo(widget.window(), QPoint(0, 0));
    const QPointF position = (event.scenePosition() - corner) * widget.devicePixelRatioF();
    return {static_cast<int>(std::lround(position.x())),
            static_cast<int>(std::lround(position.y()))};
}

QColor PXColorForPainting(const PXColor &color)
{
    return QColor::fromRgbF(color.red(), color.green(), color.blue(), color.alpha());
}
