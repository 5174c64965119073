#pragma once

#include "platform/x11/X11Atoms.h"
#include "platform/x11/X11Connection.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <vector>

/// Questions about windows of any program, which may go while they are asked: then the answer is
/// empty, and nobody logs it. Any thread.
class X11Windows final {
public:
    X11Windows(X11Connection &connection, const X11Atoms &atoms)
        : _connection(connection), _atoms(atoms)
    {
    }

    /// Lowest first.
    [[nodiscard]] std::vector<xcb_window_t> childrenOf(xcb_window_t window) const;
    /// The window itself or the one around it that the root has as a child; none where there is
    /// no such window any more.
    [[nodiscard]] std::optional<xcb_window_t> topLevelOf(xcb_window_t window) const;
    /// The window that a program made inside (or as) this top-level one; a window without a window
    /// manager's mark is its own.
    [[nodiscard]] xcb_window_t clientOf(xcb_window_t topLevel) const;
    /// Whether one connection made both.
    [[nodiscard]] bool isSameClient(xcb_window_t a, xcb_window_t b) const;
    [[nodiscard]] bool isViewable(xcb_window_t window) const;
    [[nodiscard]] bool exists(xcb_window_t window) const;
    /// The numbers of a property of 32-bit values.
    [[nodiscard]] std::vector<std::uint32_t> property(xcb_window_t window, xcb_atom_t name) const;
    [[nodiscard]] bool hasWindowManager() const;

    /// Asks the window manager to bring it to the front with the keyboard, as a pager does.
    void activate(xcb_window_t window) const;

private:
    X11Connection &_connection;
    const X11Atoms &_atoms;
};
