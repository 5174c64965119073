#include "platform/x11/X11InputKeys.h"

#include "platform/x11/X11KeyCharacters.h"
#include "platform/x11/X11KeyCodes.h"
#include "platform/x11/X11ServerTime.h"

#include "foundation/PXClock.h"

#include <algorithm>
#include <utility>

namespace {

double hostSeconds()
{
    return static_cast<double>(PXCurrentHostTime()) / 1e9;
}

constexpr std::uint32_t kLargestKey = 255;

} // namespace

X11InputKeys::X11InputKeys(X11Connection &connection, PXInputMonitorDelegate &delegate)
    : _connection(connection),
      _delegate(delegate),
      _keyboard(connection, X11KeyboardState::Wants::EveryModifier),
      _repeat(connection)
{
}

void X11InputKeys::keyWentDown(std::uint32_t number, std::uint16_t source, xcb_timestamp_t time)
{
    // The server has said by now what the modifier before does.
    _tellModifier();
    _keyboard.refresh();
    if (number > kLargestKey)
        return;
    const auto key = static_cast<xcb_keycode_t>(number);
    bool isARepeat = false;
    if (const Held *held = _held(key)) {
        // Some keyboards, those of remote desktops above all, repeat by themselves, and the server
        // then waits with its own repeats.
        isARepeat = std::any_of(_down.begin(), _down.end(), [&](const Held &other) {
            return other.key == key && other.source == source;
        });
        if (!isARepeat)
            _down.push_back({key, source, held->isModifier});
        if (!isARepeat || held->isModifier)
            return;
    } else {
        _down.push_back({key, source, X11KeyCharacters::isModifier(_keyboard.firstSymbol(key))});
    }
    _repeat.keyWentDown(key);
    const double timestamp = X11Seconds(time);
    _serversLead = timestamp - hostSeconds();
    if (_down.back().isModifier && !isARepeat)
        _pending = {_event(PXKeyEventType::FlagsChanged, key, timestamp), key, XCB_KEY_PRESS};
    else
        _tellDown(key, timestamp, isARepeat);
}

void X11InputKeys::keyWentUp(std::uint32_t number, std::uint16_t source, xcb_timestamp_t time)
{
    _tellModifier();
    _keyboard.refresh();
    const auto found = std::find_if(_down.begin(), _down.end(), [&](const Held &held) {
        return held.key == number && held.source == source;
    });
    if (found == _down.end())
        return; // It went down before anybody watched.
    const Held held = *found;
    _down.erase(found);
    if (_held(held.key))
        return;
    _repeat.keyWentUp(held.key);
    const double timestamp = X11Seconds(time);
    if (held.isModifier)
        _pending = {_event(PXKeyEventType::FlagsChanged, held.key, timestamp), held.key,
                    XCB_KEY_RELEASE};
    else
        _delegate.inputMonitorKeyEvent(_event(PXKeyEventType::KeyUp, held.key, timestamp));
}

void X11InputKeys::handleEvent(const xcb_generic_event_t &event)
{
    _keyboard.handleEvent(event);
    const int type = _keyboard.typeOf(event);
    if (type == XCB_XKB_CONTROLS_NOTIFY)
        _repeat.readControls();
    if (type != XCB_XKB_STATE_NOTIFY || !_pending)
        return;
    const auto &state = reinterpret_cast<const xcb_xkb_state_notify_event_t &>(event);
    if (state.keycode == _pending->key && state.eventType == _pending->type)
        _tellModifier();
}

std::uint64_t X11InputKeys::eventsWereHandled()
{
    if (_keyboard.refresh())
        _repeat.readControls();
    if (_keyboard.settle())
        return 0;
    if (_pending && std::exchange(_pending->wasAwaited, true))
        _tellModifier(); // It changes nothing: the other key for it is held, too.
    if (_pending) {
        // When this returns, what it changes is among our events.
        _connection.sync();
        return 0;
    }
    if (const auto key = _repeat.keyThatIsDue())
        if (const Held *held = _held(*key); held && !held->isModifier)
            _tellDown(*key, hostSeconds() + _serversLead, true);
    return _repeat.deadline();
}

const X11InputKeys::Held *X11InputKeys::_held(xcb_keycode_t key) const
{
    const auto found = std::find_if(_down.begin(), _down.end(),
                                    [key](const Held &held) { return held.key == key; });
    return found == _down.end() ? nullptr : &*found;
}

PXKeyEvent X11InputKeys::_event(PXKeyEventType type, xcb_keycode_t key, double timestamp) const
{
    PXKeyEvent event;
    event.type = type;
    event.modifierFlags = _keyboard.modifierFlags();
    event.keyCode = X11KeyCodes::keyCodeForNativeKey(key);
    event.timestamp = timestamp;
    event.layout = _keyboard.layout();
    return event;
}

void X11InputKeys::_tellDown(xcb_keycode_t key, double timestamp, bool isARepeat)
{
    PXKeyEvent event = _event(PXKeyEventType::KeyDown, key, timestamp);
    event.isARepeat = isARepeat;
    constexpr std::uint32_t commands = PXModifierControl | PXModifierCommand;
    if ((event.modifierFlags & commands) == 0 && _keyboard.state())
        event.characters = _text.keyWentDown(*_keyboard.state(), key);
    _delegate.inputMonitorKeyEvent(event);
}

void X11InputKeys::_tellModifier()
{
    if (!_pending)
        return;
    PXKeyEvent event = std::exchange(_pending, {})->event;
    event.modifierFlags = _keyboard.modifierFlags();
    event.layout = _keyboard.layout();
    _delegate.inputMonitorKeyEvent(event);
}
