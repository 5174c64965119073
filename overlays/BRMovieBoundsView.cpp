#include "overlays/BRMovieBoundsView.h"

#include <utility>

BRMovieBoundsView::BRMovieBoundsView(std::unique_ptr<PXDashedFrame> frame,
                                     const PXMainDisplay &mainDisplay)
    : _mainDisplay(mainDisplay), _frame(std::move(frame))
{
}

void BRMovieBoundsView::setScreenSelectionRect(const PXRect &rect)
{
    const PXLock lock(_lock);
    if (std::exchange(_screenSelectionRect, rect) != rect)
        _frame->hide();
}

void BRMovieBoundsView::selectionWasRead(const PXRect &rect)
{
    const PXLock lock(_lock);
    if (_isFront && rect == _screenSelectionRect)
        _show();
}

void BRMovieBoundsView::orderFront()
{
    const PXLock lock(_lock);
    _isFront = true;
    _show();
}

void BRMovieBoundsView::orderOut()
{
    const PXLock lock(_lock);
    _isFront = false;
    _frame->hide();
}

void BRMovieBoundsView::_show()
{
    // Each time anew: the display may have got another place or size.
    const PXPixelRect display = _mainDisplay.bounds();
    _frame->show(PXPixelsFromRect(_screenSelectionRect, display), display);
}
