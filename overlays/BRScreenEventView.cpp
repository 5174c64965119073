#include "overlays/BRScreenEventView.h"

#include "foundation/PXDefaults.h"
#include "widgets/BROverlayWindow.h"
#include "widgets/PXPixelPainter.h"
#include "widgets/PXShadow.h"

#include <QBitmap>
#include <QPaintEvent>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr double kRedrawInterval = 1.0 / 30;
constexpr float kHeldDiameter = 8;
constexpr float kGrowth = 20;
constexpr double kLineWidth = 3;
constexpr int kFadingSteps = 4; ///< Where the desktop cannot blend.

PXShadow markShadow()
{
    return {Qt::black, 8, {4, -4}};
}

QColor fillColor(bool isRight)
{
    const auto color = PXDefaults::standardUserDefaults().colorValue(
        isRight ? u"rightMouseClickFillColor"_s : u"mouseClickFillColor"_s);
    return color ? PXColorForPainting(*color) : QColor(Qt::white);
}

/// The pixels of a disc, as many of each four as are left after `progress`: the rows and columns of
/// a two by two pattern, in an order that keeps what is left apart.
QRegion discWithHoles(const QRectF &disc, float progress)
{
    constexpr int kOrder[2][2] = {{0, 2}, {3, 1}};
    const int left = static_cast<int>(std::ceil((1 - progress) * kFadingSteps));
    const QRect place = disc.toAlignedRect();
    QBitmap bitmap(place.size());
    bitmap.clear();
    QPainter painter(&bitmap);
    painter.translate(-place.topLeft());
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::color1);
    painter.drawEllipse(disc);
    painter.resetTransform();
    painter.setPen(Qt::color0);
    for (int y = 0; left < kFadingSteps && y < place.height(); ++y)
        for (int x = 0; x < place.width(); ++x)
            if (kOrder[y % 2][x % 2] >= left)
                painter.drawPoint(x, y);
    painter.end();
    return QRegion(bitmap).translated(place.topLeft());
}

} // namespace

BRScreenEventView::BRScreenEventView(BROverlayWindow &window, PXMainDisplay &mainDisplay)
    : _window(window), _mainDisplay(mainDisplay)
{
    _window.setShape(QRegion());
    _window.setCompositingDidChange([this] { _marksChanged(); });
}

void BRScreenEventView::showMouseEventAtPoint(BRMouseEventType eventType, PXPoint point)
{
    if (eventType == BRMouseEventType::LeftMouseDown)
        mDrawLeftMouseDown = true;
    if (eventType == BRMouseEventType::RightMouseDown)
        mDrawRightMouseDown = true;
    switch (eventType) {
    case BRMouseEventType::LeftMouseDown:
    case BRMouseEventType::RightMouseDown:
    case BRMouseEventType::LeftMouseDragged:
    case BRMouseEventType::RightMouseDragged:
        mMouseLocation = point;
        break;
    case BRMouseEventType::LeftMouseUp:
    case BRMouseEventType::RightMouseUp:
        mDrawLeftMouseDown = mDrawRightMouseDown = false;
        mAnimations.push_back(BRScreenEventAnimation::eventAnimationWithEventType(
            static_cast<BRScreenEventType>(eventType), point));
        if (!mAnimationTimer.isValid())
            mAnimationTimer.scheduleTimerWithTimeInterval(kRedrawInterval,
                                                          [this](PXTimerTarget &) { redraw(); });
        break;
    }
    _marksChanged();
}

void BRScreenEventView::clear()
{
    mAnimations.clear();
    mAnimationTimer.invalidate();
    mDrawLeftMouseDown = mDrawRightMouseDown = false;
    _marksChanged();
}

void BRScreenEventView::redraw()
{
    std::erase_if(mAnimations, [](const auto &animation) { return animation.isDone(); });
    if (mAnimations.empty())
        mAnimationTimer.invalidate();
    _marksChanged();
}

QRectF BRScreenEventView::_circleAt(PXPoint location, float progress) const
{
    const double diameter = static_cast<double>(progress * kGrowth + kHeldDiameter);
    const double x = static_cast<double>(location.x) - std::floor(diameter / 2);
    const double y = static_cast<double>(location.y) - std::floor(diameter / 2);
    return {x, _window.frame().height - y - diameter, diameter, diameter};
}

QRect BRScreenEventView::_surroundingsOf(PXPoint location, float progress) const
{
    const int margin = markShadow().reach() + static_cast<int>(std::ceil(kLineWidth / 2));
    return _circleAt(location, progress).toAlignedRect().adjusted(-margin, -margin, margin, margin);
}

/// The mark of a held button is under the pointer wherever that has got to meanwhile.
void BRScreenEventView::_followPointer()
{
    const PXPixelRect pointer = _window.windowServer().pointerPixel();
    if (_isHeld() && !pointer.isEmpty())
        mMouseLocation = PXPointFromPixels(pointer.x, pointer.y, _mainDisplay.bounds());
}

/// Has all marks painted anew, and the window cut to what they need.
void BRScreenEventView::_marksChanged()
{
    _followPointer();
    const bool isCompositing = _window.isCompositing();
    QRegion shape;
    QRegion marks;
    const auto add = [&](PXPoint location, float progress, float lastProgress) {
        const QRect surroundings = _surroundingsOf(location, lastProgress);
        const double half = kLineWidth / 2;
        marks += surroundings;
        shape += isCompositing
            ? QRegion(PXPixels::blocksAround(surroundings))
            : discWithHoles(_circleAt(location, progress).adjusted(-half, -half, half, half),
                            progress);
    };
    for (const BRScreenEventAnimation &animation : mAnimations)
        if (!animation.isDone())
            add(animation.eventLocation(), animation.progress(), 1);
    if (_isHeld())
        add(mMouseLocation, 0, 0);
    if (std::exchange(_shape, shape) != shape)
        _window.setShape(shape);
    PXPixels::update(*this, marks | _painted);
    _painted = marks;
}

void BRScreenEventView::paintEvent(QPaintEvent *)
{
    PXPixelPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing, _window.isCompositing());
    for (const BRScreenEventAnimation &animation : mAnimations)
        if (!animation.isDone())
            drawMouseClick(painter, animation,
                           animation.eventType() == BRScreenEventType::RightMouseUp);
    if (_isHeld())
        drawMouseDownAtLocation(painter, mMouseLocation, 0, mDrawRightMouseDown);
}

void BRScreenEventView::drawMouseClick(QPainter &painter, const BRScreenEventAnimation &animation,
                                       bool isRight)
{
    drawMouseDownAtLocation(painter, animation.eventLocation(), animation.progress(), isRight);
}

void BRScreenEventView::drawMouseDownAtLocation(QPainter &painter, PXPoint location, float progress,
                                                bool isRight)
{
    const QRectF circle = _circleAt(location, progress);
    const float alpha = _window.isCompositing() ? 1 - std::clamp(progress, 0.0F, 1.0F) : 1;
    QColor fill = fillColor(isRight);
    fill.setAlphaF(alpha);
    QColor line = Qt::white;
    line.setAlphaF(alpha);
    const auto drawFill = [&](QPainter &onto) {
        onto.setPen(Qt::NoPen);
        onto.setBrush(fill);
        onto.drawEllipse(circle);
    };
    const auto drawLine = [&](QPainter &onto) {
        onto.setPen(QPen(line, kLineWidth));
        onto.setBrush(Qt::NoBrush);
        onto.drawEllipse(circle);
    };
    if (!_window.isCompositing()) {
        drawFill(painter);
        drawLine(painter);
        return;
    }
    const double half = kLineWidth / 2;
    markShadow().draw(painter, circle, drawFill);
    markShadow().draw(painter, circle.adjusted(-half, -half, half, half), drawLine);
}
