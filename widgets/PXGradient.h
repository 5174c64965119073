#pragma once

#include <QColor>

class QPainter;
class QPainterPath;
class QRectF;

/// A smooth run from one colour to another. Main thread.
class PXGradient final {
public:
    static PXGradient gradientWithBeginningColor(const QColor &begin, const QColor &end)
    {
        return {begin, end};
    }

    /// Fills `rect` along `angle`: degrees, 0 from left to right, counted against the clock, so
    /// that 90 runs upwards and 270 downwards. The colours themselves stand in the corners (or on
    /// the edges) that lie farthest back and farthest on.
    void fillRect(QPainter &painter, const QRectF &rect, double angle) const;
    /// The same over the path's bounds, but only inside it.
    void fillPath(QPainter &painter, const QPainterPath &path, double angle) const;

private:
    PXGradient(const QColor &begin, const QColor &end) : _begin(begin), _end(end) { }
    [[nodiscard]] class QBrush _brush(const QRectF &rect, double angle) const;

    QColor _begin;
    QColor _end;
};
