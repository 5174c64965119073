#include "platform/x11/X11KeyRepeat.h"

#include "platform/x11/X11Xkb.h"

#include "foundation/PXClock.h"

#include <algorithm>

namespace {

constexpr xcb_xkb_device_spec_t kCoreKeyboard = XCB_XKB_ID_USE_CORE_KBD;
constexpr std::uint64_t kMs = 1'000'000;

} // namespace

X11KeyRepeat::X11KeyRepeat(X11Connection &connection) : _connection(connection)
{
    if (!connection.hasExtension(xcb_xkb_id))
        return;
    constexpr std::uint16_t controls = XCB_XKB_EVENT_TYPE_CONTROLS_NOTIFY;
    xcb_xkb_select_events(connection.get(), kCoreKeyboard, controls, 0, controls, 0, 0, nullptr);
    readControls();
}

void X11KeyRepeat::readControls()
{
    const auto reply = _connection.reply<xcb_xkb_get_controls_reply>(
        "xcb_xkb_get_controls", xcb_xkb_get_controls(_connection.get(), kCoreKeyboard));
    if (!reply)
        return;
    _delay = (*reply)->repeatDelay * kMs;
    _interval = std::max<std::uint64_t>((*reply)->repeatInterval, 1) * kMs;
    _repeats = {};
    if (((*reply)->enabledControls & XCB_XKB_BOOL_CTRL_REPEAT_KEYS) != 0)
        std::copy_n((*reply)->perKeyRepeat, _repeats.size(), _repeats.begin());
}

void X11KeyRepeat::keyWentDown(xcb_keycode_t key)
{
    if ((_repeats[key / 8] & (1 << (key % 8))) == 0)
        return; // The one before goes on.
    _key = key;
    _deadline = PXCurrentHostTime() + _delay;
}

void X11KeyRepeat::keyWentUp(xcb_keycode_t key)
{
    if (key == _key)
        _deadline = X11EventThread::kNever;
}

std::optional<xcb_keycode_t> X11KeyRepeat::keyThatIsDue()
{
    const std::uint64_t now = PXCurrentHostTime();
    if (now < _deadline)
        return {};
    if ((_repeats[_key / 8] & (1 << (_key % 8))) == 0) {
        _deadline = X11EventThread::kNever; // Switched off in the meantime.
        return {};
    }
    // What was missed on a busy machine is not made up for.
    _deadline = std::max(_deadline + _interval, now);
    return _key;
}
