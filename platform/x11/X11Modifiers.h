#pragma once

#include "platform/x11/X11Connection.h"

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdint>
#include <vector>

/// Which of the server's eight modifiers are which: Shift, Lock and Control are always the same,
/// the others are as the user's keymap has them.
struct X11Modifiers {
    std::uint8_t option = XCB_MOD_MASK_1;
    std::uint8_t command = XCB_MOD_MASK_4;
    std::uint8_t numLock = XCB_MOD_MASK_2; ///< 0 where the keyboard has none.
    std::uint8_t scrollLock = 0;

    /// As the server has them now; those above where it does not tell. `keymap` says what the
    /// keys are; null where there is none.
    static X11Modifiers ofKeyboard(X11Connection &connection, xkb_keymap *keymap);

    /// `PXModifierFlags` of the server's modifiers, and the other way round.
    [[nodiscard]] std::uint32_t flags(std::uint32_t serverModifiers) const;
    [[nodiscard]] std::uint8_t serverModifiers(std::uint32_t flags) const;
    /// Every state that Caps, Num and Scroll Lock can be in together, none of them first.
    [[nodiscard]] std::vector<std::uint8_t> lockStates() const;

    friend bool operator==(const X11Modifiers &, const X11Modifiers &) = default;
};
