#pragma once

#include "foundation/PXColor.h"

#include <QColor>
#include <QPainter>
#include <QRegion>
#include <QWidget>

class QMouseEvent;

/// Paints a widget in pixels of the screen, whatever the toolkit's scale: one unit is one pixel,
/// the origin is the widget's upper left corner.
class PXPixelPainter final : public QPainter {
public:
    explicit PXPixelPainter(QWidget *widget);
};

/// Between a widget's own units and the screen's pixels in it.
namespace PXPixels {

/// The smallest of the widget's rectangles that covers those pixels.
QRect widgetRect(const QRect &pixels, const QWidget &widget);
/// The pixels that a rectangle of the widget covers.
QRect pixelRect(const QRect &rect, const QWidget &widget);
/// Has those pixels painted again.
void update(QWidget &widget, const QRegion &pixels);
/// What there must be of a window for something that moves on it, in blocks of 128 pixels: to cut a
/// window anew costs the desktop more than to paint it, and so is seldom needed.
QRect blocksAround(const QRect &pixels);
/// The pixel under the pointer.
QPoint position(const QMouseEvent &event, const QWidget &widget);

} // namespace PXPixels

/// The colour as the toolkit has it.
QColor PXColorForPainting(const PXColor &color);
