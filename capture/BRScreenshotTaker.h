#pragma once

#include "foundation/PXError.h"
#include "platform/PXScreenPlatform.h"

#include <QImage>

/// A still picture of the whole main display as it is now, in its own pixels, without the cursor.
/// Main thread.
namespace BRScreenshotTaker {

/// By the toolkit, and where that gives nothing by the frame reader, whose error is told.
PXExpected<QImage> screenshot(PXScreenPlatform &platform);

/// None where the toolkit does not show windows, or gives another size than the display has.
std::optional<QImage> screenshotUsingScreencapture(PXScreenPlatform &platform);
PXExpected<QImage> screenshotUsingOpenGL(PXScreenPlatform &platform);

} // namespace BRScreenshotTaker
