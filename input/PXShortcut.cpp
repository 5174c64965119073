#include "input/PXShortcut.h"

#include "input/PXKeyNames.h"

#include <QStringList>

#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

struct Modifier {
    std::uint32_t flag;
    const char16_t *word;
};

/// In the order in which they are written.
constexpr Modifier kModifiers[] = {
    {PXModifierCommand, u"Command"},
    {PXModifierOption, u"Option"},
    {PXModifierControl, u"Control"},
    {PXModifierShift, u"Shift"},
};

constexpr std::uint32_t kSpace = 49;

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
    const QString modifiers = PXKeyNames::glyphsOfModifiers(_modifiers);
    if (_keyCode == kSpace)
        return modifiers + u"Space"_s;
    const QString name = PXKeyNames::nameOf(_keyCode, _characters);
    return modifiers + (name.isEmpty() ? _characters.toUpper() : name);
}

bool PXShortcut::isFunctionKey(std::uint32_t keyCode, const QString &characters)
{
    return PXKeyNames::isFunctionKey(keyCode, characters);
}
