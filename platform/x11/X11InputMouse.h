#pragma once

#include "platform/PXInputMonitor.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <vector>

/// Makes mouse events of what pointing devices report. A mouse tells of up to a thousand movements
/// a second, so it is asked for those only while a button is held, and not again for a moment after
/// each that is told. One thread.
class X11InputMouse final {
public:
    /// Both outlive it.
    X11InputMouse(X11Connection &connection, PXInputMonitorDelegate &delegate);

    /// Has the server report keys and buttons, of whatever program they are for.
    void watch();
    /// The user has arranged the buttons in another way.
    void readMapping();

    /// `button` is the device's own number.
    void buttonWentDown(std::uint32_t button, std::uint16_t source);
    void buttonWentUp(std::uint32_t button, std::uint16_t source);
    void pointerMoved() { _hasMoved = true; }
    /// Answers the host time at which it must be called again.
    std::uint64_t eventsWereHandled();

private:
    struct Held {
        std::uint32_t number;
        std::uint16_t source;
        PXMouseButton button;
    };
    struct Place {
        int x, y;
        friend bool operator==(const Place &, const Place &) = default;
    };

    void _select();
    [[nodiscard]] std::optional<PXMouseButton> _meaningOf(std::uint32_t button) const;
    [[nodiscard]] bool _isHeld(PXMouseButton button) const;
    [[nodiscard]] std::optional<Place> _place();
    void _tell(PXMouseEventType type, PXMouseButton button, std::optional<Place> place);

    X11Connection &_connection;
    PXInputMonitorDelegate &_delegate;
    std::vector<std::uint8_t> _mapping;
    std::vector<Held> _held;
    bool _hasMoved = false;
    std::uint64_t _pauseEnds = X11EventThread::kNever; ///< Until then no motion is asked for.
    Place _last = {0, 0}; ///< As told.
};
