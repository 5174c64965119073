#pragma once

#include <QString>

#include <xkbcommon/xkbcommon.h>

#include <cstdint>

/// What a key is known by when nobody types: see `PXKeyboardLayout::charactersForKeyCode()`.
namespace X11KeyCharacters {

/// Empty for a symbol that has no character.
[[nodiscard]] QString ofSymbol(xkb_keysym_t symbol);
/// By the key's place, for function keys whose symbols are a desktop's commands: F13 to F20.
[[nodiscard]] QString ofFunctionKey(std::uint16_t keyCode);
/// A key of the keypad that moves the cursor unless Num Lock is on.
[[nodiscard]] inline bool isKeypadMovement(xkb_keysym_t symbol)
{
    return symbol >= XKB_KEY_KP_Home && symbol <= XKB_KEY_KP_Delete;
}
/// A key that changes what others mean, and does nothing else.
[[nodiscard]] bool isModifier(xkb_keysym_t symbol);

} // namespace X11KeyCharacters
