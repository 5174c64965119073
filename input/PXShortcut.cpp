#include "input/PXShortcut.h"

#include <QStringList>

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

struct Modifier {
    std::uint32_t flag;
    const char16_t *word;
    char16_t glyph;
};

/// In the order in which they are written and shown.
constexpr Modifier kModifiers[] = {
    {PXModifierCommand, u"Command", u'\u2318'},
    {PXModifierOption, u"Option", u'\u2325'},
    {PXModifierControl, u"Control", u'\u2303'},
    {PXModifierShift, u"Shift", u'\u21E7'},
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
    {49, u"Space"},      {122, u"F1", true},  {120, u"F2", true},  {99, u"F3", true},
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

QString LiDTS_CopyTranslateHotKey(std::uint16_t keyCode, const PXKeyboardLayout *layout)
{
    return layout != nullptr ? layout->charactersForKeyCode(keyCode) : u"?"_s;
}

PXShortcut::PXShortcut(QString name, std::uint32_t modifiers, std::uint32_t keyCode,
                       QString characters)
    : _name(std::move(name)),
      _modifiers(modifiers & PXModifierMask),
      _keyCode(keyCode),
      _characters(std::move(characters))
{
}

std::optional<PXShortcut> PXShortcut::shortcutFromDictionary(const QVariantMap &dictionary)
{
    const QVariant words = dictionary.value(u"modifiers"_s);
    const QVariant keyCode = dictionary.value(u"keyCode"_s);
    const QVariant characters = dictionary.value(u"characters"_s);
    bool isNumber = false;
    const qulonglong number = keyCode.toULongLong(&isNumber);
    if (words.typeId() != QMetaType::QString || characters.typeId() != QMetaType::QString
        || !isNumber || number > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    std::uint32_t modifiers = 0;
    for (const Modifier &modifier : kModifiers)
        if (words.toString().contains(QStringView(modifier.word)))
            modifiers |= modifier.flag;
    return PXShortcut(dictionary.value(u"name"_s).toString(), modifiers,
                      static_cast<std::uint32_t>(number), characters.toString());
}

PXShortcut PXShortcut::shortcutFromEvent(const PXKeyEvent &event, const QString &name)
{
    return {name, event.modifierFlags, event.keyCode,
            LiDTS_CopyTranslateHotKey(event.keyCode, event.layout.get())};
}

QVariantMap PXShortcut::dictionary() const
{
    QStringList words;
    for (const Modifier &modifier : kModifiers)
        if ((_modifiers & modifier.flag) != 0)
            words.append(QString::fromUtf16(modifier.word));
    QVariantMap dictionary = {{u"modifiers"_s, words.join(u'-')}, {u"keyCode"_s, _keyCode}};
    if (!_name.isEmpty())
        dictionary.insert(u"name"_s, _name);
    if (!_characters.isEmpty())
        dictionary.insert(u"characters"_s, _characters);
    return dictionary;
}

bool PXShortcut::isEqual(const PXShortcut &other) const
{
    return _keyCode == other._keyCode && _modifiers == other._modifiers
        && _characters == other._characters;
}

QString PXShortcut::description() const
{
    QString text = u"<PXShortcut>: "_s;
    for (const Modifier &modifier : kModifiers)
        if ((_modifiers & modifier.flag) != 0)
            text += QString::fromUtf16(modifier.word) + u'-';
    const unsigned first = _characters.isEmpty() ? 0 : _characters.front().unicode();
    return text + _characters + u" (0x%1), "_s.arg(first, 0, 16) + QString::number(_keyCode);
}

QString PXShortcut::displayString() const
{
    QString text;
    for (const Modifier &modifier : kModifiers)
        if ((_modifiers & modifier.flag) != 0)
            text += QChar(modifier.glyph);
    if (const NamedKey *key = namedKey(_keyCode))
        return text + QString::fromUtf16(key->name);
    if (const NamedCharacter *character = namedCharacter(_characters))
        return text + QString::fromUtf16(character->name);
    return text + _characters.toUpper();
}

bool PXShortcut::isFunctionKey(std::uint32_t keyCode, const QString &characters)
{
    const NamedKey *key = namedKey(keyCode);
    const NamedCharacter *character = namedCharacter(characters);
    return (key != nullptr && key->isFunctionKey)
        || (character != nullptr && character->isFunctionKey);
}
