#include "overlays/KPKeystroke.h"
#include "tests/overlays/TypedKeys.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

static void PrintTo(const QString &text, std::ostream *out)
{
    *out << text.toStdString();
}

namespace {

constexpr std::uint32_t kCommand = 0x100000;
constexpr std::uint32_t kOption = 0x80000;
constexpr std::uint32_t kControl = 0x40000;
constexpr std::uint32_t kShift = 0x20000;
constexpr std::uint32_t kCapsLock = 0x10000;
constexpr std::uint16_t kUnknownKey = 200;

using enum KPKeystrokeType;

TEST(KPKeystroke, ShowsWhatTheUserPressed)
{
    const struct {
        const char *name;
        PXKeyEvent event;
        QString shown;
        KPKeystrokeType type;
    } rows[] = {
        {"letter", keyDown(0, 0, u"a"_s, u"a"_s), u"a"_s, Character},
        {"shiftedLetter", keyDown(0, kShift, u"a"_s, u"A"_s), u"A"_s, Character},
        {"capsLock", keyDown(0, kCapsLock, u"a"_s, u"A"_s), u"A"_s, Character},
        {"composed", keyDown(0, 0, u"e"_s, u"é"_s), u"é"_s, Character},
        {"command", keyDown(1, kCommand, u"s"_s, {}), u"⌘S"_s, Shortcut},
        {"commandShift", keyDown(1, kCommand | kShift, u"s"_s, u"S"_s), u"⌘⇧S"_s, Shortcut},
        {"control", keyDown(8, kControl, u"c"_s, {}), u"⌃C"_s, Shortcut},
        {"option", keyDown(0, kOption, u"a"_s, u"å"_s), u"⌥A"_s, Character},
        {"optionShift", keyDown(0, kOption | kShift, u"a"_s, u"Å"_s), u"⌥⇧A"_s, Character},
        {"all", keyDown(123, kCommand | kOption | kControl | kShift, {}, {}), u"⌘⌥⌃⇧←"_s, Shortcut},
        {"return", keyDown(36, 0, u"\r"_s, {}), u"↩"_s, SpecialKey},
        {"shiftReturn", keyDown(36, kShift, u"\r"_s, {}), u"⇧↩"_s, SpecialKey},
        {"controlReturn", keyDown(36, kControl, u"\r"_s, {}), u"⌃↩"_s, Shortcut},
        {"optionReturn", keyDown(36, kOption, u"\r"_s, {}), u"⌥↩"_s, SpecialKey},
        {"capsIsEscape", keyDown(57, 0, u"\u001B"_s, {}), u"⎋"_s, SpecialKey},
        {"keypadDelete", keyDown(65, kControl, u"\u007F"_s, {}), u"⌃⌦"_s, Shortcut},
        {"twoCapitals", keyDown(27, kCommand, u"ß"_s, {}), u"⌘SS"_s, Shortcut},
        {"unknownWithCommand", keyDown(kUnknownKey, kCommand, {}, {}), u"⌘"_s, Shortcut},
        {"controlCharacter", keyDown(kUnknownKey, kCommand, u"\u0010"_s, {}), u"⌘"_s, Shortcut},
        {"namelessFunctionKey", keyDown(kUnknownKey, kCommand, u"\uF727"_s, {}), u"⌘"_s, Shortcut},
        {"nothing", keyDown(kUnknownKey, 0, u"\u0010"_s, {}), {}, Character},
        {"lineSeparator", keyDown(0, 0, u"a"_s, u"a\u2028\u0007"_s), u"a"_s, Character},
    };
    for (const auto &row : rows) {
        const KPKeystroke keystroke = KPKeystroke::keystrokeFromEvent(row.event);
        EXPECT_EQ(keystroke.displayString(), row.shown) << row.name;
        EXPECT_EQ(keystroke.type(), row.type) << row.name;
    }
    PXKeyEvent withoutLayout = keyDown(1, kCommand, {}, {});
    withoutLayout.layout.reset();
    EXPECT_EQ(KPKeystroke(withoutLayout).displayString(), u"⌘?"_s);
}

TEST(KPKeystroke, KnowsTheKeysThatTypeNothing)
{
    const struct {
        std::uint16_t keyCode;
        char16_t onTheKey;
        QString shown;
    } rows[] = {
        {51, u'\u0008', u"⌫"_s},
        {117, u'\u007F', u"⌦"_s},
        {48, u'\t', u"⇥"_s},
        {53, u'\u001B', u"⎋"_s},
        {36, u'\r', u"↩"_s},
        {76, u'\u0003', u"⌅"_s},
        {49, u' ', u"␣"_s},
        {122, u'\u0010', u"F1"_s},
        {120, u'\u0010', u"F2"_s},
        {99, u'\u0010', u"F3"_s},
        {118, u'\u0010', u"F4"_s},
        {96, u'\u0010', u"F5"_s},
        {97, u'\u0010', u"F6"_s},
        {98, u'\u0010', u"F7"_s},
        {100, u'\u0010', u"F8"_s},
        {101, u'\u0010', u"F9"_s},
        {109, u'\u0010', u"F10"_s},
        {103, u'\u0010', u"F11"_s},
        {111, u'\u0010', u"F12"_s},
        {105, u'\u0010', u"F13"_s},
        {107, u'\u0010', u"F14"_s},
        {113, u'\u0010', u"F15"_s},
        {106, u'\uF713', u"F16"_s},
        {64, u'\u0010', u"F17"_s},
        {79, u'\u0010', u"F18"_s},
        {80, u'\u0010', u"F19"_s},
        {90, u'\u0010', u"F20"_s},
        {115, u'\uF729', u"↖"_s},
        {kUnknownKey, u'\uF72A', u"↖"_s},
        {119, u'\uF72B', u"↘"_s},
        {116, u'\uF72C', u"⇞"_s},
        {121, u'\uF72D', u"⇟"_s},
        {114, u'\uF746', u"Help"_s},
        {126, u'\u001E', u"↑"_s},
        {125, u'\u001F', u"↓"_s},
        {123, u'\u001C', u"←"_s},
        {124, u'\u001D', u"→"_s},
        {kUnknownKey, u'\uF72E', u"Print"_s},
        {kUnknownKey, u'\uF72F', u"Scroll Lock"_s},
        {kUnknownKey, u'\uF730', u"Pause"_s},
        {110, u'\uF735', u"Menu"_s},
        // The keypad without Num Lock.
        {86, u'\u001C', u"←"_s},
        {91, u'\u001E', u"↑"_s},
        {89, u'\uF729', u"↖"_s},
    };
    for (const auto &row : rows) {
        const KPKeystroke plain(keyDown(row.keyCode, 0, QString(QChar(row.onTheKey)), {}));
        EXPECT_EQ(plain.displayString(), row.shown);
        EXPECT_EQ(plain.type(), SpecialKey) << row.shown.toStdString();
    }
}

KPKeystroke letter(const QString &text, double timestamp = 0)
{
    return KPKeystroke(keyDown(kLetterKey, 0, text, text, timestamp));
}

TEST(KPKeystroke, RunsTogetherAndTakesOverTheTime)
{
    KPKeystroke line = letter(u"a"_s, 5);
    const KPKeystroke later = letter(u"b"_s, 6);
    line.appendKeystroke(later);
    EXPECT_EQ(line.displayString(), u"ab"_s);
    EXPECT_EQ(line.time(), later.time());
    EXPECT_EQ(line.eventTime(), 5) << "it began when it began";
    EXPECT_EQ(line.type(), Character);
}

TEST(KPKeystroke, CountsAHeldKey)
{
    const PXKeyEvent b = keyDown(11, 0, u"b"_s, u"b"_s);
    KPKeystroke line = letter(u"a"_s);
    line.appendKeystroke(KPKeystroke(b));
    EXPECT_FALSE(line.countRepeat(KPKeystroke(b))) << "pressed again, not held";
    EXPECT_FALSE(line.countRepeat(KPKeystroke(repeated(keyDown(11, kShift, u"b"_s, u"B"_s)))));
    EXPECT_FALSE(line.countRepeat(KPKeystroke(repeated(keyDown(kLetterKey, 0, u"a"_s, u"a"_s)))))
        << "only the newest counts up";
    for (int i = 0; i < 1999; ++i)
        ASSERT_TRUE(line.countRepeat(KPKeystroke(repeated(b))));
    EXPECT_EQ(line.displayString(), u"a b\u00A0×2000"_s);
    line.appendKeystroke(letter(u"c"_s));
    EXPECT_EQ(line.displayString(), u"a b\u00A0×2000 c"_s);
}

TEST(KPKeystroke, KeepsTheEndOfAnEndlessLine)
{
    KPKeystroke line = letter(u"x"_s);
    for (int i = 0; i < 10'000; ++i)
        line.appendKeystroke(KPKeystroke(keyDown(kDeleteKey, 0, {}, {})));
    line.appendKeystroke(letter(u"y"_s));
    EXPECT_LE(line.pieces().size(), KPKeystroke::kMaximumPieces);
    EXPECT_TRUE(line.displayString().startsWith(u"…⌫"_s));
    EXPECT_TRUE(line.displayString().endsWith(u"⌫y"_s));
    EXPECT_TRUE(line.hasType(Character));
}

} // namespace
