#include "app/BRCountdownView.h"

#include "foundation/PXClock.h"
#include "widgets/BROverlayWindow.h"
#include "widgets/PXPixelPainter.h"

#include <QBitmap>
#include <QFontMetricsF>
#include <QPaintEvent>
#include <QPainterPath>

#include <array>
#include <cmath>
#include <numbers>

namespace {

constexpr double kRedrawInterval = 1.0 / 30;
constexpr double kTurnDuration = 1.0;
constexpr double kHandWidth = 12;
constexpr double kLineWidth = 6;
constexpr double kNumberHeight = 0.2; ///< Of the display's.
constexpr double kOutline = 2; ///< Around all, where the desktop cannot blend.
constexpr double kNumberOutline = 4;
constexpr double kStepOfHand = 64; ///< It is painted again in rectangles that are that long.

struct Colors {
    QColor hand;
    QColor dial;
    QColor number;
};
const Colors kBlended
    = {QColor::fromRgbF(0.9F, 0.9F, 0.9F, 0.2F), QColor::fromRgbF(1, 1, 1, 0.4F), Qt::white};
const Colors kCut
    = {QColor::fromRgbF(0.5F, 0.5F, 0.5F), QColor::fromRgbF(0.8F, 0.8F, 0.8F), Qt::white};

/// Pixels of the window: its right and lower end, and its centre.
struct Face {
    explicit Face(const BROverlayWindow &window)
        : width(window.frame().width), height(window.frame().height), centre(width / 2, height / 2)
    {
    }

    [[nodiscard]] QPointF tipOfHand(double turn) const
    {
        const double angle = std::numbers::pi / 2 - 2 * std::numbers::pi * turn;
        return {centre.x() + std::cos(angle) * width / 2,
                centre.y() - std::sin(angle) * height / 2};
    }
    [[nodiscard]] std::array<QPainterPath, 4> dial() const
    {
        std::array<QPainterPath, 4> paths;
        paths[0].moveTo(centre.x(), 0);
        paths[0].lineTo(centre.x(), height);
        paths[1].moveTo(0, centre.y());
        paths[1].lineTo(width, centre.y());
        paths[2].addEllipse(centre, 0.6 * width / 2, 0.6 * height / 2);
        paths[3].addEllipse(centre, 0.4 * width / 2, 0.4 * height / 2);
        return paths;
    }
    [[nodiscard]] QPainterPath number(int count, QFont font) const
    {
        font.setBold(true);
        font.setPixelSize(std::max(static_cast<int>(std::lround(kNumberHeight * height)), 1));
        const QFontMetricsF metrics(font);
        const QString text = QString::number(count);
        QPainterPath path;
        path.addText(centre.x() - metrics.horizontalAdvance(text) / 2,
                     centre.y() - metrics.height() / 2 + metrics.ascent(), font, text);
        return path;
    }
    /// The hand and what its edges blend into.
    [[nodiscard]] QRegion regionOfHand(double turn) const
    {
        const QPointF way = tipOfHand(turn) - centre;
        const double length = std::hypot(way.x(), way.y());
        const int steps = static_cast<int>(std::ceil(length / kStepOfHand));
        const double margin = kHandWidth / 2 + kOutline + 1;
        QRegion region;
        for (int i = 0; i < steps; ++i)
            region += QRectF(centre + way * i / steps, centre + way * (i + 1) / steps)
                          .normalized()
                          .adjusted(-margin, -margin, margin, margin)
                          .toAlignedRect();
        return region;
    }
    /// Dial and number with their outlines.
    [[nodiscard]] QRegion shapeOfDial(int count, const QFont &font) const
    {
        QBitmap bitmap(static_cast<int>(width), static_cast<int>(height));
        bitmap.clear();
        QPainter painter(&bitmap);
        painter.setBrush(Qt::NoBrush); // At first a bitmap's clears.
        painter.setPen(QPen(Qt::color1, kLineWidth + 2 * kOutline));
        for (const QPainterPath &path : dial())
            painter.drawPath(path);
        painter.setPen(
            QPen(Qt::color1, 2 * kNumberOutline, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::color1);
        painter.drawPath(number(count, font));
        painter.end();
        return QRegion(bitmap);
    }
    [[nodiscard]] QRegion shapeOfHand(double turn) const
    {
        const QPointF way = tipOfHand(turn) - centre;
        const QPointF unit = way / std::hypot(way.x(), way.y());
        const QPointF side = QPointF(-unit.y(), unit.x()) * (kHandWidth / 2 + kOutline);
        const QPointF tip = centre + way + unit * kOutline;
        const QPolygonF hand({centre + side, tip + side, tip - side, centre - side});
        return QRegion(hand.toPolygon());
    }

    double width;
    double height;
    QPointF centre;
};

} // namespace

BRCountdownView::BRCountdownView(BROverlayWindow &window) : _window(window)
{
    _window.setCompositingDidChange([this] { _followCompositing(); });
}

void BRCountdownView::setTimerCount(int count)
{
    _timerCount = count;
    setAccessibleName(qtTrId("BRCountdownName").arg(count));
    _time = PXTimeIntervalSinceReferenceDate();
    _turn = 0;
    _countdownTimer.invalidate();
    if (count > 0)
        _countdownTimer.scheduleTimerWithTimeInterval(kRedrawInterval,
                                                      [this](PXTimerTarget &) { spin(); });
    _followCompositing();
}

void BRCountdownView::spin()
{
    const double turn = PXTimeIntervalSinceReferenceDate() - _time;
    const Face face(_window);
    PXPixels::update(*this, face.regionOfHand(_turn) + face.regionOfHand(turn));
    _turn = turn;
    _cutWindow();
    if (turn > kTurnDuration)
        _countdownTimer.invalidate();
}

void BRCountdownView::_followCompositing()
{
    _isCut = !_window.isCompositing();
    if (_isCut)
        _dialShape = Face(_window).shapeOfDial(_timerCount, font());
    _cutWindow();
    update();
}

void BRCountdownView::_cutWindow()
{
    if (_isCut)
        _window.setShape(_dialShape + Face(_window).shapeOfHand(_turn));
    else
        _window.setShape(std::nullopt);
}

void BRCountdownView::paintEvent(QPaintEvent *)
{
    const Face face(_window);
    const Colors &colors = _isCut ? kCut : kBlended;
    PXPixelPainter painter(this);
    if (_isCut)
        painter.fillRect(QRectF(0, 0, face.width, face.height), Qt::black);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colors.hand, kHandWidth, Qt::SolidLine, Qt::FlatCap));
    painter.drawLine(face.centre, face.tipOfHand(_turn));
    painter.setPen(QPen(colors.dial, kLineWidth, Qt::SolidLine, Qt::FlatCap));
    for (const QPainterPath &path : face.dial())
        painter.drawPath(path);
    painter.fillPath(face.number(_timerCount, font()), colors.number);
}
