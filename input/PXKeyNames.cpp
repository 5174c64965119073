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
    const char16_t *name;
    std::uint32_t keyCode;
    bool isFunctionKey = false;
};

constexpr NamedKey kNamedKeys[] = {
    {u"\u232B", 51}, // Delete
    {u"\u2326", 117}, // Forward delete
    {u"\u21E5", 48}, // Tab
    {u"\u238B", 53}, // Escape
    {u"\u21A9", 36}, // Return
    {u"\u2305", 76}, // Enter, on the keypad
    {u"\u2423", 49},     {u"F1", 122, true},  {u"F2", 120, true},  {u"F3", 99, true},
    {u"F4", 118, true},  {u"F5", 96, true},   {u"F6", 97, true},   {u"F7", 98, true},
    {u"F8", 100, true},  {u"F9", 101, true},  {u"F10", 109, true}, {u"F11", 103, true},
    {u"F12", 111, true}, {u"F13", 105, true}, {u"F14", 107, true}, {u"F15", 113, true},
    {u"F17", 64, true},  {u"F18", 79, true},  {u"F19", 80, true},  {u"F20", 90, true},
    {u"\u2191", 126}, // The arrows: up, down, left, right
    {u"\u2193", 125},    {u"\u2190", 123},    {u"\u2192", 124},
};

struct NamedCharacter {
    const char16_t *name;
    char16_t character;
    bool isFunctionKey = false;
};

/// Keys that are told apart by what the layout has on them.
constexpr NamedCharacter kNamedCharacters[] = {
    // Where a layout has put them on another key; the arrows are the keypad's, too.
    {u"\u232B", u'\b'},          {u"\u2326", u'\x7F'},
    {u"\u21E5", u'\t'},          {u"\u238B", u'\x1B'},
    {u"\u21A9", u'\r'},          {u"\u2305", u'\x03'},
    {u"\u2190", u'\x1C'},        {u"\u2192", u'\x1D'},
    {u"\u2191", u'\x1E'},        {u"\u2193", u'\x1F'},
    {u"F16", u'\uF713', true},   {u"\u2196", u'\uF729'}, // Home
    {u"\u2196", u'\uF72A'}, // Begin
    {u"\u2198", u'\uF72B'}, // End
    {u"\u21DE", u'\uF72C'}, // Page up
    {u"\u21DF", u'\uF72D'}, // Page down
    {u"Print", u'\uF72E', true}, {u"Scroll Lock", u'\uF72F', true},
    {u"Pause", u'\uF730', true}, {u"Menu", u'\uF735'},
    {u"Help", u'\uF746', true},
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
