#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Windows.h"

#include "foundation/PXMutex.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <span>
#include <vector>

/// Keeps windows above those of other programs. Listens to the root only while there is something
/// to keep; looks at the stack at most four times a second, and ever more seldom while another
/// program raises its windows again each time: neither would win, and both would be busy.
class X11TopKeeper final {
public:
    /// Both outlive it.
    X11TopKeeper(X11Connection &connection, const X11Windows &windows)
        : _connection(connection), _windows(windows)
    {
    }

    /// Raises them, the last one highest, and again when needed. Any thread.
    void keep(std::span<const xcb_window_t> windows);
    /// When this returns none of them is raised any more. Any thread.
    void letGo(std::span<const xcb_window_t> windows);

    // What the connection's event thread hands on.
    void handleEvent(const xcb_generic_event_t &event);
    /// Host time at which it must be called again.
    std::uint64_t eventsWereHandled();

private:
    enum class News { None, Restacked, Shown };

    [[nodiscard]] bool _isOwn(xcb_window_t window) const PX_REQUIRES(_lock);
    void _takeNotice(xcb_window_t window, News news);
    void _forget(xcb_window_t window) PX_REQUIRES(_lock);
    void _listen(bool wanted) PX_REQUIRES(_lock);
    bool _raiseWhatIsCovered() PX_REQUIRES(_lock);
    [[nodiscard]] bool _isForeign(xcb_window_t topLevel) const PX_REQUIRES(_lock);
    void _raise(xcb_window_t window) const;

    X11Connection &_connection;
    const X11Windows &_windows;
    PXMutex _lock;
    std::vector<xcb_window_t> _kept PX_GUARDED_BY(_lock); ///< Lowest first.
    News _news PX_GUARDED_BY(_lock) = News::None;
    std::uint64_t _lastLook PX_GUARDED_BY(_lock) = 0;
    std::uint64_t _lastRaise PX_GUARDED_BY(_lock) = 0;
    std::uint64_t _patience PX_GUARDED_BY(_lock) = 0; ///< Between two looks.
};
