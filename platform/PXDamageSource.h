#pragma once

#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"

#include <functional>
#include <vector>

/// Tells which parts of the screen changed. Works on a connection and a thread of its own; the
/// grabbing thread takes what has gathered. Take the damage first and read the pixels then: what
/// is painted in between is reported again instead of lost.
class PXDamageSource {
public:
    virtual ~PXDamageSource() = default;

    /// Begins to collect. `arrived` is called on the source's thread when there is something to
    /// take after a time with nothing, and not again before `takeDamage()`; also once when the
    /// source has failed, which `takeDamage()` then reports. It must not block.
    virtual PXExpected<void> start(std::function<void()> arrived) = 0;
    /// No call of `arrived` comes after this has returned. Another thread may be taking damage.
    virtual void stop() = 0;

    /// Appends what changed since the last call, in the desktop's pixels; the rectangles may
    /// overlap. An error means that the source is dead.
    virtual PXExpected<void> takeDamage(std::vector<PXPixelRect> &rects) = 0;
};
