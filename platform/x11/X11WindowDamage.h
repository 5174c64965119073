#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Ids.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

/// What was painted into each top-level window, while a compositor puts the windows on the screen.
///
/// The root's damage then is one box around all that the compositor repainted, or the whole
/// screen, and says little about where. A window's damage is exact but too early: the compositor
/// has yet to show it. So it is kept as pending until the root was repainted after it.
///
/// Belongs to the thread that reads the connection's events. Windows vanish at any time, so that
/// requests about them fail; nobody minds.
class X11WindowDamage final {
public:
    /// Begins to watch all windows. `requests` carries what need not wait for anything.
    X11WindowDamage(X11Connection &events, X11Connection &requests);
    ~X11WindowDamage();

    /// Windows that come, go, move or change; other events are not for us.
    void handleEvent(const xcb_generic_event_t &event);
    /// `sequence`: the event's full one.
    void windowWasPainted(const xcb_damage_notify_event_t &event, unsigned sequence,
                          std::uint64_t now);

    /// Since when something is pending; UINT64_MAX: nothing is.
    [[nodiscard]] std::uint64_t pendingSince() const { return _pendingSince; }
    /// Shortly after the beginning, and after a window came, went, moved or faded, windows' damage
    /// does not tell all that the compositor repaints.
    [[nodiscard]] bool isUnsettled(std::uint64_t now) const { return now < _unsettledUntil; }

    /// Adds what is pending, in the root's pixels, to `region`, and once more what the last two
    /// calls added: it may have been painted too late for the repaint that we saw.
    void gatherInto(xcb_xfixes_region_t region, std::uint64_t now);

private:
    struct Window {
        X11Damage damage;
        int x = 0; ///< Of its inside, in the root's pixels.
        int y = 0;
        unsigned since = 0; ///< The request before which its damage does not count.
    };

    void _watchAll();
    Window *_watch(xcb_window_t window, int x, int y, int border);
    void _move(xcb_window_t window, int x, int y, int border);
    X11Region _makeRegion();

    X11Connection &_events;
    X11Connection &_requests;
    xcb_atom_t _opacity = XCB_NONE;
    std::unordered_map<xcb_window_t, Window> _windows;
    std::vector<xcb_window_t> _pending;
    std::uint64_t _pendingSince = UINT64_MAX;
    std::uint64_t _unsettledUntil;
    std::uint64_t _lastGathered = 0;
    X11Region _ofOneWindow;
    X11Region _fresh;
    X11Region _last;
    X11Region _lastButOne;
};
