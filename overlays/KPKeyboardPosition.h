#pragma once

#include "foundation/PXGeometry.h"

#include <optional>

/// Where something smaller stands in something larger, from left to right or from bottom to top.
enum class KPAnchor { Start, Middle, End };

/// How far from its start, in whole units.
int KPAnchoredOffset(KPAnchor anchor, int room, int size);

/// Where in the recorded rectangle the keystrokes are shown.
struct KPKeyboardPosition {
    static constexpr int kMargin = 10; ///< From the recorded rectangle's edges.

    KPAnchor x; ///< Left to right.
    KPAnchor y; ///< Bottom to top.

    /// What "keyboardEventPosition" says: 0 is the centre, 1 to 4 are the middles of the edges
    /// (top, right, bottom, left), 5 to 8 the corners (top left, top right, bottom right, bottom
    /// left). None for other numbers.
    static std::optional<KPKeyboardPosition> positionWithCode(int code);

    /// Where a window of that size has its lower left corner; whole numbers, y up.
    [[nodiscard]] PXPoint originOf(const PXSize &size, const PXRect &selection) const;
};
