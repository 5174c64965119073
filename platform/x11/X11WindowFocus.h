#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Windows.h"

#include "foundation/PXMutex.h"

#include <xcb/xcb.h>

#include <optional>

/// The keyboard's way to a window that no window manager would give it to, and back.
class X11WindowFocus final {
public:
    /// All outlive it.
    X11WindowFocus(X11Connection &connection, const X11Windows &windows, const X11Atoms &atoms)
        : _connection(connection), _windows(windows), _atoms(atoms)
    {
    }

    void focus(xcb_window_t window);
    void giveBack();

    /// The event thread's.
    void handleEvent(const xcb_generic_event_t &event);

private:
    struct Predecessor {
        xcb_window_t focused; ///< None and the pointer's root are no windows, but have their turn.
        xcb_window_t active; ///< What the window manager says; none without one.
    };

    [[nodiscard]] std::optional<Predecessor> _ask() const;
    void _watch(xcb_window_t window, bool wanted);
    void _setFocus(xcb_window_t window);

    X11Connection &_connection;
    const X11Windows &_windows;
    const X11Atoms &_atoms;
    std::optional<Predecessor> _predecessor; // The main thread's.
    PXMutex _lock;
    xcb_window_t _waiting PX_GUARDED_BY(_lock) = XCB_NONE; ///< Gets the focus once it is visible.
};
