#pragma once

#include "platform/PXKeyEvent.h"

#include <xkbcommon/xkbcommon.h>

#include <QString>

#include <array>
#include <cstdint>

/// What each key shows in one group of a keymap. Read once and kept as texts: xkbcommon's own
/// objects must not be shared by threads.
class X11KeyboardLayout final : public PXKeyboardLayout {
public:
    /// `group` is the active one; `numLock` the modifier of Num Lock while that is on, 0 while it
    /// is off.
    X11KeyboardLayout(xkb_keymap *keymap, xkb_layout_index_t group, xkb_mod_mask_t numLock);

    [[nodiscard]] QString charactersForKeyCode(std::uint16_t keyCode) const override;

private:
    std::array<QString, 256> _characters; // By the server's key code.
};
