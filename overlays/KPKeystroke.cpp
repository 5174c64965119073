#include "overlays/KPKeystroke.h"

#include "foundation/PXClock.h"

#include <QHash>

#include <algorithm>
#include <cstddef>

using namespace Qt::StringLiterals;

namespace {

struct Modifier {
    std::uint32_t flag;
    char16_t glyph;
};

constexpr Modifier kModifiers[] = {
    {PXModifierCommand, u'\u2318'},
    {PXModifierOption, u'\u2325'},
    {PXModifierControl, u'\u2303'},
    {PXModifierShift, u'\u21E7'},
};

/// Keys that are known by their place on the keyboard.
const QHash<std::uint16_t, QString> &specialKeyCodes()
{
    static const QHash<std::uint16_t, QString> keys = {
        {51, u"\u232B"_s}, // Delete
        {117, u"\u2326"_s}, // Forward delete
        {48, u"\u21E5"_s}, // Tab
        {53, u"\u238B"_s}, // Escape
        {36, u"\u21A9"_s}, // Return
        {76, u"\u2305"_s}, // Enter, on the keypad
        {49, u"\u2423"_s}, // Space
        {122, u"F1"_s},     {120, u"F2"_s},     {99, u"F3"_s},      {118, u"F4"_s},
        {96, u"F5"_s},      {97, u"F6"_s},      {98, u"F7"_s},      {100, u"F8"_s},
        {101, u"F9"_s},     {109, u"F10"_s},    {103, u"F11"_s},    {111, u"F12"_s},
        {105, u"F13"_s},    {107, u"F14"_s},    {113, u"F15"_s},    {64, u"F17"_s},
        {79, u"F18"_s},     {80, u"F19"_s},     {90, u"F20"_s},     {126, u"\u2191"_s},
        {125, u"\u2193"_s}, {123, u"\u2190"_s}, {124, u"\u2192"_s}, // The arrows
    };
    return keys;
}

/// Keys that are known by what the layout has on them.
const QHash<QString, QString> &specialCharacters()
{
    static const QHash<QString, QString> keys = {
        {u"\uF713"_s, u"F16"_s},
        {u"\uF729"_s, u"\u2196"_s}, // Home
        {u"\uF72A"_s, u"\u2196"_s}, // Begin: whoever looks at the screen knows one such arrow.
        {u"\uF72B"_s, u"\u2198"_s}, // End
        {u"\uF72C"_s, u"\u21DE"_s}, // Page up
        {u"\uF72D"_s, u"\u21DF"_s}, // Page down
        {u"\uF72E"_s, u"Print"_s},
        {u"\uF72F"_s, u"Scroll Lock"_s},
        {u"\uF730"_s, u"Pause"_s},
        {u"\uF735"_s, u"Menu"_s},
        {u"\uF746"_s, u"Help"_s},
        // The keypad's arrows while Num Lock is off.
        {u"\u001C"_s, u"\u2190"_s},
        {u"\u001D"_s, u"\u2192"_s},
        {u"\u001E"_s, u"\u2191"_s},
        {u"\u001F"_s, u"\u2193"_s},
    };
    return keys;
}

/// Neither what moves a printer's head nor what layouts say of keys without a character.
QString printable(QString text)
{
    constexpr char16_t kFirstFunctionKey = 0xF700;
    constexpr char16_t kLastFunctionKey = 0xF8FF;
    text.removeIf([](QChar character) {
        return character.category() == QChar::Other_Control
            || character.category() == QChar::Separator_Line
            || character.category() == QChar::Separator_Paragraph
            || (character >= kFirstFunctionKey && character <= kLastFunctionKey);
    });
    return text;
}

/// As it is printed on a key: one that has no capital ("ß") is not shown as two.
QString capital(const QString &text)
{
    const QString upper = text.toUpper();
    return upper.size() == text.size() ? upper : text;
}

} // namespace

QString KPKeystrokePiece::counter() const
{
    // With a space that nobody can tell from the ones between words.
    return count > 1 ? u"\u00A0\u00D7"_s + QString::number(count) : QString();
}

QString KPKeystroke::displayStringFromEvent(const PXKeyEvent &event, KPKeystrokeType &keystrokeType)
{
    const QString translation = KPKeystroke_CopyTranslateHotKey(event.keyCode, event.layout.get());
    const std::uint32_t held = event.modifierFlags & PXModifierMask;
    QString prefix;
    for (const Modifier &modifier : kModifiers)
        if ((held & modifier.flag) != 0)
            prefix += QChar(modifier.glyph);
    const bool isShortcut = (held & (PXModifierCommand | PXModifierControl)) != 0;

    QString special = specialKeyCodes().value(event.keyCode);
    if (special.isEmpty())
        special = specialCharacters().value(translation);
    if (!special.isEmpty()) {
        keystrokeType = isShortcut ? KPKeystrokeType::Shortcut : KPKeystrokeType::SpecialKey;
        return prefix + special;
    }
    keystrokeType = isShortcut ? KPKeystrokeType::Shortcut : KPKeystrokeType::Character;
    if ((held & ~std::uint32_t{PXModifierShift}) != 0)
        return prefix + capital(printable(translation));
    return printable(event.characters);
}

KPKeystroke::KPKeystroke(const PXKeyEvent &event)
    : mTime(PXTimeIntervalSinceReferenceDate()),
      mEventTime(event.timestamp),
      _isARepeat(event.isARepeat)
{
    mDisplayString = displayStringFromEvent(event, mKeystrokeType);
    _pieces.push_back({mDisplayString, mKeystrokeType, event.keyCode});
}

QString KPKeystroke::separator(const KPKeystrokePiece &one, const KPKeystrokePiece &next)
{
    return one.count > 1 || next.count > 1 ? u" "_s : QString();
}

void KPKeystroke::appendKeystroke(const KPKeystroke &keystroke)
{
    _pieces.insert(_pieces.end(), keystroke._pieces.begin(), keystroke._pieces.end());
    if (_pieces.size() > kMaximumPieces) {
        // The ellipsis stands for all that goes, and is of its kind.
        const auto type
            = hasType(KPKeystrokeType::Character) ? KPKeystrokeType::Character : mKeystrokeType;
        // More than must go, so that it is not done again for each key.
        _pieces.erase(_pieces.begin(), _pieces.end() - std::ptrdiff_t{kMaximumPieces / 2});
        _pieces.front() = {u"\u2026"_s, type};
    }
    mTime = keystroke.mTime;
    _compose();
}

bool KPKeystroke::countRepeat(const KPKeystroke &repeat)
{
    KPKeystrokePiece &newest = _pieces.back();
    const KPKeystrokePiece &again = repeat._pieces.front();
    if (!repeat._isARepeat || newest.keyCode != again.keyCode || newest.text != again.text)
        return false;
    newest.count += again.count;
    mTime = repeat.mTime;
    _compose();
    return true;
}

bool KPKeystroke::hasType(KPKeystrokeType type) const
{
    return std::any_of(_pieces.begin(), _pieces.end(),
                       [&](const KPKeystrokePiece &piece) { return piece.type == type; });
}

void KPKeystroke::_compose()
{
    mDisplayString.clear();
    for (std::size_t i = 0; i < _pieces.size(); ++i) {
        if (i > 0)
            mDisplayString += separator(_pieces[i - 1], _pieces[i]);
        mDisplayString += _pieces[i].text + _pieces[i].counter();
    }
}
