#include "overlays/BRScreenSelectionView.h"

#include "foundation/PXDefaults.h"
#include "widgets/PXPixelPainter.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace BRSelectionGeometry;

namespace {

/// A pixel's point is its upper left corner: that of the lowest row inside is above the rectangle's
/// lower edge, that of the highest row on its upper one.
bool contains(const PXRect &rect, PXPoint point)
{
    return point.x >= rect.x && point.x < rect.maxX() && point.y > rect.y && point.y <= rect.maxY();
}

} // namespace

BRScreenSelectionView::BRScreenSelectionView(PXSize frame, QWidget *parent)
    : QWidget(parent),
      _frame(frame),
      mHandleGradient(PXGradient::gradientWithBeginningColor(QColor::fromRgbF(0.8F, 0.8F, 0.8F),
                                                             QColor::fromRgbF(0.5F, 0.5F, 0.5F)))
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAccessibleName(qtTrId("BRScreenSelectionViewName"));
}

void BRScreenSelectionView::setSelectionAspect(PXSize aspect)
{
    _selectionAspectWidth = aspect.width;
    _selectionAspectHeight = aspect.height;
}

int BRScreenSelectionView::selectionSizing() const
{
    return PXDefaults::standardUserDefaults().intValue(u"screenSelectionSizing"_s);
}

std::optional<PXSize> BRScreenSelectionView::_fixedAspect() const
{
    const PXSize aspect = selectionAspect();
    if (selectionSizing() != 1 || !(aspect.width > 0 && aspect.height > 0))
        return std::nullopt;
    return aspect;
}

void BRScreenSelectionView::setSelectionRect(const PXRect &rect)
{
    const PXRect before = _chosenRect;
    const QRegion boxBefore = _infoBox().box;
    _chosenRect = constrained(rect, _frame, _fixedAspect());
    if (_chosenRect != before) {
        const QRegion inside = QRegion(_pixelsOf(before)) ^ QRegion(_pixelsOf(_chosenRect));
        PXPixels::update(
            *this, inside + _looksOf(before) + _looksOf(_chosenRect) + boxBefore + _infoBox().box);
        _describe();
    }
    if (delegate != nullptr)
        delegate->screenSelectionViewRectChanged(_chosenRect);
}

void BRScreenSelectionView::resetSelectionRect()
{
    const int sizing = selectionSizing();
    if (sizing == 0)
        setSelectionRect(_chosenRect);
    else if (const auto aspect = _fixedAspect())
        setSelectionRect(withHeightOfAspect(_chosenRect, *aspect));
}

void BRScreenSelectionView::_describe()
{
    setAccessibleDescription(qtTrId("BRScreenSelectionViewDescription")
                                 .arg(PXClampToInt(static_cast<double>(_chosenRect.width)))
                                 .arg(PXClampToInt(static_cast<double>(_chosenRect.height)))
                                 .arg(PXClampToInt(static_cast<double>(_chosenRect.x)))
                                 .arg(PXClampToInt(static_cast<double>(_chosenRect.y))));
}

/// Of the pixel under the pointer; on another display, the nearest of this one.
PXPoint BRScreenSelectionView::_pointOf(const QMouseEvent &event) const
{
    const QPoint pixel = PXPixels::position(event, *this);
    return {std::clamp(static_cast<float>(pixel.x()), 0.0F, _frame.width - 1),
            std::clamp(_frame.height - static_cast<float>(pixel.y()), 1.0F, _frame.height)};
}

/// The pointer cannot stand behind the display's last column and row: what is dragged there is to
/// reach the edge itself.
PXPoint BRScreenSelectionView::_reachingEdges(PXPoint point) const
{
    return {point.x >= _frame.width - 1 ? _frame.width : point.x, point.y <= 1 ? 0 : point.y};
}

void BRScreenSelectionView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    if (event->button() != Qt::LeftButton)
        return;
    const PXPoint point = _pointOf(*event);
    _initialPoint = _lastPoint = _reachingEdges(point);
    _mode = Idle;
    if ((event->modifiers() & Qt::AltModifier) == 0)
        _grab(point);
    else if (const auto window = delegate != nullptr
                 ? delegate->screenSelectionViewWindowFrameAt(point)
                 : std::nullopt)
        setSelectionRect(*window);
    _resetCursorRects(point);
}

void BRScreenSelectionView::_grab(PXPoint point)
{
    const auto *const handle
        = std::find_if(kHandlesInTestOrder.begin(), kHandlesInTestOrder.end(),
                       [&](int tested) { return contains(rectForGrabHandle(tested), point); });
    if (handle != kHandlesInTestOrder.end()) {
        _grabbedHandle = *handle;
        _mode = isCorner(*handle) ? SizingFromAnchor : DraggingEdge;
        if (isCorner(*handle))
            _initialPoint = cornerOpposite(*handle, _chosenRect);
    } else if (contains(_chosenRect, point)) {
        _mode = Moving;
        _lastPoint = point;
    } else {
        _grabbedHandle = kNoHandle;
        _mode = SizingFromAnchor;
    }
}

void BRScreenSelectionView::mouseMoveEvent(QMouseEvent *event)
{
    const PXPoint pixel = _pointOf(*event);
    const PXPoint point = _mode == Moving ? pixel : _reachingEdges(pixel);
    const PXPoint distance = {point.x - _lastPoint.x, point.y - _lastPoint.y};
    PXRect rect = _chosenRect;
    switch (_mode) {
    case Idle:
        _resetCursorRects(pixel);
        return;
    case Moving:
        rect.x += distance.x;
        rect.y += distance.y;
        break;
    case SizingFromAnchor:
        rect = spanning(_initialPoint, point, _fixedAspect());
        break;
    case DraggingEdge: {
        const EdgeDrag drag = draggingEdge(rect, _grabbedHandle, distance, _fixedAspect());
        rect = drag.rect;
        _grabbedHandle = drag.handle;
        break;
    }
    }
    _lastPoint = point;
    setSelectionRect(rect);
    _resetCursorRects(pixel);
}

void BRScreenSelectionView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    _mode = Idle;
    _resetCursorRects(_pointOf(*event));
}

void BRScreenSelectionView::_resetCursorRects(PXPoint point)
{
    const bool isOnHandle = _mode == Idle
        && std::any_of(kHandlesInTestOrder.begin(), kHandlesInTestOrder.end(),
                       [&](int handle) { return contains(rectForGrabHandle(handle), point); });
    Qt::CursorShape shape = Qt::ArrowCursor;
    if (isOnHandle)
        shape = Qt::PointingHandCursor;
    else if (_mode == DraggingEdge || _mode == Moving)
        shape = Qt::ClosedHandCursor;
    else if (contains(_chosenRect, point))
        shape = Qt::OpenHandCursor;
    if (cursor().shape() != shape)
        setCursor(shape);
}

void BRScreenSelectionView::keyPressEvent(QKeyEvent *event)
{
    const auto move = [this](float x, float y) {
        setSelectionRect(
            {_chosenRect.x + x, _chosenRect.y + y, _chosenRect.width, _chosenRect.height});
    };
    const auto end = [this](int action) {
        if (delegate != nullptr)
            delegate->screenSelectionViewDidEnd(action, _chosenRect);
    };
    switch (event->key()) {
    case Qt::Key_Escape:
        end(0);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        end(1);
        break;
    case Qt::Key_Left:
        move(-1, 0);
        break;
    case Qt::Key_Right:
        move(1, 0);
        break;
    case Qt::Key_Down:
        move(0, -1);
        break;
    case Qt::Key_Up:
        move(0, 1);
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}
