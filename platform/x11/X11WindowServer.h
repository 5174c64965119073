#pragma once

#include "platform/PXWindowServer.h"
#include "platform/x11/X11Atoms.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"
#include "platform/x11/X11TopKeeper.h"
#include "platform/x11/X11WindowFocus.h"
#include "platform/x11/X11WindowPicker.h"
#include "platform/x11/X11Windows.h"

#include <atomic>
#include <initializer_list>
#include <memory>
#include <optional>

/// Properties and requests that window managers and compositors understand, over a connection of
/// its own; follows the screen's events on the thread "tolvane-windows".
class X11WindowServer final : public PXWindowServer, private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11WindowServer>>
    onConnection(std::unique_ptr<X11Connection> connection);

    [[nodiscard]] bool isCompositing() const override { return _isCompositing; }
    PXObservation addCompositingObserver(std::function<void()> changed) override
    {
        return _compositingObservers.add(std::move(changed));
    }

    [[nodiscard]] PXPixelRect pointerPixel() const override;
    [[nodiscard]] bool prefersReducedMotion() const override;

    void setLevel(WindowID window, PXWindowLevel level) override;
    void joinAllSpaces(WindowID window) override;
    void setFrame(WindowID window, const PXPixelRect &frame) override;
    void setShape(WindowID window, std::span<const PXPixelRect> parts) override;
    void clearShape(WindowID window) override;

    void keepOnTop(WindowID window) override;
    void letGo(WindowID window) override;

    void focus(WindowID window) override;
    void giveFocusBack() override { _focus.giveBack(); }

    [[nodiscard]] std::optional<PXPixelRect> windowFrameAt(int x, int y, WindowID own) override;

    [[nodiscard]] PXExpected<std::unique_ptr<PXDashedFrame>> makeDashedFrame() override;

private:
    explicit X11WindowServer(std::unique_ptr<X11Connection> connection);
    PXExpected<void> _watchCompositor();
    void _setProperty(xcb_window_t window, xcb_atom_t name, xcb_atom_t type,
                      std::span<const std::uint32_t> values);
    void _addStates(xcb_window_t window, std::initializer_list<xcb_atom_t> states);

    void handleEvent(const xcb_generic_event_t &event) override;
    std::uint64_t eventsWereHandled() override { return _topKeeper.eventsWereHandled(); }
    void connectionWasLost() override { }

    std::unique_ptr<X11Connection> _connection;
    const X11Atoms _atoms;
    const X11Windows _windows;
    const X11WindowPicker _picker;
    X11TopKeeper _topKeeper;
    X11WindowFocus _focus;
    std::uint8_t _selectionNotify = 0;
    std::atomic<bool> _isCompositing = false;
    PXObservers<> _compositingObservers;
    std::optional<X11EventThread> _thread;
};
