#include "platform/x11/X11KeyboardLayout.h"

#include "platform/x11/X11KeyCharacters.h"
#include "platform/x11/X11KeyCodes.h"
#include "platform/x11/X11Xkb.h"

#include <algorithm>
#include <span>

namespace {

/// One state with the group alone, one with Num Lock, too.
XkbState stateWith(xkb_keymap *keymap, xkb_layout_index_t group, xkb_mod_mask_t locked)
{
    XkbState state(xkb_state_new(keymap));
    if (state)
        xkb_state_update_mask(state.get(), 0, 0, locked, 0, 0, group);
    return state;
}

QString charactersOfKey(xkb_keymap *keymap, xkb_state *plain, xkb_state *numLocked,
                        xkb_keycode_t key)
{
    // A key may have fewer groups than the keyboard: the state knows which one stands in.
    const xkb_layout_index_t group = xkb_state_key_get_layout(plain, key);
    if (group == XKB_LAYOUT_INVALID)
        return {};
    const xkb_keysym_t *symbols = nullptr;
    int count = xkb_keymap_key_get_syms_by_level(keymap, key, group, 0, &symbols);
    if (count == 1 && X11KeyCharacters::isKeypadMovement(*symbols))
        count = xkb_state_key_get_syms(numLocked, key, &symbols);
    QString result;
    for (const xkb_keysym_t symbol : std::span(symbols, static_cast<std::size_t>(count)))
        result += X11KeyCharacters::ofSymbol(symbol);
    return result;
}

} // namespace

X11KeyboardLayout::X11KeyboardLayout(xkb_keymap *keymap, xkb_layout_index_t group,
                                     xkb_mod_mask_t numLock)
{
    const XkbState plain = stateWith(keymap, group, 0);
    const XkbState numLocked = stateWith(keymap, group, numLock);
    if (!plain || !numLocked)
        return;
    const auto end = std::min<std::size_t>(_characters.size(),
                                           xkb_keymap_max_keycode(keymap) + std::size_t{1});
    for (auto key = xkb_keymap_min_keycode(keymap); key < end; ++key) {
        _characters[key] = charactersOfKey(keymap, plain.get(), numLocked.get(), key);
        if (_characters[key].isEmpty())
            _characters[key]
                = X11KeyCharacters::ofFunctionKey(X11KeyCodes::keyCodeForNativeKey(key));
    }
}

QString X11KeyboardLayout::charactersForKeyCode(std::uint16_t keyCode) const
{
    const auto key = X11KeyCodes::nativeKeyForKeyCode(keyCode);
    return key && *key < _characters.size() ? _characters[*key] : QString();
}
