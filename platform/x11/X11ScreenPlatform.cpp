#include "platform/x11/X11ScreenPlatform.h"

#include "platform/x11/X11CursorSource.h"
#include "platform/x11/X11DamageSource.h"
#include "platform/x11/X11DisplayLink.h"
#include "platform/x11/X11FrameBufferReader.h"
#include "platform/x11/X11FrontProcess.h"
#include "platform/x11/X11InputMonitor.h"
#include "platform/x11/X11Keyboard.h"
#include "platform/x11/X11MainDisplay.h"
#include "platform/x11/X11VerticalBlank.h"
#include "platform/x11/X11WindowServer.h"

#include <xcb/randr.h>

#include <algorithm>
#include <atomic>
#include <csignal>

using namespace Qt::StringLiterals;

namespace {

bool isWaylandSession()
{
    return qEnvironmentVariable("XDG_SESSION_TYPE") == "wayland"_L1
        || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

PXError needsX11Session()
{
    return {kPXDisplayErrorDomain,
            PXDisplayNotSupported,
            u"Tolvane needs an X11 session; this is a Wayland session"_s,
            u"Log in to an X11 session."_s,
            {}};
}

/// Xwayland before version 23.1 lacks the extension that tells, but names its outputs so.
bool hasXwaylandOutput(X11Connection &connection)
{
    xcb_connection_t *c = connection.get();
    if (!connection.hasExtension(xcb_randr_id))
        return false;
    const auto version = connection.reply<xcb_randr_query_version_reply>(
        "xcb_randr_query_version", xcb_randr_query_version(c, 1, 3));
    if (!version || ((*version)->major_version == 1 && (*version)->minor_version < 3))
        return false;
    const auto resources = connection.reply<xcb_randr_get_screen_resources_current_reply>(
        "xcb_randr_get_screen_resources_current",
        xcb_randr_get_screen_resources_current(c, connection.root()));
    if (!resources)
        return false;
    const auto *outputs = xcb_randr_get_screen_resources_current_outputs(resources->get());
    const int count = xcb_randr_get_screen_resources_current_outputs_length(resources->get());
    return std::any_of(outputs, outputs + count, [&](xcb_randr_output_t output) {
        const X11Reply<xcb_randr_get_output_info_reply_t> info(xcb_randr_get_output_info_reply(
            c, xcb_randr_get_output_info(c, output, (*resources)->config_timestamp), nullptr));
        return info
            && QByteArrayView(xcb_randr_get_output_info_name(info.get()),
                              xcb_randr_get_output_info_name_length(info.get()))
                   .startsWith("XWAYLAND");
    });
}

/// Such a server shows the windows of old programs inside a Wayland session, and its root
/// window is black.
bool isXwayland(X11Connection &connection)
{
    constexpr auto name = "XWAYLAND"_L1;
    const auto reply = connection.reply<xcb_query_extension_reply>(
        "xcb_query_extension",
        xcb_query_extension(connection.get(), static_cast<std::uint16_t>(name.size()),
                            name.data()));
    return (reply && (*reply)->present != 0) || hasXwaylandOutput(connection);
}

/// What recording cannot do without, by the name that users find in their server's log.
const char *missingExtension(const X11Connection &connection)
{
    if (!connection.hasExtension(xcb_damage_id))
        return "DAMAGE";
    if (!connection.hasExtension(xcb_xfixes_id))
        return "XFIXES";
    return nullptr;
}

void ignoreBrokenPipes()
{
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    if ((action.sa_flags & SA_SIGINFO) != 0 || action.sa_handler != SIG_DFL)
        return;
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

class X11Screen final : public PXScreenPlatform {
public:
    X11Screen(QString displayName, std::shared_ptr<std::atomic<bool>> lossIsLogged,
              X11PixelWay pixelWay, std::unique_ptr<X11MainDisplay> mainDisplay)
        : _displayName(std::move(displayName)),
          _lossIsLogged(std::move(lossIsLogged)),
          _pixelWay(pixelWay),
          _mainDisplay(std::move(mainDisplay))
    {
    }

    PXMainDisplay &mainDisplay() override { return *_mainDisplay; }

    PXExpected<std::unique_ptr<PXDamageSource>> makeDamageSource() override
    {
        return _onTwoConnections<PXDamageSource>(X11DamageSource::onConnections);
    }

    PXExpected<std::unique_ptr<PXCursorSource>> makeCursorSource() override
    {
        return _onTwoConnections<PXCursorSource>(X11CursorSource::onConnections);
    }

    PXExpected<std::unique_ptr<PXFrameBufferReader>> makeFrameBufferReader() override
    {
        auto connection = X11Connection::open(_displayName, _lossIsLogged);
        if (!connection)
            return PXFail(std::move(connection).error());
        return X11FrameBufferReader::onConnection(*std::move(connection), _pixelWay);
    }

    PXExpected<std::unique_ptr<PXDisplayLink>> makeDisplayLink() override
    {
        // The server's timer would do what ours does, and wake two processes for it instead of one.
        if (!_mainDisplay->hasRefreshes())
            return std::make_unique<X11DisplayLink>(*_mainDisplay, nullptr);
        auto connection = X11Connection::open(_displayName, _lossIsLogged);
        if (!connection)
            return PXFail(std::move(connection).error());
        auto blank = X11VerticalBlank::onConnection(*std::move(connection), _mainDisplay->bounds());
        return std::make_unique<X11DisplayLink>(*_mainDisplay, std::move(blank));
    }

    PXExpected<std::unique_ptr<PXWindowServer>> makeWindowServer() override
    {
        return _onOneConnection<PXWindowServer>(X11WindowServer::onConnection);
    }
    PXExpected<std::unique_ptr<PXKeyboard>> makeKeyboard() override
    {
        return _onOneConnection<PXKeyboard>(X11Keyboard::onConnection);
    }
    PXExpected<std::unique_ptr<PXInputMonitor>>
    makeInputMonitor(PXInputMonitorDelegate &delegate) override
    {
        return _onOneConnection<PXInputMonitor>([&](std::unique_ptr<X11Connection> connection) {
            return X11InputMonitor::onConnection(std::move(connection), delegate);
        });
    }
    PXExpected<std::unique_ptr<PXFrontProcess>> makeFrontProcess() override
    {
        return _onOneConnection<PXFrontProcess>(X11FrontProcess::onConnection);
    }

private:
    template <typename Service, typename Make>
    PXExpected<std::unique_ptr<Service>> _onOneConnection(Make make)
    {
        auto connection = X11Connection::open(_displayName, _lossIsLogged);
        if (!connection)
            return PXFail(std::move(connection).error());
        return make(*std::move(connection));
    }
    template <typename Service, typename Make>
    PXExpected<std::unique_ptr<Service>> _onTwoConnections(Make make)
    {
        auto first = X11Connection::open(_displayName, _lossIsLogged);
        if (!first)
            return PXFail(std::move(first).error());
        auto second = X11Connection::open(_displayName, _lossIsLogged);
        if (!second)
            return PXFail(std::move(second).error());
        return make(*std::move(first), *std::move(second));
    }

    const QString _displayName;
    const std::shared_ptr<std::atomic<bool>> _lossIsLogged; // All connections'.
    const X11PixelWay _pixelWay;
    std::unique_ptr<X11MainDisplay> _mainDisplay;
};

} // namespace

PXExpected<std::unique_ptr<PXScreenPlatform>> X11ScreenPlatform::open(const QString &displayName,
                                                                      X11PixelWay pixelWay)
{
    ignoreBrokenPipes();
    const auto lossIsLogged = std::make_shared<std::atomic<bool>>(false);
    auto connection = X11Connection::open(displayName, lossIsLogged);
    if (!connection)
        return PXFail(isWaylandSession() ? needsX11Session() : std::move(connection).error());
    // Whatever the session says of itself: a shell of another one may have DISPLAY alone.
    if (isXwayland(**connection))
        return PXFail(needsX11Session());
    if (const char *missing = missingExtension(**connection))
        return PXFail({kPXDisplayErrorDomain,
                       PXDisplayNotSupported,
                       u"The X server lacks the extension %1"_s.arg(QLatin1StringView(missing)),
                       u"Switch it on in the server's configuration."_s,
                       {}});
    auto mainDisplay = X11MainDisplay::onConnection(*std::move(connection));
    if (!mainDisplay)
        return PXFail(std::move(mainDisplay).error());
    return std::make_unique<X11Screen>(displayName, lossIsLogged, pixelWay,
                                       *std::move(mainDisplay));
}
