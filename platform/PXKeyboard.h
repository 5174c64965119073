#pragma once

#include "foundation/PXError.h"
#include "platform/PXKeyEvent.h"

#include <cstdint>
#include <functional>
#include <memory>

/// A key combination that reaches us wherever the user is, for as long as this lives: nobody else
/// gets it. Destroying it waits for a call that is under way on another thread.
class PXHotKey {
public:
    virtual ~PXHotKey() = default;
};

/// The keyboard's layout, and combinations of keys that work everywhere. Main thread.
class PXKeyboard {
public:
    virtual ~PXKeyboard() = default;

    /// As it is now; null where the display has no keymap. Any thread.
    [[nodiscard]] virtual std::shared_ptr<const PXKeyboardLayout> layout() const = 0;
    /// The virtual key code of a key whose number in the window system the toolkit tells.
    [[nodiscard]] virtual std::uint16_t keyCodeForNativeKey(std::uint32_t nativeKey) const = 0;
    /// Whether the window system itself acts on the combination, so that it never reaches a
    /// program though it can be registered: Control and Alt with a function key.
    [[nodiscard]] virtual bool isReserved(std::uint16_t keyCode, std::uint32_t modifiers) const = 0;

    /// `modifiers` are `PXModifierFlags`; locks (Caps, Num, Scroll) and the active layout do not
    /// matter. `pressed` gets the timestamp that a `PXKeyEvent` of the same press has; once a
    /// press, however long the key is held; on a thread of the back end. Fails with
    /// `PXDisplayRequestRefused`, and the window system's code in "trueErrorCode", when another
    /// program holds the combination; then nothing of it is ours. The keyboard outlives its hot
    /// keys.
    virtual PXExpected<std::unique_ptr<PXHotKey>>
    registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                   std::function<void(double timestamp)> pressed)
        = 0;
};
