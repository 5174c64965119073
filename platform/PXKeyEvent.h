#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <memory>

/// The modifiers that count in shortcuts, by the bits under which these are stored.
enum PXModifierFlags : std::uint32_t {
    PXModifierShift = 0x20000,
    PXModifierControl = 0x40000,
    PXModifierOption = 0x80000, ///< Alt.
    PXModifierCommand = 0x100000, ///< Super, the key with the logo.
    PXModifierMask = 0x1E0000,
};

/// The keyboard as it was at one moment: its keys' meaning, the active one of its layouts and the
/// state of Num Lock. Never changes; any thread.
class PXKeyboardLayout {
public:
    virtual ~PXKeyboardLayout() = default;

    /// What is printed on the key: its character without Shift; a dead key's own accent. Keys that
    /// type nothing have the characters by which stored shortcuts know them: left, right, up and
    /// down U+001C to U+001F; F16, Home, Begin, End, Page up, Page down and Help U+F713, U+F729 to
    /// U+F72D and U+F746; the other function keys U+0010; Print, Scroll Lock, Pause and Menu U+F72E
    /// to U+F730 and U+F735. The keypad's digits are digits while Num Lock is on. Empty where a key
    /// has none of all that.
    [[nodiscard]] virtual QString charactersForKeyCode(std::uint16_t keyCode) const = 0;
};

/// The numbers are those of stored events.
enum class PXKeyEventType { KeyDown = 10, KeyUp = 11, FlagsChanged = 12 };

/// A key that goes down or up, or a modifier that does (`FlagsChanged`, and nothing else for
/// those).
struct PXKeyEvent {
    PXKeyEventType type = PXKeyEventType::KeyDown;
    /// `PXModifierFlags` that are held, whichever key holds them; after the change for
    /// `FlagsChanged`. Locks and the key for the third level do not count.
    std::uint32_t modifierFlags = 0;
    /// Virtual key code: the number of the key's place on the keyboard, as stored shortcuts have
    /// it.
    std::uint16_t keyCode = 0;
    bool isARepeat = false; ///< The key is held.
    /// Of a key that goes down: what it types, with all modifiers, compose and dead keys taken
    /// into account; empty for none, and never a control character.
    QString characters;
    /// Seconds of a clock that never jumps. Whoever tells of one event tells the same time.
    double timestamp = 0;
    /// At the time of the event; null where there is none.
    std::shared_ptr<const PXKeyboardLayout> layout;
};

Q_DECLARE_METATYPE(PXKeyEvent)
