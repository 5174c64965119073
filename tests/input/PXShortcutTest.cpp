#include "input/PXShortcut.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kAll
    = PXModifierCommand | PXModifierOption | PXModifierControl | PXModifierShift;

/// Every key that is shown by another name than its character.
const struct {
    const char *key;
    std::uint32_t keyCode;
    QString characters;
    QString shown;
    bool isFunctionKey = false;
} kKeys[] = {
    {"Delete", 51, u"\b"_s, u"⌫"_s},
    {"ForwardDelete", 117, u"\x7F"_s, u"⌦"_s},
    {"Tab", 48, u"\t"_s, u"⇥"_s},
    {"Escape", 53, u"\x1B"_s, u"⎋"_s},
    {"Return", 36, u"\r"_s, u"↩"_s},
    {"Enter", 76, u"\x03"_s, u"⌅"_s},
    {"Space", 49, u" "_s, u"Space"_s},
    {"F1", 122, u"\x10"_s, u"F1"_s, true},
    {"F2", 120, u"\x10"_s, u"F2"_s, true},
    {"F3", 99, u"\x10"_s, u"F3"_s, true},
    {"F4", 118, u"\x10"_s, u"F4"_s, true},
    {"F5", 96, u"\x10"_s, u"F5"_s, true},
    {"F6", 97, u"\x10"_s, u"F6"_s, true},
    {"F7", 98, u"\x10"_s, u"F7"_s, true},
    {"F8", 100, u"\x10"_s, u"F8"_s, true},
    {"F9", 101, u"\x10"_s, u"F9"_s, true},
    {"F10", 109, u"\x10"_s, u"F10"_s, true},
    {"F11", 103, u"\x10"_s, u"F11"_s, true},
    {"F12", 111, u"\x10"_s, u"F12"_s, true},
    {"F13", 105, u"\x10"_s, u"F13"_s, true},
    {"F14", 107, u"\x10"_s, u"F14"_s, true},
    {"F15", 113, u"\x10"_s, u"F15"_s, true},
    {"F16", 106, u"\uF713"_s, u"F16"_s, true},
    {"F17", 64, u"\x10"_s, u"F17"_s, true},
    {"F18", 79, u"\x10"_s, u"F18"_s, true},
    {"F19", 80, u"\x10"_s, u"F19"_s, true},
    {"F20", 90, u"\x10"_s, u"F20"_s, true},
    {"Home", 115, u"\uF729"_s, u"↖"_s},
    {"Begin", 87, u"\uF72A"_s, u"↖"_s},
    {"End", 119, u"\uF72B"_s, u"↘"_s},
    {"PageUp", 116, u"\uF72C"_s, u"⇞"_s},
    {"PageDown", 121, u"\uF72D"_s, u"⇟"_s},
    {"Up", 126, u"\x1E"_s, u"↑"_s},
    {"Down", 125, u"\x1F"_s, u"↓"_s},
    {"Left", 123, u"\x1C"_s, u"←"_s},
    {"Right", 124, u"\x1D"_s, u"→"_s},
    {"Help", 114, u"\uF746"_s, u"Help"_s, true},
    {"Print", 0x163, u"\uF72E"_s, u"Print"_s, true},
    {"Pause", 0x177, u"\uF730"_s, u"Pause"_s, true},
    {"KeypadLeft", 86, u"\x1C"_s, u"←"_s},
    {"CapsIsEscape", 57, u"\x1B"_s, u"⎋"_s},
    {"Letter", 0, u"a"_s, u"A"_s},
    {"SharpS", 27, u"ß"_s, u"SS"_s},
    {"Hebrew", 17, u"א"_s, u"א"_s},
    {"Nothing", 300, QString(), QString()},
};

TEST(PXShortcut, KeysAreShownByTheirGlyphs)
{
    for (const auto &row : kKeys) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(PXShortcut({}, 0, row.keyCode, row.characters).displayString(), row.shown);
        EXPECT_EQ(PXShortcut({}, kAll, row.keyCode, row.characters).displayString(),
                  u"⌘⌥⌃⇧"_s + row.shown);
        EXPECT_EQ(PXShortcut::isFunctionKey(row.keyCode, row.characters), row.isFunctionKey);
    }
}

TEST(PXShortcut, TheStoredFormIsReadWhoeverWroteIt)
{
    const struct {
        const char *name;
        QVariantMap stored;
        QVariant modifiersWritten; ///< Invalid: it is no shortcut.
    } rows[] = {
        {"twoModifiers",
         {{u"modifiers"_s, u"Shift-Command"_s}, {u"keyCode"_s, 19}, {u"characters"_s, u"2"_s}},
         u"Command-Shift"_s},
        {"allInAnyOrder",
         {{u"modifiers"_s, u"Shift, Control+Option Command"_s},
          {u"keyCode"_s, 0xFFFFFFFFU},
          {u"characters"_s, u"a"_s},
          {u"name"_s, u"All"_s}},
         u"Command-Option-Control-Shift"_s},
        {"lastOneNotShift",
         {{u"modifiers"_s, u"Option"_s}, {u"keyCode"_s, u"9"_s}, {u"characters"_s, u"v"_s}},
         u"Option"_s},
        {"none",
         {{u"modifiers"_s, QString()}, {u"keyCode"_s, 122ULL}, {u"characters"_s, u"\x10"_s}},
         QString()},
        {"unknownWord",
         {{u"modifiers"_s, u"Hyper"_s}, {u"keyCode"_s, 1}, {u"characters"_s, u"s"_s}},
         QString()},
        {"noModifiers", {{u"keyCode"_s, 1}, {u"characters"_s, u"s"_s}}, {}},
        {"noKeyCode", {{u"modifiers"_s, QString()}, {u"characters"_s, u"s"_s}}, {}},
        {"noCharacters", {{u"modifiers"_s, QString()}, {u"keyCode"_s, 1}}, {}},
        {"cleared", {}, {}},
        {"keyCodeIsNoNumber",
         {{u"modifiers"_s, QString()}, {u"keyCode"_s, u"A"_s}, {u"characters"_s, u"a"_s}},
         {}},
        {"keyCodeTooLarge",
         {{u"modifiers"_s, QString()}, {u"keyCode"_s, 0x100000000ULL}, {u"characters"_s, u"a"_s}},
         {}},
        {"modifiersAreAList",
         {{u"modifiers"_s, QVariantList{}}, {u"keyCode"_s, 1}, {u"characters"_s, u"s"_s}},
         {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const auto shortcut = PXShortcut::shortcutFromDictionary(row.stored);
        ASSERT_EQ(shortcut.has_value(), row.modifiersWritten.isValid());
        if (!shortcut)
            continue;
        QVariantMap written = row.stored;
        written.insert(u"modifiers"_s, row.modifiersWritten);
        written.insert(u"keyCode"_s, row.stored.value(u"keyCode"_s).toUInt());
        EXPECT_EQ(shortcut->dictionary(), written);
        EXPECT_EQ(PXShortcut::shortcutFromDictionary(shortcut->dictionary()), shortcut);
    }
    EXPECT_FALSE(PXShortcut({}, 0, 1, {}).dictionary().contains(u"characters"_s));
}

TEST(PXShortcut, IsEqualByKeyModifiersAndCharacters)
{
    const PXShortcut one(u"One"_s, PXModifierCommand, 19, u"2"_s);
    EXPECT_EQ(one, PXShortcut(u"Two"_s, PXModifierCommand | 0x100, 19, u"2"_s));
    EXPECT_FALSE(one == PXShortcut(u"One"_s, PXModifierCommand, 20, u"2"_s));
    EXPECT_FALSE(one == PXShortcut(u"One"_s, PXModifierControl, 19, u"2"_s));
    EXPECT_FALSE(one == PXShortcut(u"One"_s, PXModifierCommand, 19, u"é"_s));
    EXPECT_TRUE(one.description().endsWith(u": Command-2 (0x32), 19"_s));
}

} // namespace
