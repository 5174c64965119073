#pragma once

#include "foundation/PXObservation.h"

#include <cstdint>
#include <functional>

/// Which program is in front, by its window: the low word is the window's number, the high word 0.
struct PXProcessSerialNumber {
    std::uint32_t highLongOfPSN = 0;
    std::uint32_t lowLongOfPSN = 0;

    friend bool operator==(const PXProcessSerialNumber &, const PXProcessSerialNumber &) = default;
};

/// The window that the user works in, of whatever program. Any thread.
class PXFrontProcess {
public:
    virtual ~PXFrontProcess() = default;

    /// The last one that was in front: for a moment between two windows none is. Zero before the
    /// first one, and where no window manager tells.
    [[nodiscard]] virtual PXProcessSerialNumber frontProcess() const = 0;
    /// Whether both are windows of one program.
    [[nodiscard]] virtual bool isSameProcess(PXProcessSerialNumber a,
                                             PXProcessSerialNumber b) const = 0;
    /// `switched` is called on a thread of the back end when another window has come to the front.
    virtual PXObservation addSwitchedObserver(std::function<void()> switched) = 0;
    /// Brings it to the front with the keyboard; nothing where it has gone.
    virtual void setFrontProcess(PXProcessSerialNumber process) = 0;
};
