#include "platform/x11/X11DamageSource.h"

#include "foundation/PXClock.h"

#include <string>
#include <utility>

namespace {

/// Windows' damage that no repaint of the screen followed is told after this time: hidden
/// windows, and compositors that repaint in another order than we think.
constexpr std::uint64_t kLongestPending = 100'000'000;

/// So often all that was repainted counts, even if windows' damage would explain it.
constexpr std::uint64_t kLongestExplained = 1'000'000'000;

/// Both must be told the version that is spoken, or the server refuses everything else.
PXExpected<void> greet(X11Connection &connection)
{
    if (auto version = connection.reply<xcb_damage_query_version_reply>(
            "xcb_damage_query_version", xcb_damage_query_version(connection.get(), 1, 1));
        !version)
        return PXFail(std::move(version).error());
    if (auto version = connection.reply<xcb_xfixes_query_version_reply>(
            "xcb_xfixes_query_version", xcb_xfixes_query_version(connection.get(), 5, 0));
        !version)
        return PXFail(std::move(version).error());
    return {};
}

} // namespace

PXExpected<std::unique_ptr<X11DamageSource>>
X11DamageSource::onConnections(std::unique_ptr<X11Connection> events,
                               std::unique_ptr<X11Connection> requests)
{
    for (X11Connection *connection : {events.get(), requests.get()})
        if (auto greeted = greet(*connection); !greeted)
            return PXFail(std::move(greeted).error());
    const auto ofDamage = events->firstEventOf(xcb_damage_id);
    const auto ofFixes = events->firstEventOf(xcb_xfixes_id);
    if (!ofDamage || !ofFixes)
        return PXFail(ofDamage ? ofFixes.error() : ofDamage.error());
    return std::unique_ptr<X11DamageSource>(
        new X11DamageSource(std::move(events), std::move(requests), *ofDamage, *ofFixes));
}

X11DamageSource::X11DamageSource(std::unique_ptr<X11Connection> events,
                                 std::unique_ptr<X11Connection> requests,
                                 std::uint8_t firstDamageEvent, std::uint8_t firstFixesEvent)
    : _events(std::move(events)),
      _requests(std::move(requests)),
      _damageNotify(firstDamageEvent + XCB_DAMAGE_NOTIFY),
      _selectionNotify(firstFixesEvent + XCB_XFIXES_SELECTION_NOTIFY),
      _ofRoot(_requests->get()),
      _repainted(_requests->get()),
      _gathered(_requests->get()),
      _root{0, 0, _events->screen().width_in_pixels, _events->screen().height_in_pixels}
{
    xcb_xfixes_create_region(_requests->get(), _ofRoot.id(), 0, nullptr);
    xcb_xfixes_create_region(_requests->get(), _repainted.id(), 0, nullptr);
    xcb_xfixes_create_region(_requests->get(), _gathered.id(), 0, nullptr);
}

X11DamageSource::~X11DamageSource()
{
    stop();
}

PXExpected<void> X11DamageSource::start(std::function<void()> arrived)
{
    _arrivedHandler.set(std::move(arrived));
    xcb_connection_t *c = _events->get();
    X11Damage damage(c);
    const std::uint32_t damageId = damage.id();
    xcb_damage_create(c, damageId, _events->root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    {
        const PXLock lock(_lock);
        _rootDamage = std::move(damage);
    }
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, _events->root(), XCB_CW_EVENT_MASK, &mask);
    if (auto watched = _watchCompositor(); !watched)
        return watched;
    // A new damage covers the whole screen; whoever starts has yet to read it anyway.
    const auto cookie = xcb_damage_subtract_checked(c, damageId, XCB_NONE, XCB_NONE);
    _startedSince = cookie.sequence;
    if (auto done = _events->check("xcb_damage_subtract", cookie); !done)
        return done;
    _thread.emplace("tolvane-damage", *_events, static_cast<X11EventThread::Delegate &>(*this));
    return {};
}

void X11DamageSource::stop()
{
    _arrivedHandler.set({});
    _thread.reset();
    _windows.reset();
    {
        const PXLock lock(_lock);
        _rootDamage.reset();
        _isComposited = false;
    }
    xcb_flush(_events->get());
}

PXExpected<void> X11DamageSource::_watchCompositor()
{
    xcb_connection_t *c = _events->get();
    const std::string name = "_NET_WM_CM_S" + std::to_string(_events->screenNumber());
    auto atom = _events->reply<xcb_intern_atom_reply>(
        "xcb_intern_atom",
        xcb_intern_atom(c, 0, static_cast<std::uint16_t>(name.size()), name.data()));
    if (!atom)
        return PXFail(std::move(atom).error());
    xcb_xfixes_select_selection_input(c, _events->root(), (*atom)->atom,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER
                                          | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY
                                          | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    auto owner = _events->reply<xcb_get_selection_owner_reply>(
        "xcb_get_selection_owner", xcb_get_selection_owner(c, (*atom)->atom));
    if (!owner)
        return PXFail(std::move(owner).error());
    _setCompositor((*owner)->owner != XCB_NONE);
    return {};
}

void X11DamageSource::_setCompositor(bool isThere)
{
    if (isThere == _windows.has_value())
        return;
    if (isThere)
        _windows.emplace(*_events, *_requests);
    else
        _windows.reset();
    const PXLock lock(_lock);
    _isComposited = isThere;
    // From now on nobody takes the root's damage but we, at each repaint: begin with none, or
    // the next repaint would not be reported.
    xcb_damage_subtract(_requests->get(), _rootDamage.id(), XCB_NONE, XCB_NONE);
    xcb_flush(_requests->get());
}

PXExpected<void> X11DamageSource::takeDamage(std::vector<PXPixelRect> &rects)
{
    xcb_connection_t *c = _requests->get();
    xcb_xfixes_fetch_region_cookie_t cookie = {};
    PXPixelRect root;
    {
        const PXLock lock(_lock);
        if (!std::exchange(_hasArrived, false))
            return {};
        root = _root;
        if (std::exchange(_isAllDamaged, false))
            rects.push_back(root);
        if (!_isComposited && _rootDamage) {
            xcb_damage_subtract(c, _rootDamage.id(), XCB_NONE, _ofRoot.id());
            xcb_xfixes_union_region(c, _gathered.id(), _ofRoot.id(), _gathered.id());
        }
        cookie = xcb_xfixes_fetch_region(c, _gathered.id());
        xcb_xfixes_set_region(c, _gathered.id(), 0, nullptr);
    }
    auto region
        = _requests->reply<xcb_xfixes_fetch_region_reply>("xcb_xfixes_fetch_region", cookie);
    if (!region)
        return PXFail(std::move(region).error());
    auto rectangles = xcb_xfixes_fetch_region_rectangles_iterator(region->get());
    for (; rectangles.rem > 0; xcb_rectangle_next(&rectangles)) {
        const xcb_rectangle_t &rectangle = *rectangles.data;
        const PXPixelRect visible
            = PXIntersection({rectangle.x, rectangle.y, rectangle.width, rectangle.height}, root);
        if (!visible.isEmpty())
            rects.push_back(visible);
    }
    // Complaints about windows that had gone.
    while (const X11Event event{xcb_poll_for_queued_event(c)}) { }
    if (_events->isLost())
        return PXFail(_events->lostError());
    return {};
}

void X11DamageSource::handleEvent(const xcb_generic_event_t &event)
{
    const std::uint8_t type = event.response_type & 0x7F;
    if (type == _damageNotify) {
        const auto &damage = reinterpret_cast<const xcb_damage_notify_event_t &>(event);
        if (damage.drawable != _events->root()) {
            if (_windows)
                _windows->windowWasPainted(damage, event.full_sequence, PXCurrentHostTime());
        } else if (static_cast<int>(event.full_sequence - _startedSince) >= 0) {
            _screenWasPainted();
        }
        return;
    }
    if (type == _selectionNotify) {
        const auto &selection
            = reinterpret_cast<const xcb_xfixes_selection_notify_event_t &>(event);
        _setCompositor(selection.owner != XCB_NONE);
        _allWasPainted({});
        return;
    }
    if (type == XCB_CONFIGURE_NOTIFY) {
        const auto &configured = reinterpret_cast<const xcb_configure_notify_event_t &>(event);
        if (configured.window == _events->root())
            return _allWasPainted({0, 0, configured.width, configured.height});
    }
    if (_windows)
        _windows->handleEvent(event);
}

void X11DamageSource::_screenWasPainted()
{
    if (_windows) {
        const PXLock lock(_lock);
        xcb_connection_t *c = _requests->get();
        const std::uint64_t now = PXCurrentHostTime();
        // Taken before the windows' damage: what is painted between the two is repainted later,
        // and that is reported again.
        const bool isExplained
            = _windows->pendingSince() != X11EventThread::kNever && !_windows->isUnsettled(now);
        xcb_damage_subtract(c, _rootDamage.id(), XCB_NONE, _ofRoot.id());
        xcb_xfixes_union_region(c, _repainted.id(), _ofRoot.id(), _repainted.id());
        if (!isExplained || now >= _lastRepainted + kLongestExplained) {
            xcb_xfixes_union_region(c, _gathered.id(), _repainted.id(), _gathered.id());
            xcb_xfixes_set_region(c, _repainted.id(), 0, nullptr);
            _lastRepainted = now;
        }
        _windows->gatherInto(_gathered.id(), now);
        xcb_flush(c);
    }
    _arrived();
}

std::uint64_t X11DamageSource::eventsWereHandled()
{
    if (!_windows || _windows->pendingSince() == X11EventThread::kNever)
        return X11EventThread::kNever;
    const std::uint64_t now = PXCurrentHostTime();
    if (now < _windows->pendingSince() + kLongestPending)
        return _windows->pendingSince() + kLongestPending;
    {
        const PXLock lock(_lock);
        _windows->gatherInto(_gathered.id(), now);
        xcb_flush(_requests->get());
    }
    _arrived();
    return X11EventThread::kNever;
}

void X11DamageSource::_allWasPainted(PXPixelRect root)
{
    {
        const PXLock lock(_lock);
        if (!root.isEmpty())
            _root = root;
        _isAllDamaged = true;
    }
    _arrived();
}

void X11DamageSource::_arrived()
{
    {
        const PXLock lock(_lock);
        if (std::exchange(_hasArrived, true))
            return;
    }
    _arrivedHandler.call();
}

void X11DamageSource::connectionWasLost()
{
    // The next take finds out why.
    _arrived();
}
