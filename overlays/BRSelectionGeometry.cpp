#include "overlays/BRSelectionGeometry.h"

#include <algorithm>
#include <cmath>

namespace {

/// The side that is too long for the aspect follows the other one.
PXSize fitted(PXSize size, PXSize aspect)
{
    if (size.width / size.height > aspect.width / aspect.height)
        size.width = std::round(aspect.width * size.height / aspect.height);
    else
        size.height = std::round(aspect.height * size.width / aspect.width);
    return size;
}

} // namespace

PXRect BRSelectionGeometry::placeOfHandle(int handle, const PXRect &selection)
{
    const float left = selection.x - 5;
    const float right = selection.maxX() - 7;
    const float top = selection.maxY() - 7;
    const float bottom = selection.y - 5;
    const float midX = selection.x + selection.width / 2;
    const float midY = selection.y + selection.height / 2;
    const auto square = [](float x, float y) { return PXRect{x, y, kHandleSize, kHandleSize}; };
    switch (handle) {
    case kTop | kLeft:
        return square(left, top);
    case kTop | kRight:
        return square(right, top);
    case kBottom | kLeft:
        return square(left, bottom);
    case kBottom | kRight:
        return square(right, bottom);
    case kLeft:
        return square(left, midY - 7);
    case kRight:
        return square(right, midY - 7);
    case kTop:
        return square(midX - 5, top);
    case kBottom:
        return square(midX - 7, bottom);
    default:
        return {};
    }
}

PXRect BRSelectionGeometry::rectForGrabHandle(int handle, const PXRect &selection)
{
    PXRect place = placeOfHandle(handle, selection);
    if (handle == kTop)
        place.y += 2;
    return place;
}

PXPoint BRSelectionGeometry::cornerOpposite(int cornerHandle, const PXRect &selection)
{
    return {(cornerHandle & kLeft) != 0 ? selection.maxX() : selection.x,
            (cornerHandle & kTop) != 0 ? selection.y : selection.maxY()};
}

PXRect BRSelectionGeometry::constrained(PXRect rect, PXSize display,
                                        const std::optional<PXSize> &aspect)
{
    PXSize size = {std::min(rect.width, display.width), std::min(rect.height, display.height)};
    // What is not cut keeps its size, whatever it is: a window that was picked, for instance.
    if (aspect && size != rect.size())
        size = fitted(size, *aspect);
    rect.width = size.width;
    rect.height = size.height;
    rect.x = std::max(rect.x, 0.0F);
    rect.y = std::max(rect.y, 0.0F);
    rect.x -= std::max(rect.maxX() - display.width, 0.0F);
    rect.y -= std::max(rect.maxY() - display.height, 0.0F);
    return rect;
}

PXRect BRSelectionGeometry::spanning(PXPoint anchor, PXPoint pointer,
                                     const std::optional<PXSize> &aspect)
{
    PXSize size = {std::abs(pointer.x - anchor.x), std::abs(pointer.y - anchor.y)};
    if (aspect)
        size = fitted(size, *aspect);
    return {pointer.x < anchor.x ? anchor.x - size.width : anchor.x,
            pointer.y < anchor.y ? anchor.y - size.height : anchor.y, size.width, size.height};
}

BRSelectionGeometry::EdgeDrag BRSelectionGeometry::draggingEdge(PXRect rect, int handle, PXPoint by,
                                                                const std::optional<PXSize> &aspect)
{
    const bool isAcross = handle == kLeft || handle == kRight;
    float &origin = isAcross ? rect.x : rect.y;
    float &length = isAcross ? rect.width : rect.height;
    const float distance = isAcross ? by.x : by.y;
    if (handle == kRight || handle == kTop) {
        length += distance;
    } else {
        origin += distance;
        length -= distance;
    }
    if (length < 0) {
        origin += length;
        length = -length;
        handle ^= isAcross ? kLeft | kRight : kTop | kBottom;
    }
    if (aspect && isAcross)
        rect.height = std::round(aspect->height * rect.width / aspect->width);
    else if (aspect)
        rect.width = std::round(aspect->width * rect.height / aspect->height);
    return {rect, handle};
}

PXRect BRSelectionGeometry::withHeightOfAspect(PXRect rect, PXSize aspect)
{
    const float height = std::round(aspect.height * rect.width / aspect.width);
    rect.y += rect.height - height;
    rect.height = height;
    return rect;
}

PXRect BRSelectionGeometry::preset(int tag, PXSize display)
{
    const float part = tag == 12 ? 0.5F
        : tag == 14              ? 0.25F
        : tag == 18              ? 0.125F
        : tag == 34              ? 0.75F
                                 : 1.0F;
    const float width = std::floor(display.width * part);
    const float height = std::floor(display.height * part);
    return {std::floor(display.width / 2 - width / 2), std::floor(display.height / 2 - height / 2),
            width, height};
}
