#pragma once

#include <QString>

#include <cstdint>

/// How keys are shown that have no character of their own. Any thread.
namespace PXKeyNames {

/// Of `PXModifierFlags`: Command, Option, Control, Shift.
QString glyphsOfModifiers(std::uint32_t modifiers);

/// By the key's place, else by what the layout has on it (`PXKeyboardLayout`): "⌫", "F5", "Print".
/// Empty for keys that are known by their characters.
QString nameOf(std::uint32_t keyCode, const QString &characters);

/// F1 to F20, Print, Scroll Lock, Pause and Help: keys that type nothing and edit nothing.
bool isFunctionKey(std::uint32_t keyCode, const QString &characters);

} // namespace PXKeyNames
