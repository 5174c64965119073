#include "platform/x11/X11Keyboard.h"

#include "platform/x11/X11KeyCodes.h"

#include <algorithm>
#include <utility>

PXExpected<std::unique_ptr<X11Keyboard>>
X11Keyboard::onConnection(std::unique_ptr<X11Connection> connection)
{
    std::unique_ptr<X11Keyboard> result(new X11Keyboard(std::move(connection)));
    if (result->_connection->isLost())
        return PXFail(result->_connection->lostError());
    result->_thread.emplace("tolvane-keys", *result->_connection,
                            static_cast<X11EventThread::Delegate &>(*result));
    return result;
}

X11Keyboard::X11Keyboard(std::unique_ptr<X11Connection> connection)
    : _connection(std::move(connection)),
      _state(*_connection, X11KeyboardState::Wants::Layout),
      _hotKeys(*_connection, _state.modifiers())
{
}

std::uint16_t X11Keyboard::keyCodeForNativeKey(std::uint32_t nativeKey) const
{
    return X11KeyCodes::keyCodeForNativeKey(nativeKey);
}

bool X11Keyboard::isReserved(std::uint16_t keyCode, std::uint32_t modifiers) const
{
    // Where keymaps have the switch to another virtual terminal.
    constexpr std::uint16_t functionKeys[]
        = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111}; // F1 to F12.
    constexpr std::uint32_t both = PXModifierControl | PXModifierOption;
    return (modifiers & both) == both
        && std::find(std::begin(functionKeys), std::end(functionKeys), keyCode)
        != std::end(functionKeys);
}

void X11Keyboard::handleEvent(const xcb_generic_event_t &event)
{
    _state.handleEvent(event);
    _hotKeys.handleEvent(event);
}

std::uint64_t X11Keyboard::eventsWereHandled()
{
    if (_state.refresh())
        _hotKeys.setModifiers(_state.modifiers());
    return _state.settle() ? 0 : X11EventThread::kNever;
}
