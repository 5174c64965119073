#pragma once

#include "platform/PXKeyboard.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11KeyboardState.h"

#include <memory>
#include <optional>

/// Layout and hot keys over a connection of its own, followed on the thread "tolvane-keys".
class X11Keyboard final : public PXKeyboard, private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11Keyboard>>
    onConnection(std::unique_ptr<X11Connection> connection);

    [[nodiscard]] std::shared_ptr<const PXKeyboardLayout> layout() const override
    {
        return _state.layout();
    }
    [[nodiscard]] std::uint16_t keyCodeForNativeKey(std::uint32_t nativeKey) const override;
    [[nodiscard]] bool isReserved(std::uint16_t keyCode, std::uint32_t modifiers) const override;
    PXExpected<std::unique_ptr<PXHotKey>>
    registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                   std::function<void(double timestamp)> pressed) override
    {
        return _hotKeys.add(keyCode, modifiers, std::move(pressed));
    }

private:
    explicit X11Keyboard(std::unique_ptr<X11Connection> connection);

    void handleEvent(const xcb_generic_event_t &event) override;
    std::uint64_t eventsWereHandled() override;
    void connectionWasLost() override { }

    std::unique_ptr<X11Connection> _connection;
    X11KeyboardState _state;
    X11HotKeys _hotKeys;
    std::optional<X11EventThread> _thread;
};
