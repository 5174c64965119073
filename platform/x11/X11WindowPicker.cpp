#include "platform/x11/X11WindowPicker.h"

#include "foundation/PXGeometry.h"

#include <algorithm>

namespace {

bool contains(const PXPixelRect &rect, int x, int y)
{
    return x >= rect.x && y >= rect.y && x < rect.x + rect.width && y < rect.y + rect.height;
}

} // namespace

std::optional<PXPixelRect> X11WindowPicker::frameAt(int x, int y, xcb_window_t own) const
{
    for (const Candidate &candidate : _candidatesAt(x, y)) {
        if (_windows.isSameClient(candidate.window, own)
            || !_isInShape(candidate, XCB_SHAPE_SK_BOUNDING, x, y)
            || !_isInShape(candidate, XCB_SHAPE_SK_INPUT, x, y))
            continue;
        const xcb_window_t client = _windows.clientOf(candidate.window);
        if (_windows.isSameClient(client, own))
            continue;
        const PXPixelRect frame = _withoutShadow(candidate.frame, client);
        if (contains(frame, x, y))
            return frame;
    }
    return {};
}

/// Frontmost first.
std::vector<X11WindowPicker::Candidate> X11WindowPicker::_candidatesAt(int x, int y) const
{
    xcb_connection_t *c = _connection.get();
    std::vector<xcb_window_t> windows = _windows.childrenOf(_connection.root());
    std::reverse(windows.begin(), windows.end());
    std::vector<std::pair<xcb_get_geometry_cookie_t, xcb_get_window_attributes_cookie_t>> cookies;
    cookies.reserve(windows.size());
    for (const xcb_window_t window : windows)
        cookies.emplace_back(xcb_get_geometry(c, window), xcb_get_window_attributes(c, window));
    std::vector<Candidate> candidates;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const auto place = _connection.replyIfThere<xcb_get_geometry_reply>(cookies[i].first);
        const auto attributes
            = _connection.replyIfThere<xcb_get_window_attributes_reply>(cookies[i].second);
        // A compositor's overlay is the screen itself.
        if (!place || !attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE
            || attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT
            || _connection.isServersOwn(windows[i]))
            continue;
        const int border = place->border_width;
        const PXPixelRect frame
            = {place->x, place->y, place->width + 2 * border, place->height + 2 * border};
        if (contains(frame, x, y))
            candidates.push_back({windows[i], frame, border});
    }
    return candidates;
}

bool X11WindowPicker::_isInShape(const Candidate &candidate, xcb_shape_kind_t kind, int x,
                                 int y) const
{
    if (!_hasShapes)
        return true;
    // A window without a shape answers with all of itself.
    const auto shape = _connection.replyIfThere<xcb_shape_get_rectangles_reply>(
        xcb_shape_get_rectangles(_connection.get(), candidate.window, kind));
    if (!shape)
        return false;
    const xcb_rectangle_t *first = xcb_shape_get_rectangles_rectangles(shape.get());
    // Shapes count from the inside of the border.
    const int left = candidate.frame.x + candidate.border;
    const int top = candidate.frame.y + candidate.border;
    return std::any_of(
        first, first + xcb_shape_get_rectangles_rectangles_length(shape.get()),
        [&](const xcb_rectangle_t &part) {
            return contains({part.x, part.y, part.width, part.height}, x - left, y - top);
        });
}

PXPixelRect X11WindowPicker::_withoutShadow(const PXPixelRect &frame, xcb_window_t client) const
{
    const std::vector<std::uint32_t> extents = _windows.property(client, _atoms.gtkFrameExtents);
    if (extents.size() != 4)
        return frame;
    // Left, right, top, bottom. Any program can write anything there.
    const auto within = [](std::uint32_t value, int length) {
        return static_cast<int>(std::min(value, static_cast<std::uint32_t>(length)));
    };
    const int left = within(extents[0], frame.width);
    const int top = within(extents[2], frame.height);
    return {frame.x + left, frame.y + top,
            frame.width - left - within(extents[1], frame.width - left),
            frame.height - top - within(extents[3], frame.height - top)};
}
