#include "input/PXShortcut.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kAll
    = PXModifierCommand | PXModifierOption | PXModifierControl | PXModifierShift;

/// Every key that is shown by another name than its character.
const struct {
    const char *key;
    QString characters;
    QString shown;
    std::uint32_t keyCode;
    bool isFunctionKey = false;
} kKeys[] = {
    {"Delete", u"\b"_s, u"⌫"_s, 51},
    {"ForwardDelete", u"\x7F"_s, u"⌦"_s, 117},
    {"Tab", u"\t"_s, u"⇥"_s, 48},
    {"Escape", u"\x1B"_s, u"⎋"_s, 53},
    {"Return", u"\r"_s, u"↩"_s, 36},
    {"Enter", u"\x03"_s, u"⌅"_s, 76},
    {"Space", u" "_s, u"Space"_s, 49},
    {"F1", u"\x10"_s, u"F1"_s, 122, true},
    {"F2", u"\x10"_s, u"F2"_s, 120, true},
    {"F3", u"\x10"_s, u"F3"_s, 99, true},
    {"F4", u"\x10"_s, u"F4"_s, 118, true},
    {"F5", u"\x10"_s, u"F5"_s, 96, true},
    {"F6", u"\x10"_s, u"F6"_s, 97, true},
    {"F7", u"\x10"_s, u"F7"_s, 98, true},
    {"F8", u"\x10"_s, u"F8"_s, 100, true},
    {"F9", u"\x10"_s, u"F9"_s, 101, true},
    {"F10", u"\x10"_s, u"F10"_s, 109, true},
    {"F11", u"\x10"_s, u"F11"_s, 103, true},
    {"F12", u"\x10"_s, u"F12"_s, 111, true},
    {"F13", u"\x10"_s, u"F13"_s, 105, true},
    {"F14", u"\x10"_s, u"F14"_s, 107, true},
    {"F15", u"\x10"_s, u"F15"_s, 113, true},
    {"F16", u"\uF713"_s, u"F16"_s, 106, true},
    {"F17", u"\x10"_s, u"F17"_s, 64, true},
    {"F18", u"\x10"_s, u"F18"_s, 79, true},
    {"F19", u"\x10"_s, u"F19"_s, 80, true},
    {"F20", u"\x10"_s, u"F20"_s, 90, true},
    {"Home", u"\uF729"_s, u"↖"_s, 115},
    {"Begin", u"\uF72A"_s, u"↖"_s, 87},
    {"End", u"\uF72B"_s, u"↘"_s, 119},
    {"PageUp", u"\uF72C"_s, u"⇞"_s, 116},
    {"PageDown", u"\uF72D"_s, u"⇟"_s, 121},
    {"Up", u"\x1E"_s, u"↑"_s, 126},
    {"Down", u"\x1F"_s, u"↓"_s, 125},
    {"Left", u"\x1C"_s, u"←"_s, 123},
    {"Right", u"\x1D"_s, u"→"_s, 124},
    {"Help", u"\uF746"_s, u"Help"_s, 114, true},
    {"Print", u"\uF72E"_s, u"Print"_s, 0x163, true},
    {"Pause", u"\uF730"_s, u"Pause"_s, 0x177, true},
    {"KeypadLeft", u"\x1C"_s, u"←"_s, 86},
    {"CapsIsEscape", u"\x1B"_s, u"⎋"_s, 57},
    {"Letter", u"a"_s, u"A"_s, 0},
    {"SharpS", u"ß"_s, u"SS"_s, 27},
    {"Hebrew", u"א"_s, u"א"_s, 17},
    {"Nothing", QString(), QString(), 300},
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
