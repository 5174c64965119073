#include "platform/x11/X11WindowFocus.h"

#include <utility>

void X11WindowFocus::focus(xcb_window_t window)
{
    if (!_predecessor)
        _predecessor = _ask();
    const PXLock lock(_lock);
    // The server refuses the focus to what is not on the screen. It tells when that comes, which
    // must be asked for before looking.
    if (const xcb_window_t before = std::exchange(_waiting, window); before != XCB_NONE)
        _watch(before, false);
    _watch(window, true);
    if (!_windows.isViewable(window))
        return;
    _watch(window, false);
    _waiting = XCB_NONE;
    _setFocus(window);
}

void X11WindowFocus::handleEvent(const xcb_generic_event_t &event)
{
    // Comes when a window and all around it are mapped; a MapNotify may be too early.
    if ((event.response_type & 0x7F) != XCB_VISIBILITY_NOTIFY)
        return;
    const auto &visible = reinterpret_cast<const xcb_visibility_notify_event_t &>(event);
    const PXLock lock(_lock);
    if (visible.window != _waiting)
        return;
    _watch(std::exchange(_waiting, XCB_NONE), false);
    _setFocus(visible.window);
}

std::optional<X11WindowFocus::Predecessor> X11WindowFocus::_ask() const
{
    const auto focused = _connection.replyIfThere<xcb_get_input_focus_reply>(
        xcb_get_input_focus(_connection.get()));
    if (!focused)
        return {};
    const std::vector<std::uint32_t> active = _windows.hasWindowManager()
        ? _windows.property(_connection.root(), _atoms.activeWindow)
        : std::vector<std::uint32_t>();
    return Predecessor{focused->focus, active.empty() ? xcb_window_t{XCB_NONE} : active.front()};
}

void X11WindowFocus::_watch(xcb_window_t window, bool wanted)
{
    const std::uint32_t mask = wanted ? XCB_EVENT_MASK_VISIBILITY_CHANGE : 0;
    xcb_change_window_attributes(_connection.get(), window, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(_connection.get());
}

void X11WindowFocus::_setFocus(xcb_window_t window)
{
    xcb_set_input_focus(_connection.get(), XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    xcb_flush(_connection.get());
}

void X11WindowFocus::giveBack()
{
    {
        const PXLock lock(_lock);
        if (_waiting != XCB_NONE)
            _watch(std::exchange(_waiting, XCB_NONE), false);
    }
    const auto predecessor = std::exchange(_predecessor, {});
    if (!predecessor)
        return;
    if (predecessor->active == XCB_NONE) {
        const bool isWindow = predecessor->focused > XCB_INPUT_FOCUS_POINTER_ROOT;
        if (!isWindow || _windows.isViewable(predecessor->focused))
            _setFocus(predecessor->focused);
        return;
    }
    _windows.activate(predecessor->active);
}
