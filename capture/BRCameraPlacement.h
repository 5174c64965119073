#pragma once

#include "foundation/PXGeometry.h"

/// Where the camera stands when it follows the pointer. Global coordinates; `screen` is the main
/// display's size, to which the camera is cut and inside which it stays.

/// Centred on `mouse`.
PXRect BRCenterCameraRectAtMouseLocation(PXPoint mouse, PXSize selectionSize, PXSize screen);

/// `current` moved only as far as it takes to keep `mouse` 15 % of its size away from its edges.
PXRect BRLazilySetCameraRectWithMouseLocation(PXPoint mouse, const PXRect &current, PXSize screen);
