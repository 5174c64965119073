#include "overlays/KPKeystroke.h"

#include "foundation/PXClock.h"
#include "input/PXKeyNames.h"

#include <algorithm>
#include <cstddef>

using namespace Qt::StringLiterals;

namespace {

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
    const QString prefix = PXKeyNames::glyphsOfModifiers(held);
    const bool isShortcut = (held & (PXModifierCommand | PXModifierControl)) != 0;

    const QString special = PXKeyNames::nameOf(event.keyCode, translation);
    if (!special.isEmpty()) {
        keystrokeType = isShortcut ? KPKeystrokeType::Shortcut : KPKeystrokeType::SpecialKey;
        return prefix + special;
    }
    keystrokeType = isShortcut ? KPKeystrokeType::Shortcut : KPKeystrokeType::Character;
    if ((held & ~std::uint32_t{PXModifierShift}) != 0)
        return prefix + printable(translation).toUpper();
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
