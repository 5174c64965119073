#include "capture/BRCameraPlacement.h"

#include <algorithm>
#include <cmath>

namespace {

PXRect movedInside(PXRect rect, PXSize screen)
{
    rect.x = std::max(rect.x, 0.0F);
    rect.y = std::max(rect.y, 0.0F);
    if (rect.maxX() > screen.width)
        rect.x = screen.width - rect.width;
    if (rect.maxY() > screen.height)
        rect.y = screen.height - rect.height;
    return rect;
}

} // namespace

PXRect BRCenterCameraRectAtMouseLocation(PXPoint mouse, PXSize selectionSize, PXSize screen)
{
    const PXRect rect{mouse.x - std::floor(selectionSize.width * 0.5F),
                      mouse.y - std::floor(selectionSize.height * 0.5F),
                      std::min(screen.width, selectionSize.width),
                      std::min(screen.height, selectionSize.height)};
    return movedInside(rect, screen);
}

PXRect BRLazilySetCameraRectWithMouseLocation(PXPoint mouse, const PXRect &current, PXSize screen)
{
    constexpr float kMargin = 0.15F;
    const float marginX = kMargin * current.width;
    const float marginY = kMargin * current.height;
    PXRect rect = current;
    if (mouse.x < rect.x + marginX)
        rect.x = mouse.x - marginX;
    else if (mouse.x > rect.maxX() - marginX)
        rect.x += mouse.x - (rect.maxX() - marginX);
    if (mouse.y < rect.y + marginY)
        rect.y = mouse.y - marginY;
    else if (mouse.y > rect.maxY() - marginY)
        rect.y += mouse.y - (rect.maxY() - marginY);
    return movedInside(rect, screen);
}
