#pragma once

#include "input/PXShortcut.h"
#include "platform/PXKeyEvent.h"

#include <QString>

#include <cstdint>
#include <vector>

/// What a shown keystroke is; the numbers are those of the settings' filters.
enum class KPKeystrokeType {
    Shortcut = 0, ///< Command or Control is held.
    Character = 1, ///< Typed text.
    SpecialKey = 2, ///< Return, an arrow, …, without Command and Control.
};

/// The character that the layout shows for a key, "?" without a layout.
inline QString KPKeystroke_CopyTranslateHotKey(std::uint16_t keyCode,
                                               const PXKeyboardLayout *layout)
{
    return LiDTS_CopyTranslateHotKey(keyCode, layout);
}

/// One key of a line, or one that was held.
struct KPKeystrokePiece {
    QString text; ///< Modifiers and key.
    KPKeystrokeType type = KPKeystrokeType::Character;
    std::uint16_t keyCode = 0;
    int count = 1; ///< How often it was typed, as the holder of a key types it.

    /// " ×12" of a key that was held; empty of others.
    [[nodiscard]] QString counter() const;
};

/// What is shown of the keys that were pressed: one, or several that run together in one line.
///
/// A key that is held is shown once, with the number of times that it has typed: "⌫ ×12". Each of
/// its repeats adds one to that number and renews the time, so that the line stays for as long as
/// the key is held. Only the newest key of a line counts, and only while it types the same: with
/// Shift pressed meanwhile it is another keystroke. In a line, a key with a number stands between
/// spaces, "ab c ×9 d": otherwise nobody could tell what was repeated. A key that is pressed
/// several times is shown as often.
///
/// Only the end of a line that nobody ever ends is kept: `kMaximumPieces` keys, an ellipsis instead
/// of what was before.
class KPKeystroke final {
public:
    static constexpr std::size_t kMaximumPieces = 512;

    static KPKeystroke keystrokeFromEvent(const PXKeyEvent &event) { return KPKeystroke(event); }
    explicit KPKeystroke(const PXKeyEvent &event);

    /// What to show for a key that goes down, and what it is. Keys that type nothing have glyphs or
    /// names, and modifiers are shown in front as glyphs, Command, Option, Control, Shift; but what
    /// was typed with Shift alone is shown as typed. Empty for a key that has neither name nor
    /// character. Never a control character.
    static QString displayStringFromEvent(const PXKeyEvent &event, KPKeystrokeType &keystrokeType);

    /// Runs `keystroke` on behind this one, and takes over its `time()`.
    void appendKeystroke(const KPKeystroke &keystroke);
    /// Whether `repeat` is the newest key of this line, which is held; then it has been counted,
    /// and its `time()` taken over.
    bool countRepeat(const KPKeystroke &repeat);

    [[nodiscard]] const QString &displayString() const { return mDisplayString; }
    /// When it was made or last extended, seconds since the reference date.
    [[nodiscard]] double time() const { return mTime; }
    /// The timestamp of its (first) event.
    [[nodiscard]] double eventTime() const { return mEventTime; }
    /// Of its first key.
    [[nodiscard]] KPKeystrokeType type() const { return mKeystrokeType; }

    /// Oldest first; never empty. The display string is their texts and counters.
    [[nodiscard]] const std::vector<KPKeystrokePiece> &pieces() const { return _pieces; }
    /// What stands between two neighbours of a line.
    [[nodiscard]] static QString separator(const KPKeystrokePiece &one,
                                           const KPKeystrokePiece &next);
    /// Whether any of its keys is of that type.
    [[nodiscard]] bool hasType(KPKeystrokeType type) const;

private:
    void _compose();

    QString mDisplayString;
    double mTime;
    double mEventTime;
    KPKeystrokeType mKeystrokeType = KPKeystrokeType::Character;
    bool _isARepeat;
    std::vector<KPKeystrokePiece> _pieces;
};
