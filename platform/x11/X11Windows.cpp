#include "platform/x11/X11Windows.h"

namespace {

/// Window managers put one to three windows around a client; below that are its own widgets.
constexpr int kDeepestClient = 4;
constexpr std::uint32_t kLongestProperty = 1024;

} // namespace

std::vector<xcb_window_t> X11Windows::childrenOf(xcb_window_t window) const
{
    const auto tree
        = _connection.replyIfThere<xcb_query_tree_reply>(xcb_query_tree(_connection.get(), window));
    if (!tree)
        return {};
    const xcb_window_t *first = xcb_query_tree_children(tree.get());
    return {first, first + xcb_query_tree_children_length(tree.get())};
}

std::optional<xcb_window_t> X11Windows::topLevelOf(xcb_window_t window) const
{
    for (;;) {
        const auto tree = _connection.replyIfThere<xcb_query_tree_reply>(
            xcb_query_tree(_connection.get(), window));
        if (!tree || tree->parent == XCB_NONE)
            return {};
        if (tree->parent == tree->root)
            return window;
        window = tree->parent;
    }
}

xcb_window_t X11Windows::clientOf(xcb_window_t topLevel) const
{
    xcb_connection_t *c = _connection.get();
    std::vector<xcb_window_t> level = {topLevel};
    for (int depth = 0; depth < kDeepestClient && !level.empty(); ++depth) {
        std::vector<xcb_get_property_cookie_t> cookies;
        cookies.reserve(level.size());
        for (const xcb_window_t window : level)
            cookies.push_back(xcb_get_property(c, 0, window, _atoms.wmState, XCB_ATOM_ANY, 0, 0));
        std::optional<xcb_window_t> client;
        for (std::size_t i = 0; i < level.size(); ++i) {
            const auto mark = _connection.replyIfThere<xcb_get_property_reply>(cookies[i]);
            if (mark && mark->type != XCB_NONE && !client)
                client = level[i];
        }
        if (client)
            return *client;
        std::vector<xcb_window_t> next;
        for (const xcb_window_t window : level) {
            const std::vector<xcb_window_t> children = childrenOf(window);
            next.insert(next.end(), children.begin(), children.end());
        }
        level = std::move(next);
    }
    return topLevel;
}

bool X11Windows::isSameClient(xcb_window_t a, xcb_window_t b) const
{
    const std::uint32_t ofClient = ~xcb_get_setup(_connection.get())->resource_id_mask;
    return (a & ofClient) == (b & ofClient);
}

bool X11Windows::isViewable(xcb_window_t window) const
{
    const auto attributes = _connection.replyIfThere<xcb_get_window_attributes_reply>(
        xcb_get_window_attributes(_connection.get(), window));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

bool X11Windows::exists(xcb_window_t window) const
{
    return _connection.replyIfThere<xcb_get_geometry_reply>(
               xcb_get_geometry(_connection.get(), window))
        != nullptr;
}

std::vector<std::uint32_t> X11Windows::property(xcb_window_t window, xcb_atom_t name) const
{
    const auto reply = _connection.replyIfThere<xcb_get_property_reply>(xcb_get_property(
        _connection.get(), 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, kLongestProperty));
    if (!reply || reply->format != 32)
        return {};
    const auto *first = static_cast<const std::uint32_t *>(xcb_get_property_value(reply.get()));
    return {first, first + reply->value_len};
}

bool X11Windows::hasWindowManager() const
{
    // A window manager that crashed leaves the root's property behind, but not the window.
    const std::vector<std::uint32_t> check = property(_connection.root(), _atoms.supportingCheck);
    return !check.empty() && !property(check.front(), _atoms.supportingCheck).empty();
}

void X11Windows::activate(xcb_window_t window) const
{
    if (!exists(window))
        return;
    constexpr std::uint32_t isFromPager = 2; // One that the user controls, so it is believed.
    xcb_client_message_event_t message = {};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = _atoms.activeWindow;
    message.data.data32[0] = isFromPager;
    message.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(_connection.get(), 0, _connection.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char *>(&message));
    xcb_flush(_connection.get());
}
