#include "tests/support/VirtualDisplay.h"

#include "tests/support/TestConnection.h"

#include <QProcessEnvironment>

#include <xcb/randr.h>
#include <xcb/xfixes.h>

#include <cstring>
#include <stdexcept>
#include <string>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLongestStartMs = 60'000;

void end(QProcess &process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished();
    }
}

/// The screen's own, or one that is made: the server refuses a second of the same name.
xcb_randr_mode_t modeOfSize(const TestConnection &connection,
                            const xcb_randr_get_screen_resources_reply_t &resources,
                            std::uint16_t width, std::uint16_t height)
{
    auto modes = xcb_randr_get_screen_resources_modes_iterator(&resources);
    for (; modes.rem > 0; xcb_randr_mode_info_next(&modes))
        if (modes.data->width == width && modes.data->height == height)
            return modes.data->id;
    const std::string name = "tolvane-" + std::to_string(width) + "x" + std::to_string(height);
    xcb_randr_mode_info_t mode = {};
    mode.width = mode.htotal = width;
    mode.height = mode.vtotal = height;
    mode.name_len = static_cast<std::uint16_t>(name.size());
    const TestReply<xcb_randr_create_mode_reply_t> made(xcb_randr_create_mode_reply(
        connection.get(),
        xcb_randr_create_mode(connection.get(), connection.root(), mode,
                              static_cast<std::uint32_t>(name.size()), name.data()),
        nullptr));
    if (!made)
        throw std::runtime_error("no mode of that size");
    return made->mode;
}

} // namespace

VirtualDisplay::VirtualDisplay(int width, int height) : VirtualDisplay(width, height, Options()) { }

VirtualDisplay::VirtualDisplay(int width, int height, const Options &options)
{
    // The server picks a free number itself and writes it to the descriptor it is told.
    const QString size = u"%1x%2x24"_s.arg(width).arg(height);
    _start(_server, u"Xvfb"_s,
           QStringList{u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, size, u"-nolisten"_s,
                       u"tcp"_s, u"-noreset"_s}
               + options.serverArguments);
    while (!_server.canReadLine())
        if (!_server.waitForReadyRead(kLongestStartMs))
            throw std::runtime_error("Xvfb did not start: "
                                     + _server.readAllStandardError().toStdString());
    _name = u':' + QString::fromLatin1(_server.readLine().trimmed());
    _connection = std::make_unique<TestConnection>(_name);
    if (options.hasWindowManager)
        _startWindowManager();
    if (options.compositor != Compositor::None)
        setCompositor(options.compositor);
}

VirtualDisplay::~VirtualDisplay()
{
    end(_compositor);
    end(_windowManager);
    _connection.reset();
    end(_server);
}

void VirtualDisplay::_start(QProcess &process, const QString &program, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, _name);
    environment.remove(u"WAYLAND_DISPLAY"_s);
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForStarted(kLongestStartMs))
        throw std::runtime_error(program.toStdString() + " does not start");
}

void VirtualDisplay::_startWindowManager()
{
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(_connection->get(), _connection->root(), XCB_CW_EVENT_MASK, &mask);
    // Among the last that it sets up; before, it may overlook a window that is shown.
    const xcb_atom_t atom = _connection->atom("_NET_CLIENT_LIST");
    _start(_windowManager, u"openbox"_s, {u"--sm-disable"_s});
    _connection->waitUntil(
        [&] {
            const TestReply<xcb_get_property_reply_t> reply(
                xcb_get_property_reply(_connection->get(),
                                       xcb_get_property(_connection->get(), 0, _connection->root(),
                                                        atom, XCB_ATOM_WINDOW, 0, 1),
                                       nullptr));
            return reply && reply->type == XCB_ATOM_WINDOW;
        },
        "the window manager");
}

void VirtualDisplay::setCompositor(Compositor compositor)
{
    xcb_connection_t *c = _connection->get();
    const xcb_atom_t atom = _connection->atom("_NET_WM_CM_S0");
    const TestReply<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 5, 0), nullptr));
    xcb_xfixes_select_selection_input(c, _connection->root(), atom, 7);
    const auto hasOwner = [&] {
        const TestReply<xcb_get_selection_owner_reply_t> owner(
            xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom), nullptr));
        return owner && owner->owner != XCB_NONE;
    };
    end(_compositor);
    _connection->waitUntil([&] { return !hasOwner(); }, "the compositor's end");
    if (compositor == Compositor::None)
        return;
    _start(_compositor, u"picom"_s,
           {u"--backend"_s, compositor == Compositor::Glx ? u"glx"_s : u"xrender"_s, u"--config"_s,
            u"/dev/null"_s});
    _connection->waitUntil(hasOwner, "the compositor");
}

QImage VirtualDisplay::screenshot() const
{
    const TestConnection connection(_name);
    xcb_connection_t *c = connection.get();
    const TestReply<xcb_get_geometry_reply_t> size(
        xcb_get_geometry_reply(c, xcb_get_geometry(c, connection.root()), nullptr));
    if (!size)
        throw std::runtime_error("no screen");
    const TestReply<xcb_get_image_reply_t> reply(
        xcb_get_image_reply(c,
                            xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, connection.root(), 0, 0,
                                          size->width, size->height, ~0U),
                            nullptr));
    if (!reply)
        throw std::runtime_error("no screenshot");
    QImage image(size->width, size->height, QImage::Format_RGB32);
    const std::uint8_t *data = xcb_get_image_data(reply.get());
    for (int y = 0; y < image.height(); ++y) {
        auto *row = reinterpret_cast<QRgb *>(image.scanLine(y));
        std::memcpy(row, data + static_cast<std::size_t>(y) * size->width * 4,
                    std::size_t{size->width} * 4);
        for (int x = 0; x < image.width(); ++x)
            row[x] |= 0xFF000000;
    }
    return image;
}

void VirtualDisplay::warpPointer(int x, int y) const
{
    xcb_warp_pointer(_connection->get(), XCB_NONE, _connection->root(), 0, 0, 0, 0,
                     static_cast<std::int16_t>(x), static_cast<std::int16_t>(y));
    _connection->sync();
}

void VirtualDisplay::movePointerBy(int dx, int dy) const
{
    QProcess mover;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, _name);
    mover.setProcessEnvironment(environment);
    mover.start(u"xdotool"_s,
                {u"mousemove_relative"_s, u"--"_s, QString::number(dx), QString::number(dy)});
    if (!mover.waitForFinished(kLongestStartMs) || mover.exitCode() != 0)
        throw std::runtime_error("xdotool failed");
}

void VirtualDisplay::resize(int width, int height) const
{
    _setMode({0, 0, width, height}, true);
}

void VirtualDisplay::moveMainDisplay(const PXPixelRect &place) const
{
    _setMode(place, false);
}

void VirtualDisplay::_setMode(const PXPixelRect &place, bool resizesScreen) const
{
    xcb_connection_t *c = _connection->get();
    const auto wide = static_cast<std::uint16_t>(place.width);
    const auto high = static_cast<std::uint16_t>(place.height);
    const TestReply<xcb_randr_get_screen_resources_reply_t> resources(
        xcb_randr_get_screen_resources_reply(
            c, xcb_randr_get_screen_resources(c, _connection->root()), nullptr));
    if (!resources || resources->num_crtcs == 0 || resources->num_outputs == 0)
        throw std::runtime_error("the screen cannot change its size");
    const xcb_randr_crtc_t crtc = *xcb_randr_get_screen_resources_crtcs(resources.get());
    const xcb_randr_output_t output = *xcb_randr_get_screen_resources_outputs(resources.get());
    const auto show = [&](xcb_randr_mode_t mode) {
        const TestReply<xcb_randr_set_crtc_config_reply_t> shown(xcb_randr_set_crtc_config_reply(
            c,
            xcb_randr_set_crtc_config(c, crtc, 0, 0, static_cast<std::int16_t>(place.x),
                                      static_cast<std::int16_t>(place.y), mode,
                                      XCB_RANDR_ROTATION_ROTATE_0, mode == XCB_NONE ? 0 : 1,
                                      &output),
            nullptr));
        if (!shown || shown->status != XCB_RANDR_SET_CONFIG_SUCCESS)
            throw std::runtime_error("the screen's mode was refused");
    };

    const xcb_randr_mode_t mode = modeOfSize(*_connection, *resources, wide, high);
    xcb_randr_add_output_mode(c, output, mode);
    if (resizesScreen) {
        show(XCB_NONE);
        xcb_randr_set_screen_size(c, _connection->root(), wide, high, 300, 200);
    }
    show(mode);
}

void VirtualDisplay::kill()
{
    _server.kill();
    _server.waitForFinished();
}
