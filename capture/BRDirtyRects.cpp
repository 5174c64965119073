#include "capture/BRDirtyRects.h"

#include "foundation/BRLog.h"

std::vector<PXRect> BRMergeDirtyRects(std::span<const PXRect> dirtyRects, const PXRect &selection)
{
    std::vector<PXRect> merged;
    for (const PXRect &dirtyRect : dirtyRects) {
        if (!PXIntersectsRect(dirtyRect, selection))
            continue;
        PXRect rect = PXIntersectionRect(dirtyRect, selection);
        for (std::size_t i = merged.size(); i-- > 0;) {
            const PXRect other = merged[i];
            if (!other.isEmpty() && !PXIntersectsRect(other, rect))
                continue;
            if (!other.isEmpty())
                rect = PXUnionRect(rect, other);
            merged.erase(merged.begin() + static_cast<std::ptrdiff_t>(i));
        }
        if (PXIntersectsRect(rect, selection))
            merged.push_back(rect);
        else
            BRLog(0, "No longer intersects!!");
    }
    return merged;
}
