#pragma once

#include "platform/PXInputMonitor.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"
#include "platform/x11/X11InputKeys.h"
#include "platform/x11/X11InputMouse.h"

#include <memory>
#include <optional>

/// Raw events of the input extension, over a connection of its own, on the thread "tolvane-input".
/// They come whatever other programs grab.
class X11InputMonitor final : public PXInputMonitor, private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11InputMonitor>>
    onConnection(std::unique_ptr<X11Connection> connection, PXInputMonitorDelegate &delegate);

private:
    X11InputMonitor(std::unique_ptr<X11Connection> connection, PXInputMonitorDelegate &delegate);

    void handleEvent(const xcb_generic_event_t &event) override;
    std::uint64_t eventsWereHandled() override;
    void connectionWasLost() override { }

    std::unique_ptr<X11Connection> _connection;
    std::uint8_t _inputExtension = 0;
    X11InputKeys _keys;
    X11InputMouse _mouse;
    std::optional<X11EventThread> _thread;
};
