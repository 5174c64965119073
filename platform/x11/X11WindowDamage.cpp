#include "platform/x11/X11WindowDamage.h"

#include "foundation/PXClock.h"

#include <string_view>
#include <utility>

namespace {

/// As long as compositors usually fade.
constexpr std::uint64_t kSettlingTime = 500'000'000;

} // namespace

X11WindowDamage::X11WindowDamage(X11Connection &events, X11Connection &requests)
    : _events(events),
      _requests(requests),
      // A compositor that has only just come has yet to paint what is in no window's damage.
      _unsettledUntil(PXCurrentHostTime() + kSettlingTime),
      _ofOneWindow(_makeRegion()),
      _fresh(_makeRegion()),
      _last(_makeRegion()),
      _lastButOne(_makeRegion())
{
    constexpr std::string_view name = "_NET_WM_WINDOW_OPACITY";
    if (const auto atom = _events.reply<xcb_intern_atom_reply>(
            "xcb_intern_atom",
            xcb_intern_atom(_events.get(), 0, static_cast<std::uint16_t>(name.size()),
                            name.data())))
        _opacity = (*atom)->atom;
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(_events.get(), _events.root(), XCB_CW_EVENT_MASK, &mask);
    _watchAll();
}

X11WindowDamage::~X11WindowDamage()
{
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(_events.get(), _events.root(), XCB_CW_EVENT_MASK, &mask);
}

void X11WindowDamage::_watchAll()
{
    xcb_connection_t *c = _events.get();
    const auto tree
        = _events.reply<xcb_query_tree_reply>("xcb_query_tree", xcb_query_tree(c, _events.root()));
    if (!tree)
        return;
    const xcb_window_t *children = xcb_query_tree_children(tree->get());
    const int count = xcb_query_tree_children_length(tree->get());
    std::vector<xcb_get_geometry_cookie_t> cookies;
    cookies.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        cookies.push_back(xcb_get_geometry(c, children[i]));
    for (int i = 0; i < count; ++i) {
        const X11Reply<xcb_get_geometry_reply_t> place(
            xcb_get_geometry_reply(c, cookies[static_cast<std::size_t>(i)], nullptr));
        if (!place)
            continue;
        // A new damage covers its window, which was on the screen before we came.
        if (Window *window = _watch(children[i], place->x, place->y, place->border_width))
            window->since
                = xcb_damage_subtract(c, window->damage.id(), XCB_NONE, XCB_NONE).sequence;
    }
}

X11WindowDamage::Window *X11WindowDamage::_watch(xcb_window_t window, int x, int y, int border)
{
    // The overlay that a compositor paints on belongs to the server; its damage is the root's.
    if (_events.isServersOwn(window) || _windows.contains(window))
        return nullptr;
    xcb_connection_t *c = _events.get();
    X11Damage damage(c);
    // Refused for windows that only take input, and then nothing is ever reported.
    const auto created
        = xcb_damage_create(c, damage.id(), window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, window, XCB_CW_EVENT_MASK, &mask);
    return &_windows
                .emplace(window,
                         Window{std::move(damage), x + border, y + border, created.sequence})
                .first->second;
}

void X11WindowDamage::_move(xcb_window_t window, int x, int y, int border)
{
    if (const auto found = _windows.find(window); found != _windows.end()) {
        found->second.x = x + border;
        found->second.y = y + border;
    }
}

void X11WindowDamage::handleEvent(const xcb_generic_event_t &event)
{
    bool changesStructure = true;
    switch (event.response_type & 0x7F) {
    case XCB_CREATE_NOTIFY: {
        const auto &created = reinterpret_cast<const xcb_create_notify_event_t &>(event);
        _watch(created.window, created.x, created.y, created.border_width);
        changesStructure = false;
        break;
    }
    case XCB_DESTROY_NOTIFY: {
        const auto &destroyed = reinterpret_cast<const xcb_destroy_notify_event_t &>(event);
        if (const auto found = _windows.find(destroyed.window); found != _windows.end()) {
            found->second.damage.forget(); // Gone with its window.
            _windows.erase(found);
        }
        break;
    }
    case XCB_REPARENT_NOTIFY: {
        const auto &reparented = reinterpret_cast<const xcb_reparent_notify_event_t &>(event);
        if (reparented.parent != _events.root()) {
            _windows.erase(reparented.window);
            break;
        }
        // The event does not tell how wide its border is.
        const X11Reply<xcb_get_geometry_reply_t> place(xcb_get_geometry_reply(
            _events.get(), xcb_get_geometry(_events.get(), reparented.window), nullptr));
        _watch(reparented.window, reparented.x, reparented.y, place ? place->border_width : 0);
        break;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto &configured = reinterpret_cast<const xcb_configure_notify_event_t &>(event);
        _move(configured.window, configured.x, configured.y, configured.border_width);
        break;
    }
    case XCB_PROPERTY_NOTIFY:
        changesStructure
            = reinterpret_cast<const xcb_property_notify_event_t &>(event).atom == _opacity;
        break;
    case XCB_MAP_NOTIFY:
    case XCB_UNMAP_NOTIFY:
    case XCB_CIRCULATE_NOTIFY:
    case XCB_GRAVITY_NOTIFY:
        break;
    default:
        changesStructure = false;
    }
    if (changesStructure)
        _unsettledUntil = PXCurrentHostTime() + kSettlingTime;
}

void X11WindowDamage::windowWasPainted(const xcb_damage_notify_event_t &event, unsigned sequence,
                                       std::uint64_t now)
{
    const auto found = _windows.find(event.drawable);
    if (found == _windows.end() || static_cast<int>(sequence - found->second.since) < 0)
        return;
    _pending.push_back(event.drawable);
    if (_pendingSince == UINT64_MAX)
        _pendingSince = now;
}

void X11WindowDamage::gatherInto(xcb_xfixes_region_t region, std::uint64_t now)
{
    xcb_connection_t *c = _requests.get();
    if (now > _lastGathered + kSettlingTime) {
        xcb_xfixes_set_region(c, _last.id(), 0, nullptr);
        xcb_xfixes_set_region(c, _lastButOne.id(), 0, nullptr);
    }
    xcb_xfixes_set_region(c, _fresh.id(), 0, nullptr);
    for (const xcb_window_t window : _pending) {
        const auto found = _windows.find(window);
        if (found == _windows.end())
            continue;
        xcb_damage_subtract(c, found->second.damage.id(), XCB_NONE, _ofOneWindow.id());
        xcb_xfixes_translate_region(c, _ofOneWindow.id(),
                                    static_cast<std::int16_t>(found->second.x),
                                    static_cast<std::int16_t>(found->second.y));
        xcb_xfixes_union_region(c, _fresh.id(), _ofOneWindow.id(), _fresh.id());
    }
    for (const X11Region *part : {&_fresh, &_last, &_lastButOne})
        xcb_xfixes_union_region(c, region, part->id(), region);
    std::swap(_lastButOne, _last);
    std::swap(_last, _fresh);
    _pending.clear();
    _pendingSince = UINT64_MAX;
    _lastGathered = now;
}

X11Region X11WindowDamage::_makeRegion()
{
    X11Region region(_requests.get());
    xcb_xfixes_create_region(_requests.get(), region.id(), 0, nullptr);
    return region;
}
