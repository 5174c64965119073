#include "platform/x11/X11TopKeeper.h"

#include "platform/x11/X11EventThread.h"

#include "foundation/PXClock.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

constexpr std::uint64_t kShortestPatience = 250'000'000;
constexpr std::uint64_t kLongestPatience = 8'000'000'000;

} // namespace

void X11TopKeeper::keep(std::span<const xcb_window_t> windows)
{
    const PXLock lock(_lock);
    if (windows.empty())
        return;
    // Before the raise, so that nothing comes above unseen in between.
    if (_kept.empty())
        _listen(true);
    for (const xcb_window_t window : windows) {
        std::erase(_kept, window);
        _kept.push_back(window);
        _raise(window);
    }
    _patience = kShortestPatience;
    xcb_flush(_connection.get());
}

void X11TopKeeper::letGo(std::span<const xcb_window_t> windows)
{
    const PXLock lock(_lock);
    for (const xcb_window_t window : windows)
        _forget(window);
    xcb_flush(_connection.get());
}

void X11TopKeeper::_forget(xcb_window_t window)
{
    if (std::erase(_kept, window) > 0 && _kept.empty())
        _listen(false);
}

void X11TopKeeper::_listen(bool wanted)
{
    const std::uint32_t mask = wanted ? XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY : 0;
    xcb_change_window_attributes(_connection.get(), _connection.root(), XCB_CW_EVENT_MASK, &mask);
    _news = News::None;
}

void X11TopKeeper::_raise(xcb_window_t window) const
{
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(_connection.get(), window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
}

bool X11TopKeeper::_isOwn(xcb_window_t window) const
{
    return _connection.isServersOwn(window)
        || std::any_of(_kept.begin(), _kept.end(),
                       [&](xcb_window_t kept) { return _windows.isSameClient(kept, window); });
}

void X11TopKeeper::_takeNotice(xcb_window_t window, News news)
{
    const PXLock lock(_lock);
    // Our own raises come back as events, too.
    if (!_kept.empty() && !_isOwn(window))
        _news = std::max(_news, news);
}

void X11TopKeeper::handleEvent(const xcb_generic_event_t &event)
{
    switch (event.response_type & 0x7F) {
    case XCB_MAP_NOTIFY:
        return _takeNotice(reinterpret_cast<const xcb_map_notify_event_t &>(event).window,
                           News::Shown);
    case XCB_REPARENT_NOTIFY:
        return _takeNotice(reinterpret_cast<const xcb_reparent_notify_event_t &>(event).window,
                           News::Restacked);
    case XCB_CONFIGURE_NOTIFY:
        return _takeNotice(reinterpret_cast<const xcb_configure_notify_event_t &>(event).window,
                           News::Restacked);
    case XCB_CIRCULATE_NOTIFY:
        return _takeNotice(reinterpret_cast<const xcb_circulate_notify_event_t &>(event).window,
                           News::Restacked);
    case XCB_DESTROY_NOTIFY: {
        const PXLock lock(_lock);
        return _forget(reinterpret_cast<const xcb_destroy_notify_event_t &>(event).window);
    }
    default:
        return;
    }
}

std::uint64_t X11TopKeeper::eventsWereHandled()
{
    const PXLock lock(_lock);
    if (_news == News::None)
        return X11EventThread::kNever;
    const std::uint64_t now = PXCurrentHostTime();
    // What somebody opens is to be below us soon, however stubborn another window is.
    const std::uint64_t due = _lastLook + (_news == News::Shown ? kShortestPatience : _patience);
    if (now < due)
        return due;
    const News news = std::exchange(_news, News::None);
    _lastLook = now;
    if (!_raiseWhatIsCovered())
        return X11EventThread::kNever;
    const bool isFight = news == News::Restacked && now - _lastRaise < 2 * _patience;
    _patience = isFight ? std::min(2 * _patience, kLongestPatience) : kShortestPatience;
    _lastRaise = now;
    return X11EventThread::kNever;
}

bool X11TopKeeper::_raiseWhatIsCovered()
{
    std::vector<std::pair<xcb_window_t, xcb_window_t>> kept; // Top-level, then the window itself.
    for (const xcb_window_t window : std::vector(_kept)) {
        if (const auto topLevel = _windows.topLevelOf(window))
            kept.emplace_back(*topLevel, window);
        else
            _forget(window);
    }
    std::vector<xcb_window_t> inOrder;
    bool isCovered = false;
    for (const xcb_window_t topLevel : _windows.childrenOf(_connection.root())) {
        const auto found = std::find_if(
            kept.begin(), kept.end(), [&](const auto &window) { return window.first == topLevel; });
        if (found != kept.end())
            inOrder.push_back(found->second);
        else if (!inOrder.empty() && _isForeign(topLevel))
            isCovered = true;
        // A menu of ours that is open above stays above.
        else if (!inOrder.empty() && !_connection.isServersOwn(topLevel) && _isOwn(topLevel)
                 && _windows.isViewable(topLevel))
            inOrder.push_back(topLevel);
    }
    if (!isCovered)
        return false;
    for (const xcb_window_t window : inOrder)
        _raise(window);
    return true;
}

bool X11TopKeeper::_isForeign(xcb_window_t topLevel) const
{
    return !_isOwn(topLevel) && _windows.isViewable(topLevel)
        && !_isOwn(_windows.clientOf(topLevel));
}
