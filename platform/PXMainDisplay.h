#pragma once

#include "foundation/PXGeometry.h"
#include "foundation/PXObservation.h"

#include <functional>
#include <optional>

/// The display that is recorded: the primary output, else the first, else the whole screen.
/// The answers may change while a program runs; every call tells the latest. Any thread.
class PXMainDisplay {
public:
    virtual ~PXMainDisplay() = default;

    /// Its place on the desktop, in the desktop's pixels.
    [[nodiscard]] virtual PXPixelRect bounds() const = 0;
    /// The display, this one or another, that shows this pixel of the desktop; none where no
    /// display does.
    [[nodiscard]] virtual std::optional<PXPixelRect> displayAt(int x, int y) const = 0;
    /// In hertz; 60 when the system does not know.
    [[nodiscard]] virtual double refreshRate() const = 0;
    /// `changed` is called on a thread of the back end after bounds or rate changed.
    virtual PXObservation addChangedObserver(std::function<void()> changed) = 0;
};
