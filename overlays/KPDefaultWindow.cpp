#include "overlays/KPDefaultWindow.h"

#include "foundation/PXDefaults.h"

using namespace Qt::StringLiterals;

KPDefaultWindow::KPDefaultWindow(PXWindowServer &server, const PXPixelRect &contentRect,
                                 Place place)
    : KPBezelWindow(server, contentRect), _place(std::move(place))
{
}

KPKeyboardPosition KPDefaultWindow::fixedPoint() const
{
    const int code = PXDefaults::standardUserDefaults().intValue(u"keyboardEventPosition"_s);
    return KPKeyboardPosition::positionWithCode(code).value_or(KPBezelWindow::fixedPoint());
}

void KPDefaultWindow::resizeFrame(const QSize &size, bool display)
{
    const int bottom = frame().y + frame().height;
    _place({frame().x, bottom - size.height(), size.width(), size.height()}, display);
}
