#include "platform/x11/X11Modifiers.h"

#include "platform/PXKeyEvent.h"

#include <algorithm>
#include <initializer_list>

namespace {

constexpr int kModifiers = 8;

bool hasSymbol(xkb_keymap *keymap, xkb_keycode_t key, xkb_keysym_t wanted)
{
    for (xkb_layout_index_t group = 0; group < xkb_keymap_num_layouts_for_key(keymap, key); ++group)
        for (xkb_level_index_t level = 0; level < xkb_keymap_num_levels_for_key(keymap, key, group);
             ++level) {
            const xkb_keysym_t *symbols = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(keymap, key, group, level, &symbols);
            if (std::find(symbols, symbols + count, wanted) != symbols + count)
                return true;
        }
    return false;
}

/// The modifier that keys with the first of these symbols set, or with the next; `otherwise`
/// where no key does.
std::uint8_t modifierOf(const xcb_get_modifier_mapping_reply_t &mapping, xkb_keymap *keymap,
                        std::initializer_list<xkb_keysym_t> symbols, std::uint8_t otherwise)
{
    const xcb_keycode_t *keys = xcb_get_modifier_mapping_keycodes(&mapping);
    const int perModifier = mapping.keycodes_per_modifier;
    for (const xkb_keysym_t symbol : symbols)
        for (int i = 0; i < kModifiers * perModifier; ++i)
            if (keys[i] != 0 && hasSymbol(keymap, keys[i], symbol))
                return static_cast<std::uint8_t>(1 << (i / perModifier));
    return otherwise;
}

} // namespace

X11Modifiers X11Modifiers::ofKeyboard(X11Connection &connection, xkb_keymap *keymap)
{
    const auto mapping = connection.reply<xcb_get_modifier_mapping_reply>(
        "xcb_get_modifier_mapping", xcb_get_modifier_mapping(connection.get()));
    if (!mapping || !keymap)
        return {};
    const auto find = [&](std::initializer_list<xkb_keysym_t> symbols, std::uint8_t otherwise) {
        return modifierOf(**mapping, keymap, symbols, otherwise);
    };
    return {find({XKB_KEY_Alt_L, XKB_KEY_Alt_R, XKB_KEY_Meta_L, XKB_KEY_Meta_R}, XCB_MOD_MASK_1),
            find({XKB_KEY_Super_L, XKB_KEY_Super_R}, XCB_MOD_MASK_4), find({XKB_KEY_Num_Lock}, 0),
            find({XKB_KEY_Scroll_Lock}, 0)};
}

std::uint32_t X11Modifiers::flags(std::uint32_t serverModifiers) const
{
    const auto flag = [serverModifiers](std::uint32_t mask, std::uint32_t value) {
        return (serverModifiers & mask) != 0 ? value : 0;
    };
    return flag(XCB_MOD_MASK_SHIFT, PXModifierShift) | flag(XCB_MOD_MASK_CONTROL, PXModifierControl)
        | flag(option, PXModifierOption) | flag(command, PXModifierCommand);
}

std::uint8_t X11Modifiers::serverModifiers(std::uint32_t flags) const
{
    const auto mask
        = [flags](std::uint32_t flag, int value) { return (flags & flag) != 0 ? value : 0; };
    return static_cast<std::uint8_t>(
        mask(PXModifierShift, XCB_MOD_MASK_SHIFT) | mask(PXModifierControl, XCB_MOD_MASK_CONTROL)
        | mask(PXModifierOption, option) | mask(PXModifierCommand, command));
}

std::vector<std::uint8_t> X11Modifiers::lockStates() const
{
    std::vector<std::uint8_t> states = {0};
    for (const int lock : {int{XCB_MOD_MASK_LOCK}, int{numLock}, int{scrollLock}}) {
        const std::vector<std::uint8_t> without = states;
        for (const std::uint8_t state : without)
            if (const auto with = static_cast<std::uint8_t>(state | lock);
                std::find(states.begin(), states.end(), with) == states.end())
                states.push_back(with);
    }
    return states;
}
