#pragma once

#include "platform/PXFrontProcess.h"
#include "platform/x11/X11Atoms.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"
#include "platform/x11/X11Windows.h"

#include <atomic>
#include <memory>
#include <optional>

/// What the window manager calls the active window, over a connection of its own, followed on the
/// thread "tolvane-front".
class X11FrontProcess final : public PXFrontProcess, private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11FrontProcess>>
    onConnection(std::unique_ptr<X11Connection> connection);

    [[nodiscard]] PXProcessSerialNumber frontProcess() const override { return {0, _window}; }
    [[nodiscard]] bool isSameProcess(PXProcessSerialNumber a,
                                     PXProcessSerialNumber b) const override
    {
        return _windows.isSameClient(a.lowLongOfPSN, b.lowLongOfPSN);
    }
    PXObservation addSwitchedObserver(std::function<void()> switched) override
    {
        return _observers.add(std::move(switched));
    }
    void setFrontProcess(PXProcessSerialNumber process) override;

private:
    explicit X11FrontProcess(std::unique_ptr<X11Connection> connection);
    /// Whether it is another one than before.
    bool _look();

    void handleEvent(const xcb_generic_event_t &event) override;
    void connectionWasLost() override { }

    std::unique_ptr<X11Connection> _connection;
    const X11Atoms _atoms;
    const X11Windows _windows;
    std::atomic<xcb_window_t> _window = XCB_NONE;
    PXObservers<> _observers;
    std::optional<X11EventThread> _thread;
};
