#include "platform/x11/X11InputMonitor.h"

#include <xcb/xinput.h>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// A client that announces less than 2.1 hears nothing while another one grabs the device, and has
/// to announce it before it selects events.
PXExpected<void> announceRawEvents(X11Connection &connection)
{
    if (connection.hasExtension(xcb_input_id)) {
        const auto version = connection.replyIfThere<xcb_input_xi_query_version_reply>(
            xcb_input_xi_query_version(connection.get(), 2, 2));
        if (version
            && (version->major_version > 2
                || (version->major_version == 2 && version->minor_version >= 1)))
            return {};
    }
    if (connection.isLost())
        return PXFail(connection.lostError());
    return PXFail({kPXDisplayErrorDomain,
                   PXDisplayNotSupported,
                   u"The X server lacks the extension XInputExtension 2.1, which tells of keys and "
                   "clicks"_s,
                   u"Switch it on in the server's configuration."_s,
                   {}});
}

} // namespace

PXExpected<std::unique_ptr<X11InputMonitor>>
X11InputMonitor::onConnection(std::unique_ptr<X11Connection> connection,
                              PXInputMonitorDelegate &delegate)
{
    if (auto announced = announceRawEvents(*connection); !announced)
        return PXFail(std::move(announced).error());
    std::unique_ptr<X11InputMonitor> result(new X11InputMonitor(std::move(connection), delegate));
    X11Connection &c = *result->_connection;
    result->_mouse.watch();
    const auto *extension = xcb_get_extension_data(c.get(), &xcb_input_id);
    if (c.isLost() || !extension)
        return PXFail(c.lostError());
    result->_inputExtension = extension->major_opcode;
    result->_thread.emplace("tolvane-input", c, static_cast<X11EventThread::Delegate &>(*result));
    return result;
}

X11InputMonitor::X11InputMonitor(std::unique_ptr<X11Connection> connection,
                                 PXInputMonitorDelegate &delegate)
    : _connection(std::move(connection)),
      _keys(*_connection, delegate),
      _mouse(*_connection, delegate)
{
}

void X11InputMonitor::handleEvent(const xcb_generic_event_t &event)
{
    _keys.handleEvent(event);
    if (event.response_type == XCB_MAPPING_NOTIFY
        && reinterpret_cast<const xcb_mapping_notify_event_t &>(event).request
            == XCB_MAPPING_POINTER)
        _mouse.readMapping();
    const auto &generic = reinterpret_cast<const xcb_ge_generic_event_t &>(event);
    if (event.response_type != XCB_GE_GENERIC || generic.extension != _inputExtension)
        return;
    // Keys and buttons have the same layout.
    const auto &raw = reinterpret_cast<const xcb_input_raw_key_press_event_t &>(event);
    switch (raw.event_type) {
    case XCB_INPUT_RAW_KEY_PRESS:
        _keys.keyWentDown(raw.detail, raw.sourceid, raw.time);
        break;
    case XCB_INPUT_RAW_KEY_RELEASE:
        _keys.keyWentUp(raw.detail, raw.sourceid, raw.time);
        break;
    case XCB_INPUT_RAW_BUTTON_PRESS:
        _mouse.buttonWentDown(raw.detail, raw.sourceid);
        break;
    case XCB_INPUT_RAW_BUTTON_RELEASE:
        _mouse.buttonWentUp(raw.detail, raw.sourceid);
        break;
    case XCB_INPUT_RAW_MOTION:
        _mouse.pointerMoved();
        break;
    default:
        break;
    }
}

std::uint64_t X11InputMonitor::eventsWereHandled()
{
    const std::uint64_t mouse = _mouse.eventsWereHandled();
    return std::min(mouse, _keys.eventsWereHandled());
}
