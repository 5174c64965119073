#pragma once

#include "app/cli/BRUsageError.h"
#include "foundation/PXGeometry.h"

#include <QStringView>

/// "640x480+100+50", an area as X writes it, not yet on any display. "+X" and "+Y" are the place
/// of its upper left corner on the desktop, also negative ("+-10"); "-X" and "-Y" count from the
/// display's right and lower edge to its own, so that "-0-0" is the lower right corner.
struct BRGeometry {
    int width = 0;
    int height = 0;
    int x = 0;
    int y = 0;
    bool isFromRight = false;
    bool isFromBottom = false;

    /// May reach beyond the display, or lie outside it.
    [[nodiscard]] PXPixelRect onDisplay(const PXPixelRect &display) const;
};

BRUsageExpected<BRGeometry> BRGeometryFromText(QStringView text);

/// "640x480".
BRUsageExpected<PXSize> BRSizeFromText(QStringView text);
