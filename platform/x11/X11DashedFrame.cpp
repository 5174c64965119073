#include "platform/x11/X11DashedFrame.h"

#include <xcb/shape.h>

#include <vector>

namespace {

constexpr int kThickness = 4;
constexpr std::uint16_t kDash = 8;

/// One black and one white dash, along or down.
PXExpected<X11Pixmap> makeDashes(X11Connection &connection, bool isAlong)
{
    xcb_connection_t *c = connection.get();
    const xcb_screen_t &screen = connection.screen();
    X11Pixmap dashes(c);
    const std::uint16_t width = isAlong ? 2 * kDash : 1;
    const std::uint16_t height = isAlong ? 1 : 2 * kDash;
    const auto made
        = xcb_create_pixmap_checked(c, screen.root_depth, dashes.id(), screen.root, width, height);
    const X11GraphicsContext context(c);
    const std::uint32_t black = screen.black_pixel;
    const std::uint32_t white = screen.white_pixel;
    xcb_create_gc(c, context.id(), dashes.id(), XCB_GC_FOREGROUND, &white);
    const xcb_rectangle_t all = {0, 0, width, height};
    xcb_poly_fill_rectangle(c, dashes.id(), context.id(), 1, &all);
    xcb_change_gc(c, context.id(), XCB_GC_FOREGROUND, &black);
    const xcb_rectangle_t dash
        = {0, 0, isAlong ? kDash : std::uint16_t{1}, isAlong ? std::uint16_t{1} : kDash};
    xcb_poly_fill_rectangle(c, dashes.id(), context.id(), 1, &dash);
    if (auto checked = connection.check("xcb_create_pixmap", made); !checked)
        return PXFail(std::move(checked).error());
    return dashes;
}

} // namespace

PXExpected<std::unique_ptr<X11DashedFrame>>
X11DashedFrame::onConnection(X11Connection &connection, const X11Atoms &atoms, X11TopKeeper &keeper)
{
    std::unique_ptr<X11DashedFrame> frame(new X11DashedFrame(connection, keeper));
    // The windows keep what they are painted with.
    const auto along = makeDashes(connection, true);
    if (!along)
        return PXFail(along.error());
    const auto down = makeDashes(connection, false);
    if (!down)
        return PXFail(down.error());
    for (std::size_t i = 0; i < frame->_windows.size(); ++i)
        if (auto made = frame->_makeWindow(frame->_windows[i], i < 2 ? *along : *down, atoms);
            !made)
            return PXFail(std::move(made).error());
    return frame;
}

PXExpected<void> X11DashedFrame::_makeWindow(X11Window &window, const X11Pixmap &dashes,
                                             const X11Atoms &atoms)
{
    xcb_connection_t *c = _connection.get();
    window = X11Window(c);
    const std::uint32_t values[] = {dashes.id(), 1};
    const auto made
        = xcb_create_window_checked(c, XCB_COPY_FROM_PARENT, window.id(), _connection.root(), 0, 0,
                                    1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                                    XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                         window.id(), 0, 0, 0, nullptr);
    // A compositor's shadow would fall into the recorded pixels.
    const std::uint32_t none = 0;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window.id(), atoms.shadow, XCB_ATOM_CARDINAL, 32,
                        1, &none);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window.id(), atoms.type, XCB_ATOM_ATOM, 32, 1,
                        &atoms.typeDND);
    return _connection.check("xcb_create_window", made);
}

X11DashedFrame::~X11DashedFrame()
{
    hide();
}

void X11DashedFrame::show(const PXPixelRect &inner, const PXPixelRect &bounds)
{
    if (_shown == std::pair(inner, bounds))
        return;
    _shown = {inner, bounds};
    const int t = kThickness;
    const PXPixelRect sides[] = {
        {inner.x - t, inner.y - t, inner.width + 2 * t, t},
        {inner.x - t, inner.y + inner.height, inner.width + 2 * t, t},
        {inner.x - t, inner.y, t, inner.height},
        {inner.x + inner.width, inner.y, t, inner.height},
    };
    xcb_connection_t *c = _connection.get();
    std::vector<xcb_window_t> visible;
    for (std::size_t i = 0; i < _windows.size(); ++i) {
        const xcb_window_t window = _windows[i].id();
        const PXPixelRect side = PXIntersection(sides[i], bounds);
        if (side.isEmpty()) {
            xcb_unmap_window(c, window);
            continue;
        }
        const std::uint32_t values[]
            = {static_cast<std::uint32_t>(side.x), static_cast<std::uint32_t>(side.y),
               static_cast<std::uint32_t>(side.width), static_cast<std::uint32_t>(side.height)};
        xcb_configure_window(c, window,
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH
                                 | XCB_CONFIG_WINDOW_HEIGHT,
                             values);
        xcb_map_window(c, window);
        visible.push_back(window);
    }
    _keeper.keep(visible);
    xcb_flush(c);
}

void X11DashedFrame::hide()
{
    if (!_shown)
        return;
    _shown.reset();
    xcb_connection_t *c = _connection.get();
    std::array<xcb_window_t, 4> windows = {};
    for (std::size_t i = 0; i < _windows.size(); ++i) {
        windows[i] = _windows[i].id();
        xcb_unmap_window(c, windows[i]);
    }
    _keeper.letGo(windows);
    _connection.sync();
}
