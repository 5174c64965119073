#include "widgets/PXGradient.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

QBrush PXGradient::_brush(const QRectF &rect, double angle) const
{
    const double radians = angle * M_PI / 180;
    const QPointF direction(std::cos(radians), -std::sin(radians)); // The painter's y is down.
    // Half of what the rectangle measures along that direction.
    const double reach
        = (rect.width() * std::abs(direction.x()) + rect.height() * std::abs(direction.y())) / 2;
    QLinearGradient gradient(rect.center() - direction * reach, rect.center() + direction * reach);
    gradient.setColorAt(0, _begin);
    gradient.setColorAt(1, _end);
    return gradient;
}

void PXGradient::fillRect(QPainter &painter, const QRectF &rect, double angle) const
{
    painter.fillRect(rect, _brush(rect, angle));
}

void PXGradient::fillPath(QPainter &painter, const QPainterPath &path, double angle) const
{
    painter.fillPath(path, _brush(path.boundingRect(), angle));
}
