#include "platform/x11/X11HotKeys.h"

#include "platform/x11/X11KeyCodes.h"
#include "platform/x11/X11ServerTime.h"
#include "platform/x11/X11Xkb.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kLargestKey = 255;

PXError refusal(const QString &description, int serverCode)
{
    return {kPXDisplayErrorDomain,
            PXDisplayRequestRefused,
            description,
            {},
            {{u"trueErrorCode"_s, serverCode}}};
}

} // namespace

class X11HotKeys::HotKey final : public PXHotKey {
public:
    HotKey(X11HotKeys &owner, std::shared_ptr<Entry> entry)
        : _owner(owner), _entry(std::move(entry))
    {
    }
    ~HotKey() override
    {
        _owner._remove(_entry);
        _entry->gate.shut();
    }
    HotKey(const HotKey &) = delete;
    HotKey &operator=(const HotKey &) = delete;

private:
    X11HotKeys &_owner;
    std::shared_ptr<Entry> _entry;
};

X11HotKeys::X11HotKeys(X11Connection &connection, const X11Modifiers &modifiers)
    : _connection(connection), _modifiers(modifiers)
{
    if (connection.hasExtension(xcb_xkb_id))
        xcb_xkb_per_client_flags(connection.get(), XCB_XKB_ID_USE_CORE_KBD,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0);
}

PXExpected<std::unique_ptr<PXHotKey>> X11HotKeys::add(std::uint16_t keyCode, std::uint32_t flags,
                                                      std::function<void(double)> pressed)
{
    const auto key = X11KeyCodes::nativeKeyForKeyCode(keyCode);
    if (!key || *key > kLargestKey)
        return PXFail(
            refusal(u"No keyboard here has a key of the code %1"_s.arg(keyCode), XCB_VALUE));
    auto entry = std::make_shared<Entry>();
    entry->key = static_cast<xcb_keycode_t>(*key);
    entry->flags = flags & PXModifierMask;
    entry->pressed = std::move(pressed);
    const PXLock lock(_lock);
    // The server would let one client take a combination twice.
    const bool isOurs = std::any_of(_entries.begin(), _entries.end(), [&](const auto &other) {
        return other->key == entry->key && other->flags == entry->flags;
    });
    if (isOurs)
        return PXFail(refusal(u"The combination of keys is in use already"_s, XCB_ACCESS));
    if (auto grabbed = _grab(*entry); !grabbed)
        return PXFail(std::move(grabbed).error());
    _entries.push_back(entry);
    return std::make_unique<HotKey>(*this, std::move(entry));
}

std::vector<std::uint16_t> X11HotKeys::_statesFor(std::uint32_t flags) const
{
    const std::uint8_t held = _modifiers.serverModifiers(flags);
    std::vector<std::uint16_t> states;
    for (const std::uint8_t locks : _modifiers.lockStates())
        states.push_back(static_cast<std::uint16_t>(held | locks));
    return states;
}

/// All of its states or none.
PXExpected<void> X11HotKeys::_grab(Entry &entry)
{
    entry.states = _statesFor(entry.flags);
    std::vector<xcb_void_cookie_t> cookies;
    for (const std::uint16_t state : entry.states)
        cookies.push_back(xcb_grab_key_checked(_connection.get(), 0, _connection.root(), state,
                                               entry.key, XCB_GRAB_MODE_ASYNC,
                                               XCB_GRAB_MODE_ASYNC));
    auto grabbed = _connection.check("xcb_grab_key", cookies);
    if (!grabbed) {
        _giveBack(entry.key, entry.states);
        entry.states.clear();
    }
    return grabbed;
}

/// When this returns others can take them.
void X11HotKeys::_giveBack(xcb_keycode_t key, std::span<const std::uint16_t> states)
{
    for (const std::uint16_t state : states)
        xcb_ungrab_key(_connection.get(), key, _connection.root(), state);
    _connection.sync();
}

void X11HotKeys::_remove(const std::shared_ptr<Entry> &entry)
{
    const PXLock lock(_lock);
    std::erase(_entries, entry);
    _giveBack(entry->key, entry->states);
}

void X11HotKeys::setModifiers(const X11Modifiers &modifiers)
{
    const PXLock lock(_lock);
    if (modifiers == _modifiers)
        return;
    _modifiers = modifiers;
    // First the new ones: what stays is ours all the time, though it may be another entry's now.
    std::vector<std::pair<xcb_keycode_t, std::uint16_t>> old;
    for (const auto &entry : _entries) {
        for (const std::uint16_t state : entry->states)
            old.emplace_back(entry->key, state);
        (void)_grab(*entry); // Logged when it is refused; then nothing of it is ours.
    }
    for (const auto &[key, state] : old)
        if (!_entryFor(key, state))
            _giveBack(key, std::span(&state, 1));
}

void X11HotKeys::handleEvent(const xcb_generic_event_t &event)
{
    if (event.response_type == XCB_KEY_PRESS)
        _keyWentDown(reinterpret_cast<const xcb_key_press_event_t &>(event));
    else if (event.response_type == XCB_KEY_RELEASE)
        _keyWentUp(reinterpret_cast<const xcb_key_release_event_t &>(event).detail);
}

void X11HotKeys::_keyWentDown(const xcb_key_press_event_t &press)
{
    if (std::find(_down.begin(), _down.end(), press.detail) != _down.end())
        return; // Held.
    _down.push_back(press.detail);
    constexpr int allModifiers = 0xFF; // Above are the mouse's buttons and the group.
    std::shared_ptr<Entry> entry;
    {
        const PXLock lock(_lock);
        entry = _entryFor(press.detail, static_cast<std::uint16_t>(press.state & allModifiers));
    }
    if (entry)
        entry->gate.pass([&] { entry->pressed(X11Seconds(press.time)); });
}

void X11HotKeys::_keyWentUp(xcb_keycode_t key)
{
    const bool isLast = !_down.empty() && _down.front() == key;
    std::erase(_down, key);
    if (!isLast || _down.empty())
        return;
    // From now on others get what happens to the keys that went down in the meantime: those that
    // are up by now would be taken for held ones for ever.
    const auto keys = _connection.reply<xcb_query_keymap_reply>(
        "xcb_query_keymap", xcb_query_keymap(_connection.get()));
    std::erase_if(_down, [&](xcb_keycode_t other) {
        return !keys || ((*keys)->keys[other / 8] & (1 << (other % 8))) == 0;
    });
}

std::shared_ptr<X11HotKeys::Entry> X11HotKeys::_entryFor(xcb_keycode_t key,
                                                         std::uint16_t state) const
{
    const auto found = std::find_if(_entries.begin(), _entries.end(), [&](const auto &entry) {
        return entry->key == key
            && std::find(entry->states.begin(), entry->states.end(), state) != entry->states.end();
    });
    return found == _entries.end() ? nullptr : *found;
}
