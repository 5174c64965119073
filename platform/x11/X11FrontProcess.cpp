#include "platform/x11/X11FrontProcess.h"

#include <utility>

PXExpected<std::unique_ptr<X11FrontProcess>>
X11FrontProcess::onConnection(std::unique_ptr<X11Connection> connection)
{
    std::unique_ptr<X11FrontProcess> result(new X11FrontProcess(std::move(connection)));
    X11Connection &c = *result->_connection;
    // Ask to be told, then look: what changes in between is told again.
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c.get(), c.root(), XCB_CW_EVENT_MASK, &mask);
    result->_look();
    if (c.isLost())
        return PXFail(c.lostError());
    result->_thread.emplace("tolvane-front", c, static_cast<X11EventThread::Delegate &>(*result));
    return result;
}

X11FrontProcess::X11FrontProcess(std::unique_ptr<X11Connection> connection)
    : _connection(std::move(connection)), _atoms(*_connection), _windows(*_connection, _atoms)
{
}

bool X11FrontProcess::_look()
{
    const auto active = _windows.property(_connection->root(), _atoms.activeWindow);
    // Between two windows there is none for a moment.
    if (active.empty() || active.front() == XCB_NONE)
        return false;
    return _window.exchange(active.front()) != active.front();
}

void X11FrontProcess::handleEvent(const xcb_generic_event_t &event)
{
    if ((event.response_type & 0x7F) != XCB_PROPERTY_NOTIFY)
        return;
    const auto &property = reinterpret_cast<const xcb_property_notify_event_t &>(event);
    if (property.atom == _atoms.activeWindow && _look())
        _observers.tell();
}

void X11FrontProcess::setFrontProcess(PXProcessSerialNumber process)
{
    _windows.activate(process.lowLongOfPSN);
}
