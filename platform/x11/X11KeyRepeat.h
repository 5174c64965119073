#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"

#include <xcb/xcb.h>

#include <array>
#include <cstdint>
#include <optional>

/// Repeats of a held key. The server makes them for programs with a clock of its own, and raw
/// events show nothing of it: this follows the same rules with the same settings. One thread.
class X11KeyRepeat final {
public:
    /// Asks to be told of new settings; `readControls()` is to be called then.
    explicit X11KeyRepeat(X11Connection &connection);
    void readControls();

    void keyWentDown(xcb_keycode_t key);
    void keyWentUp(xcb_keycode_t key);
    /// The key that repeats just now.
    std::optional<xcb_keycode_t> keyThatIsDue();
    /// Host time of the next repeat.
    [[nodiscard]] std::uint64_t deadline() const { return _deadline; }

private:
    X11Connection &_connection;
    std::uint64_t _delay = 0; // Nanoseconds, as the interval is.
    std::uint64_t _interval = 0;
    std::array<std::uint8_t, 32> _repeats = {}; // A bit a key.
    xcb_keycode_t _key = 0;
    std::uint64_t _deadline = X11EventThread::kNever;
};
