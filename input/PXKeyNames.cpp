#include "input/PXKeyNames.h"

#include "platform/PXKeyEvent.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

/// In the order in which they are shown.
constexpr std::pair<std::uint32_t, char16_t> kModifierGlyphs[] = {
    {PXModifierCommand, u'\u2318'},
    {PXModifierOption, u'\u2325'},
    {PXModifierControl, u'\u2303'},
    {PXModifierShift, u'\u21E7'},
};

struct NamedKey {
    std::uint32_t keyCode;
    const char16_t *name;
    bool isFunctionKey = false;
};

constexpr NamedKey kNamedKeys[] = {
    {51, u"\u232B"}, // Delete
    {117, u"\u2326"}, // Forward delete
    {48, u"\u21E5"}, // Tab
    {53, u"\u238B"}, // Escape
    {36, u"\u21A9"}, // Return
    {76, u"\u2305"}, // Enter, on the keypad
    {49, u"\u2423"},     {122, u"F1", true},  {120, u"F2", true},  {99, u"F3", true},
    {118, u"F4", true},  {96, u"F5", true},   {97, u"F6", true},   {98, u"F7", true},
    {100, u"F8", true},  {101, u"F9", true},  {109, u"F10", true}, {103, u"F11", true},
    {111, u"F12", true}, {105, u"F13", true}, {107, u"F14", true}, {113, u"F15", true},
    {64, u"F17", true},  {79, u"F18", true},  {80, u"F19", true},  {90, u"F20", true},
    {126, u"\u2191"}, // The arrows: up, down, left, right
    {125, u"\u2193"},    {123, u"\u2190"},    {124, u"\u2192"},
};

struct NamedCharacter {
    char16_t character;
    const char16_t *name;
    bool isFunctionKey = false;
};

/// Keys that are told apart by what the layout has on them.
constexpr NamedCharacter kNamedCharacters[] = {
    // Where a layout has put them on another key; the arrows are the keypad's, too.
    {u'\b', u"\u232B"},          {u'\x7F', u"\u2326"},
    {u'\t', u"\u21E5"},          {u'\x1B', u"\u238B"},
    {u'\r', u"\u21A9"},          {u'\x03', u"\u2305"},
    {u'\x1C', u"\u2190"},        {u'\x1D', u"\u2192"},
    {u'\x1E', u"\u2191"},        {u'\x1F', u"\u2193"},
    {u'\uF713', u"F16", true},   {u'\uF729', u"\u2196"}, // Home
    {u'\uF72A', u"\u2196"}, // Begin
    {u'\uF72B', u"\u2198"}, // End
    {u'\uF72C', u"\u21DE"}, // Page up
    {u'\uF72D', u"\u21DF"}, // Page down
    {u'\uF72E', u"Print", true}, {u'\uF72F', u"Scroll Lock", true},
    {u'\uF730', u"Pause", true}, {u'\uF735', u"Menu"},
    {u'\uF746', u"Help", true},
};

const NamedKey *namedKey(std::uint32_t keyCode)
{
    const auto *const found = std::find_if(std::begin(kNamedKeys), std::end(kNamedKeys),
                                           [&](const auto &key) { return key.keyCode == keyCode; });
    return found == std::end(kNamedKeys) ? nullptr : found;
}

const NamedCharacter *namedCharacter(const QString &characters)
{
    const auto *const found
        = std::find_if(std::begin(kNamedCharacters), std::end(kNamedCharacters),
                       [&](const auto &key) { return characters == QChar(key.character); });
    return found == std::end(kNamedCharacters) ? nullptr : found;
}

} // namespace

QString PXKeyNames::glyphsOfModifiers(std::uint32_t modifiers)
{
    QString glyphs;
    for (const auto &[flag, glyph] : kModifierGlyphs)
        if ((modifiers & flag) != 0)
            glyphs += QChar(glyph);
    return glyphs;
}

QString PXKeyNames::nameOf(std::uint32_t keyCode, const QString &characters)
{
    if (const NamedKey *key = namedKey(keyCode))
        return QString::fromUtf16(key->name);
    if (const NamedCharacter *character = namedCharacter(characters))
        return QString::fromUtf16(character->name);
    return {};
}

bool PXKeyNames::isFunctionKey(std::uint32_t keyCode, const QString &characters)
{
    const NamedKey *key = namedKey(keyCode);
    const NamedCharacter *character = namedCharacter(characters);
    return (key != nullptr && key->isFunctionKey)
        || (character != nullptr && character->isFunctionKey);
}
