#pragma once

#include "foundation/PXGeometry.h"

#include <QStringView>

#include <optional>

/// "640x480+100+50": width, height and the place of the upper left corner on the desktop, as X
/// writes it; "-0" counts from the right or lower edge of `display`. None for anything else.
std::optional<PXPixelRect> BRPixelRectFromGeometry(QStringView text, const PXPixelRect &display);

/// "640x480".
std::optional<PXSize> BRSizeFromText(QStringView text);
