#pragma once

#include "platform/PXKeyEvent.h"

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <optional>

/// The character that `layout` shows for a key, "?" without a layout.
QString LiDTS_CopyTranslateHotKey(std::uint16_t keyCode, const PXKeyboardLayout *layout);

/// One combination of a key with modifiers: a hot key, one that is never shown, one that a view
/// takes. Any thread.
class PXShortcut final {
public:
    /// As the settings hold it; none where "modifiers", "keyCode" or "characters" is missing.
    static std::optional<PXShortcut> shortcutFromDictionary(const QVariantMap &dictionary);
    static PXShortcut shortcutFromEvent(const PXKeyEvent &event, const QString &name = {});
    /// `modifiers` are `PXModifierFlags`; other bits are dropped.
    static PXShortcut shortcutWithName(const QString &name, std::uint32_t modifiers,
                                       std::uint32_t keyCode, const QString &characters)
    {
        return PXShortcut(name, modifiers, keyCode, characters);
    }
    PXShortcut(QString name, std::uint32_t modifiers, std::uint32_t keyCode, QString characters);

    /// "modifiers", "keyCode" and, where they are not empty, "name" and "characters".
    [[nodiscard]] QVariantMap dictionary() const;

    [[nodiscard]] const QString &name() const { return _name; }
    void setName(const QString &name) { _name = name; }
    [[nodiscard]] std::uint32_t modifiers() const { return _modifiers; }
    [[nodiscard]] std::uint32_t keyCode() const { return _keyCode; }
    [[nodiscard]] const QString &characters() const { return _characters; }

    /// Key, modifiers and characters; a name is a label.
    [[nodiscard]] bool isEqual(const PXShortcut &other) const;
    friend bool operator==(const PXShortcut &a, const PXShortcut &b) { return a.isEqual(b); }

    /// For the log: "<PXShortcut>: Command-Shift-2 (0x32), 19".
    [[nodiscard]] QString description() const;
    /// Modifier glyphs, Command first, and the key's name: "⌘⇧2".
    [[nodiscard]] QString displayString() const;

    /// Whether the key makes a shortcut without any modifier: one that types nothing and edits
    /// nothing, so that nobody misses it.
    [[nodiscard]] static bool isFunctionKey(std::uint32_t keyCode, const QString &characters);

private:
    QString _name;
    std::uint32_t _modifiers;
    std::uint32_t _keyCode;
    QString _characters;
};
