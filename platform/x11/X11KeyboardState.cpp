#include "platform/x11/X11KeyboardState.h"

#include "foundation/BRLog.h"

#include <xkbcommon/xkbcommon-x11.h>

#include <utility>

namespace {

constexpr xcb_xkb_device_spec_t kCoreKeyboard = XCB_XKB_ID_USE_CORE_KBD;

} // namespace

X11KeyboardState::X11KeyboardState(X11Connection &connection, Wants wants)
    : _connection(connection), _context(xkb_context_new(XKB_CONTEXT_NO_FLAGS))
{
    std::uint8_t firstEvent = 0;
    if (!_context
        || xkb_x11_setup_xkb_extension(
               connection.get(), XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
               XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &firstEvent, nullptr)
            == 0) {
        if (!connection.isLost())
            BRLog(BRLogWarning, "The X server has no keymap; keys are known by their places only.");
        return;
    }
    _firstEvent = firstEvent;
    // First asked to be told, then looked: what changes in between is told again.
    _select(wants);
    _read();
    if (const auto now = std::exchange(_ahead, {}))
        _apply(now->components);
}

void X11KeyboardState::_select(Wants wants)
{
    constexpr std::uint16_t keymap
        = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
    constexpr std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS
        | XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_VIRTUAL_MODS
        | XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    constexpr std::uint16_t forLayout
        = XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_STATE;
    constexpr std::uint16_t forModifiers = XCB_XKB_STATE_PART_MODIFIER_BASE
        | XCB_XKB_STATE_PART_MODIFIER_LATCH | XCB_XKB_STATE_PART_MODIFIER_LOCK
        | XCB_XKB_STATE_PART_GROUP_BASE | XCB_XKB_STATE_PART_GROUP_LATCH
        | XCB_XKB_STATE_PART_GROUP_LOCK;
    const std::uint16_t parts = wants == Wants::Layout ? forLayout : forModifiers;
    xcb_xkb_select_events_details_t details = {};
    details.affectNewKeyboard = details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = details.stateDetails = parts;
    xcb_xkb_select_events_aux(_connection.get(), kCoreKeyboard,
                              keymap | XCB_XKB_EVENT_TYPE_STATE_NOTIFY, 0, 0, mapParts, mapParts,
                              &details);
}

void X11KeyboardState::_read()
{
    xcb_connection_t *c = _connection.get();
    const int device = xkb_x11_get_core_keyboard_device_id(c);
    XkbKeymap keymap(device < 0 ? nullptr
                                : xkb_x11_keymap_new_from_device(_context.get(), c, device,
                                                                 XKB_KEYMAP_COMPILE_NO_FLAGS));
    XkbState state(keymap ? xkb_state_new(keymap.get()) : nullptr);
    if (!state) {
        // The one before stays. If it has changed while it was read, that is told as well.
        BRLog(BRLogWarning, "The X server's keymap cannot be read.");
        return;
    }
    _state = std::move(state);
    _keymap = std::move(keymap);
    _layoutIsStale = true;
    const X11Modifiers modifiers = X11Modifiers::ofKeyboard(_connection, _keymap.get());
    {
        const PXLock lock(_lock);
        _modifiers = modifiers;
    }
    _ahead = _readComponents();
    _update();
}

std::optional<X11KeyboardState::Ahead> X11KeyboardState::_readComponents()
{
    const auto cookie = xcb_xkb_get_state(_connection.get(), kCoreKeyboard);
    const auto reply = _connection.reply<xcb_xkb_get_state_reply>("xcb_xkb_get_state", cookie);
    if (!reply)
        return {};
    const xcb_xkb_get_state_reply_t &state = **reply;
    return Ahead{{state.baseMods, state.latchedMods, state.lockedMods, state.baseGroup,
                  state.latchedGroup, state.lockedGroup},
                 cookie.sequence};
}

void X11KeyboardState::_apply(const Components &components)
{
    _components = components;
    _update();
}

/// Brings state and layout to the components.
void X11KeyboardState::_update()
{
    if (!_state)
        return;
    const auto group = [](std::int16_t value) { return static_cast<xkb_layout_index_t>(value); };
    xkb_state_update_mask(_state.get(), _components.baseMods, _components.latchedMods,
                          _components.lockedMods, group(_components.baseGroup),
                          group(_components.latchedGroup), _components.lockedGroup);
    const xkb_layout_index_t active
        = xkb_state_serialize_layout(_state.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    const PXLock lock(_lock);
    const xkb_mod_mask_t numLock = _components.lockedMods & _modifiers.numLock;
    if (!_layoutIsStale && active == _layoutGroup && numLock == _layoutNumLock)
        return;
    _layoutIsStale = false;
    _layoutGroup = active;
    _layoutNumLock = numLock;
    _layout = std::make_shared<const X11KeyboardLayout>(_keymap.get(), active, numLock);
}

std::shared_ptr<const PXKeyboardLayout> X11KeyboardState::layout() const
{
    const PXLock lock(_lock);
    return _layout;
}

X11Modifiers X11KeyboardState::modifiers() const
{
    const PXLock lock(_lock);
    return _modifiers;
}

int X11KeyboardState::typeOf(const xcb_generic_event_t &event) const
{
    if (_firstEvent == 0 || (event.response_type & 0x7F) != _firstEvent)
        return -1;
    return event.pad0; // Where XKB has it.
}

void X11KeyboardState::handleEvent(const xcb_generic_event_t &event)
{
    // Sequence numbers wrap around.
    if (_ahead && static_cast<int>(event.full_sequence - _ahead->sequence) >= 0)
        _apply(std::exchange(_ahead, {})->components);
    if ((event.response_type & 0x7F) == XCB_MAPPING_NOTIFY) {
        const auto &mapping = reinterpret_cast<const xcb_mapping_notify_event_t &>(event);
        _isStale = _isStale || mapping.request != XCB_MAPPING_POINTER;
        return;
    }
    switch (typeOf(event)) {
    case XCB_XKB_NEW_KEYBOARD_NOTIFY:
    case XCB_XKB_MAP_NOTIFY:
        _isStale = true;
        break;
    case XCB_XKB_STATE_NOTIFY: {
        const auto &state = reinterpret_cast<const xcb_xkb_state_notify_event_t &>(event);
        _apply({state.baseMods, state.latchedMods, state.lockedMods, state.baseGroup,
                state.latchedGroup, state.lockedGroup});
        break;
    }
    default:
        break;
    }
}

bool X11KeyboardState::refresh()
{
    if (!_isStale || _firstEvent == 0)
        return false;
    _isStale = false;
    _read();
    return true;
}

bool X11KeyboardState::settle()
{
    if (!_ahead)
        return false;
    if (!std::exchange(_ahead->wasAwaited, true))
        return true;
    _apply(std::exchange(_ahead, {})->components);
    return false;
}

std::uint32_t X11KeyboardState::modifierFlags() const
{
    const std::uint32_t all
        = _components.baseMods | _components.latchedMods | _components.lockedMods;
    return modifiers().flags(all);
}

xkb_keysym_t X11KeyboardState::firstSymbol(xkb_keycode_t key) const
{
    if (!_state)
        return XKB_KEY_NoSymbol;
    const xkb_layout_index_t group = xkb_state_key_get_layout(_state.get(), key);
    const xkb_keysym_t *symbols = nullptr;
    const int count = group == XKB_LAYOUT_INVALID
        ? 0
        : xkb_keymap_key_get_syms_by_level(_keymap.get(), key, group, 0, &symbols);
    return count == 1 ? *symbols : XKB_KEY_NoSymbol;
}
