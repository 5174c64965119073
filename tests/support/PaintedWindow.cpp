#include "tests/support/PaintedWindow.h"

#include "tests/support/TestConnection.h"
#include "tests/support/VirtualDisplay.h"

#include <algorithm>

namespace {

std::int16_t position(int value)
{
    return static_cast<std::int16_t>(value);
}

std::uint16_t length(int value)
{
    return static_cast<std::uint16_t>(value);
}

} // namespace

PaintedWindow::PaintedWindow(const VirtualDisplay &display, const PXPixelRect &rect,
                             std::uint32_t color, Kind kind, Showing showing)
    : _connection(std::make_unique<TestConnection>(display.name())), _rect(rect)
{
    xcb_connection_t *c = _connection->get();
    _window = xcb_generate_id(c);
    const std::uint32_t values[]
        = {color, kind == Kind::Unmanaged ? 1U : 0U,
           XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_VISIBILITY_CHANGE};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, _window, _connection->root(), position(rect.x),
                      position(rect.y), length(rect.width), length(rect.height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    _context = xcb_generate_id(c);
    const std::uint32_t noExposures = 0;
    xcb_create_gc(c, _context, _window, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    if (showing == Showing::Now)
        show();
    else
        _connection->sync();
}

PaintedWindow::~PaintedWindow() = default; // The window goes with its connection.

void PaintedWindow::keepWhatIsCovered()
{
    const std::uint32_t always = XCB_BACKING_STORE_ALWAYS;
    xcb_change_window_attributes(_connection->get(), _window, XCB_CW_BACKING_STORE, &always);
    _connection->sync();
}

void PaintedWindow::fill(const PXPixelRect &rect, std::uint32_t color)
{
    xcb_connection_t *c = _connection->get();
    xcb_change_gc(c, _context, XCB_GC_FOREGROUND, &color);
    const xcb_rectangle_t rectangle
        = {position(rect.x), position(rect.y), length(rect.width), length(rect.height)};
    xcb_poly_fill_rectangle(c, _window, _context, 1, &rectangle);
    _connection->sync();
}

void PaintedWindow::fillAtRandom(std::mt19937 &random, int count)
{
    const auto upTo = [&](int last) { return std::uniform_int_distribution(0, last)(random); };
    for (int i = 0; i < count; ++i)
        fill({upTo(_rect.width), upTo(_rect.height), 1 + upTo(_rect.width / 3),
              1 + upTo(_rect.height / 3)},
             static_cast<std::uint32_t>(upTo(0xFFFFFF)));
}

void PaintedWindow::scroll(int rows, std::uint32_t color)
{
    xcb_copy_area(_connection->get(), _window, _window, _context, 0, position(rows), 0, 0,
                  length(_rect.width), length(_rect.height - rows));
    fill({0, _rect.height - rows, _rect.width, rows}, color);
}

void PaintedWindow::moveTo(int x, int y)
{
    _rect.x = x;
    _rect.y = y;
    const std::uint32_t values[] = {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)};
    xcb_configure_window(_connection->get(), _window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                         values);
    _connection->sync();
}

void PaintedWindow::raise()
{
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(_connection->get(), _window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    _connection->sync();
}

void PaintedWindow::hide()
{
    xcb_unmap_window(_connection->get(), _window);
    _connection->sync();
}

void PaintedWindow::show()
{
    xcb_connection_t *c = _connection->get();
    // A window manager maps it in its own time, and one that has only just started may overlook
    // the first request.
    _connection->waitUntil(
        [&] {
            xcb_map_window(c, _window);
            const TestReply<xcb_get_window_attributes_reply_t> attributes(
                xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, _window), nullptr));
            return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        },
        "the window");
}

void PaintedWindow::setCursor(int size, int hotX, int hotY)
{
    xcb_connection_t *c = _connection->get();
    const std::uint16_t side = length(std::max(size, 1));
    const xcb_pixmap_t picture = xcb_generate_id(c);
    xcb_create_pixmap(c, 1, picture, _window, side, side);
    const xcb_gcontext_t context = xcb_generate_id(c);
    const std::uint32_t isVisible = size > 0 ? 1 : 0;
    xcb_create_gc(c, context, picture, XCB_GC_FOREGROUND, &isVisible);
    const xcb_rectangle_t all = {0, 0, side, side};
    xcb_poly_fill_rectangle(c, picture, context, 1, &all);
    const xcb_cursor_t cursor = xcb_generate_id(c);
    xcb_create_cursor(c, cursor, picture, picture, 0xFFFF, 0, 0, 0, 0, 0, length(hotX),
                      length(hotY));
    xcb_change_window_attributes(c, _window, XCB_CW_CURSOR, &cursor);
    xcb_free_cursor(c, cursor);
    xcb_free_gc(c, context);
    xcb_free_pixmap(c, picture);
    _connection->sync();
}
