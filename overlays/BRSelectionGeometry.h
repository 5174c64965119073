#pragma once

#include "foundation/PXGeometry.h"

#include <array>
#include <optional>

/// The arithmetic of choosing a rectangle, in the main display's coordinates (y up). An aspect is
/// given where the rectangle has to keep it; both of its terms are above 0.
namespace BRSelectionGeometry {

/// A handle is the set of the edges that it moves.
enum Edge { kTop = 1, kRight = 2, kBottom = 4, kLeft = 8 };
inline constexpr int kNoHandle = 0;

/// In the order in which a point is tested against them: corners and edges turn about.
inline constexpr std::array<int, 8> kHandlesInTestOrder = {
    kTop | kLeft, kTop, kTop | kRight, kRight, kBottom | kRight, kBottom, kBottom | kLeft, kLeft};

inline constexpr float kHandleSize = 12;

inline bool isCorner(int handle)
{
    return (handle & (kTop | kBottom)) != 0 && (handle & (kLeft | kRight)) != 0;
}

/// Where a handle is drawn; the zero rectangle for what is none.
PXRect placeOfHandle(int handle, const PXRect &selection);
/// Where it is grabbed: the same, but for the top one two pixels higher, because its upper half
/// is what a hand that comes from above meets first.
PXRect rectForGrabHandle(int handle, const PXRect &selection);

/// The corner that stays where it is while the other one is dragged.
PXPoint cornerOpposite(int cornerHandle, const PXRect &selection);

/// Cut to the display's size, given the aspect where it was cut, and moved inside; never cut by
/// moving.
PXRect constrained(PXRect rect, PXSize display, const std::optional<PXSize> &aspect);

/// From a fixed corner to the pointer.
PXRect spanning(PXPoint anchor, PXPoint pointer, const std::optional<PXSize> &aspect);

struct EdgeDrag {
    PXRect rect;
    int handle; ///< The opposite one, once it has crossed that.
};
/// One edge moved along its axis; its opposite stays.
EdgeDrag draggingEdge(PXRect rect, int handle, PXPoint by, const std::optional<PXSize> &aspect);

/// The aspect's height for the rectangle's width; the top edge stays.
PXRect withHeightOfAspect(PXRect rect, PXSize aspect);

/// The part of the display that a tag of the preset menu stands for, in its middle: 12 is a half,
/// 14 a quarter, 18 an eighth, 34 three quarters of each side, any other the whole.
PXRect preset(int tag, PXSize display);

} // namespace BRSelectionGeometry
