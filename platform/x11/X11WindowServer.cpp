#include "platform/x11/X11WindowServer.h"

#include "platform/x11/X11DashedFrame.h"
#include "platform/x11/X11Settings.h"

#include <QGuiApplication>

#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <array>
#include <vector>

namespace {

constexpr std::uint32_t kAllDesktops = 0xFFFFFFFF;

// The numbers of WM_NORMAL_HINTS.
constexpr std::size_t kSizeHints = 18;
constexpr std::size_t kHintFlags = 0;
constexpr std::size_t kHintGravity = 17;
constexpr std::uint32_t kUserPosition = 1 << 0;
constexpr std::uint32_t kUserSize = 1 << 1;
constexpr std::uint32_t kHasGravity = 1 << 9;

/// The toolkit has asked for the window over its own connection, where the request may still lie:
/// when this returns the server knows the window, whoever asks.
xcb_window_t x11Window(PXWindowServer::WindowID window)
{
    // `qGuiApp` would take any application for one with windows.
    const auto *application = qobject_cast<QGuiApplication *>(QCoreApplication::instance());
    if (const auto *toolkit = application == nullptr
            ? nullptr
            : application->nativeInterface<QNativeInterface::QX11Application>())
        const X11Reply<xcb_get_input_focus_reply_t> done(xcb_get_input_focus_reply(
            toolkit->connection(), xcb_get_input_focus(toolkit->connection()), nullptr));
    return static_cast<xcb_window_t>(window);
}

} // namespace

PXExpected<std::unique_ptr<X11WindowServer>>
X11WindowServer::onConnection(std::unique_ptr<X11Connection> connection)
{
    std::unique_ptr<X11WindowServer> result(new X11WindowServer(std::move(connection)));
    if (auto watched = result->_watchCompositor(); !watched)
        return PXFail(std::move(watched).error());
    result->_thread.emplace("tolvane-windows", *result->_connection,
                            static_cast<X11EventThread::Delegate &>(*result));
    return result;
}

X11WindowServer::X11WindowServer(std::unique_ptr<X11Connection> connection)
    : _connection(std::move(connection)),
      _atoms(*_connection),
      _windows(*_connection, _atoms),
      _picker(*_connection, _windows, _atoms),
      _topKeeper(*_connection, _windows),
      _focus(*_connection, _windows, _atoms)
{
}

PXExpected<void> X11WindowServer::_watchCompositor()
{
    X11Connection &c = *_connection;
    if (auto version = c.reply<xcb_xfixes_query_version_reply>(
            "xcb_xfixes_query_version", xcb_xfixes_query_version(c.get(), 5, 0));
        !version)
        return PXFail(std::move(version).error());
    const auto firstEvent = c.firstEventOf(xcb_xfixes_id);
    if (!firstEvent)
        return PXFail(firstEvent.error());
    _selectionNotify = static_cast<std::uint8_t>(*firstEvent + XCB_XFIXES_SELECTION_NOTIFY);
    // Ask to be told, then look: what changes in between is told again.
    xcb_xfixes_select_selection_input(c.get(), c.root(), _atoms.compositingManager,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER
                                          | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY
                                          | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    auto owner = c.reply<xcb_get_selection_owner_reply>(
        "xcb_get_selection_owner", xcb_get_selection_owner(c.get(), _atoms.compositingManager));
    if (!owner)
        return PXFail(std::move(owner).error());
    _isCompositing = (*owner)->owner != XCB_NONE;
    return {};
}

void X11WindowServer::handleEvent(const xcb_generic_event_t &event)
{
    // Errors are about windows that have gone.
    if (event.response_type == 0)
        return;
    if ((event.response_type & 0x7F) != _selectionNotify) {
        _topKeeper.handleEvent(event);
        _focus.handleEvent(event);
        return;
    }
    const auto &selection = reinterpret_cast<const xcb_xfixes_selection_notify_event_t &>(event);
    const bool isCompositing = selection.owner != XCB_NONE;
    if (_isCompositing.exchange(isCompositing) != isCompositing)
        _compositingObservers.tell();
}

PXPixelRect X11WindowServer::pointerPixel() const
{
    const auto pointer = _connection->replyIfThere<xcb_query_pointer_reply>(
        xcb_query_pointer(_connection->get(), _connection->root()));
    return pointer ? PXPixelRect{pointer->root_x, pointer->root_y, 1, 1} : PXPixelRect{};
}

bool X11WindowServer::prefersReducedMotion() const
{
    return X11Settings::integer(*_connection, "Gtk/EnableAnimations") == 0;
}

void X11WindowServer::_setProperty(xcb_window_t window, xcb_atom_t name, xcb_atom_t type,
                                   std::span<const std::uint32_t> values)
{
    xcb_change_property(_connection->get(), XCB_PROP_MODE_REPLACE, window, name, type, 32,
                        static_cast<std::uint32_t>(values.size()), values.data());
}

void X11WindowServer::_addStates(xcb_window_t window, std::initializer_list<xcb_atom_t> states)
{
    // The toolkit has put its own there, and adds to ours when it shows the window.
    std::vector<std::uint32_t> all = _windows.property(window, _atoms.state);
    for (const xcb_atom_t state : states)
        if (std::find(all.begin(), all.end(), state) == all.end())
            all.push_back(state);
    _setProperty(window, _atoms.state, XCB_ATOM_ATOM, all);
}

void X11WindowServer::setLevel(WindowID id, PXWindowLevel level)
{
    if (level == PXWindowLevel::Normal)
        return;
    const xcb_window_t window = x11Window(id);
    // What a window shows stays where it is on the screen when it grows to the left or upwards.
    // By default it would jump with the corner, until the window is painted anew.
    const std::uint32_t gravity = XCB_GRAVITY_STATIC;
    xcb_change_window_attributes(_connection->get(), window, XCB_CW_BIT_GRAVITY, &gravity);
    const std::array noShadow = {std::uint32_t{0}};
    _setProperty(window, _atoms.shadow, XCB_ATOM_CARDINAL, noShadow);
    // Window managers take the first type that they know for a window that they manage, and most
    // know the dragged icon's, which nobody shades, dims or moves, only for others.
    const auto setType = [&](std::initializer_list<std::uint32_t> types) {
        _setProperty(window, _atoms.type, XCB_ATOM_ATOM, {types.begin(), types.size()});
    };
    switch (level) {
    case PXWindowLevel::Normal:
        break;
    case PXWindowLevel::DesktopIconPlusOne:
        setType({_atoms.typeDesktop});
        break;
    case PXWindowLevel::Floating:
        setType({_atoms.typeUtility, _atoms.typeNormal});
        _addStates(window, {_atoms.stateAbove});
        break;
    case PXWindowLevel::Maximum:
        setType({_atoms.typeDND, _atoms.typeNormal});
        _addStates(window, {_atoms.stateAbove});
        break;
    }
    _addStates(window, {_atoms.stateSkipTaskbar, _atoms.stateSkipPager});
    if (level == PXWindowLevel::DesktopIconPlusOne && !_windows.hasWindowManager()) {
        const std::uint32_t below = XCB_STACK_MODE_BELOW;
        xcb_configure_window(_connection->get(), window, XCB_CONFIG_WINDOW_STACK_MODE, &below);
    }
    _connection->sync(); // The toolkit's connection shows it next: ours has to be first.
}

void X11WindowServer::joinAllSpaces(WindowID window)
{
    const std::array desktop = {kAllDesktops};
    _setProperty(x11Window(window), _atoms.wmDesktop, XCB_ATOM_CARDINAL, desktop);
    _addStates(x11Window(window), {_atoms.stateSticky});
    _connection->sync();
}

void X11WindowServer::setFrame(WindowID id, const PXPixelRect &frame)
{
    if (frame.isEmpty())
        return;
    const xcb_window_t window = x11Window(id);
    // What a user placed is left there; without these a window manager places it itself, and with
    // another gravity it puts a decoration's corner at this place.
    std::vector<std::uint32_t> hints = _windows.property(window, XCB_ATOM_WM_NORMAL_HINTS);
    hints.resize(kSizeHints);
    hints[kHintFlags] |= kUserPosition | kUserSize | kHasGravity;
    hints[kHintGravity] = XCB_GRAVITY_STATIC;
    _setProperty(window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, hints);
    const std::uint32_t values[]
        = {static_cast<std::uint32_t>(frame.x), static_cast<std::uint32_t>(frame.y),
           static_cast<std::uint32_t>(frame.width), static_cast<std::uint32_t>(frame.height)};
    xcb_configure_window(_connection->get(), window,
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH
                             | XCB_CONFIG_WINDOW_HEIGHT,
                         values);
    _connection->sync();
}

void X11WindowServer::setShape(WindowID window, std::span<const PXPixelRect> parts)
{
    std::vector<xcb_rectangle_t> rectangles;
    rectangles.reserve(parts.size());
    for (const PXPixelRect &part : parts)
        if (!part.isEmpty())
            rectangles.push_back(
                {static_cast<std::int16_t>(part.x), static_cast<std::int16_t>(part.y),
                 static_cast<std::uint16_t>(part.width), static_cast<std::uint16_t>(part.height)});
    xcb_shape_rectangles(_connection->get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                         XCB_CLIP_ORDERING_UNSORTED, x11Window(window), 0, 0,
                         static_cast<std::uint32_t>(rectangles.size()), rectangles.data());
    _connection->sync();
}

void X11WindowServer::clearShape(WindowID window)
{
    xcb_shape_mask(_connection->get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, x11Window(window),
                   0, 0, XCB_NONE);
    _connection->sync();
}

void X11WindowServer::keepOnTop(WindowID window)
{
    const xcb_window_t windows[] = {x11Window(window)};
    _topKeeper.keep(windows);
}

void X11WindowServer::letGo(WindowID window)
{
    const xcb_window_t windows[] = {x11Window(window)};
    _topKeeper.letGo(windows);
}

void X11WindowServer::focus(WindowID window)
{
    _focus.focus(x11Window(window));
}

std::optional<PXPixelRect> X11WindowServer::windowFrameAt(int x, int y, WindowID own)
{
    return _picker.frameAt(x, y, x11Window(own));
}

PXExpected<std::unique_ptr<PXDashedFrame>> X11WindowServer::makeDashedFrame()
{
    return X11DashedFrame::onConnection(*_connection, _atoms, _topKeeper);
}
