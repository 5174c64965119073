#include "overlays/BROpenGLView.h"

#include "widgets/BROverlayWindow.h"
#include "widgets/PXPixelPainter.h"

#include <QPaintEvent>

#include <optional>
#include <utility>

namespace {
constexpr int kHalfSide = 20;
}

BROpenGLView::BROpenGLView(BROverlayWindow &window, PXMainDisplay &mainDisplay)
    : _window(window), _mainDisplay(mainDisplay)
{
    _window.setCompositingDidChange([this] {
        _square = {}; // To be decided anew.
        setNeedsDisplay();
    });
}

void BROpenGLView::_setDraws(bool draws)
{
    _draws = draws;
    setNeedsDisplay();
}

void BROpenGLView::setNeedsDisplay()
{
    const PXPixelRect pointer = _window.windowServer().pointerPixel();
    const PXPixelRect display = _mainDisplay.bounds();
    QRect square;
    if (_draws && !pointer.isEmpty())
        square = {pointer.x - display.x - kHalfSide, pointer.y - display.y - kHalfSide,
                  2 * kHalfSide, 2 * kHalfSide};
    const QRect before = std::exchange(_square, square);
    if (before == square)
        return;
    // Where it is not, a compositor is to have nothing to blend.
    const QRegion shape = _window.isCompositing() && !square.isNull()
        ? QRegion(PXPixels::blocksAround(square))
        : QRegion(square);
    if (std::exchange(_shape, shape) != shape)
        _window.setShape(shape);
    PXPixels::update(*this, QRegion(before) | square);
}

void BROpenGLView::paintEvent(QPaintEvent *event)
{
    PXPixelPainter painter(this);
    if (_window.isCompositing())
        painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(PXPixels::pixelRect(event->rect(), *this), Qt::transparent);
    painter.fillRect(_square, Qt::red);
}
