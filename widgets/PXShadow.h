#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>

#include <functional>

class QPainter;
class QRectF;

/// A soft shadow behind what is drawn. Main thread.
class PXShadow final {
public:
    /// `blurRadius` is twice the standard deviation of the Gaussian that the shape is blurred with,
    /// in the painter's units; `offset` has y up, as all of the screen's coordinates.
    PXShadow(const QColor &color, double blurRadius, const QPointF &offset)
        : _color(color), _blurRadius(blurRadius), _offset(offset)
    {
    }

    /// What `draw` draws inside `bounds`, with its shadow behind it. The painter is not scaled.
    void draw(QPainter &painter, const QRectF &bounds,
              const std::function<void(QPainter &)> &draw) const;

    /// How far beyond a shape its shadow reaches, in whole units.
    [[nodiscard]] int reach() const;

    /// How much of a half plane's shadow is left `distance` units beyond its edge, 0 to 1: the
    /// Gaussian's integral. Negative distances lie inside.
    [[nodiscard]] double coverageAt(double distance) const;

private:
    [[nodiscard]] QImage _shadowOf(const QImage &shape) const;

    QColor _color;
    double _blurRadius;
    QPointF _offset;
};
