#pragma once

#include "foundation/PXGeometry.h"

#include <span>
#include <vector>

/// Cuts `dirtyRects` to `selection` and joins those that overlap, in one pass over the input.
///
/// An element already passed is not looked at again after a later one grew, so the result is
/// disjoint only as far as one pass makes it so. Reading a few pixels twice is cheaper than
/// comparing every pair again.
std::vector<PXRect> BRMergeDirtyRects(std::span<const PXRect> dirtyRects, const PXRect &selection);
