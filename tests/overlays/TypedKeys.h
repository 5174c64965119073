#pragma once

#include "platform/PXKeyEvent.h"

#include <memory>
#include <utility>

/// A keyboard that has the same on every key.
class PlainLayout final : public PXKeyboardLayout {
public:
    explicit PlainLayout(QString characters) : _characters(std::move(characters)) { }
    [[nodiscard]] QString charactersForKeyCode(std::uint16_t) const override { return _characters; }

private:
    const QString _characters;
};

/// A key that goes down; `layout` is what is printed on it.
inline PXKeyEvent keyDown(std::uint16_t keyCode, std::uint32_t modifiers, const QString &layout,
                          const QString &characters, double timestamp = 0)
{
    PXKeyEvent event;
    event.keyCode = keyCode;
    event.modifierFlags = modifiers;
    event.layout = std::make_shared<PlainLayout>(layout);
    event.characters = characters;
    event.timestamp = timestamp;
    return event;
}

inline PXKeyEvent repeated(PXKeyEvent event)
{
    event.isARepeat = true;
    return event;
}

inline constexpr std::uint16_t kLetterKey = 1;
inline constexpr std::uint16_t kDeleteKey = 51;
