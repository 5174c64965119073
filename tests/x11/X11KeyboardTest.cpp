#include "platform/x11/X11Xkb.h"
#include "tests/support/WaitUntil.h"
#include "tests/x11/X11Screens.h"
#include "tests/x11/X11Typing.h"

#include <gtest/gtest.h>

#include <array>
#include <future>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint16_t kA = 0;
constexpr std::uint16_t kS = 1;
constexpr std::uint16_t kF12 = 111;
constexpr std::uint32_t kBoth = PXModifierControl | PXModifierOption;

void lockGroup(const TestConnection &connection, std::uint8_t group)
{
    const TestReply<xcb_xkb_use_extension_reply_t> version(xcb_xkb_use_extension_reply(
        connection.get(), xcb_xkb_use_extension(connection.get(), 1, 0), nullptr));
    xcb_xkb_latch_lock_state(connection.get(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, group, 0, 0, 0);
    connection.sync();
}

class X11KeyboardTest : public testing::Test {
protected:
    [[nodiscard]] QString at(std::uint16_t keyCode) const
    {
        return _keyboard->layout()->charactersForKeyCode(keyCode);
    }
    /// Counts the presses of a hot key.
    std::unique_ptr<PXHotKey> hotKey(std::uint16_t keyCode, std::uint32_t modifiers)
    {
        return valueOf(_keyboard->registerHotKey(keyCode, modifiers, [this](double time) {
            _lastTime = time;
            ++_presses;
        }));
    }
    void press(const std::vector<int> &keys) const { chord(_hand, keys); }
    /// Presses the hot key F12 and waits for it: what was before is told by then.
    int pressesSoFar()
    {
        std::promise<int> presses;
        const auto last = valueOf(_keyboard->registerHotKey(
            kF12, PXModifierShift, [&](double) { presses.set_value(_presses); }));
        press({KEY_LEFTSHIFT, KEY_F12});
        return presses.get_future().get();
    }

    VirtualDisplay _display = VirtualDisplay(640, 480);
    TestConnection _test = TestConnection(_display.name());
    Hand _hand = Hand(_display.name());
    std::unique_ptr<PXScreenPlatform> _screen = openScreen(_display);
    std::atomic<int> _presses = 0;
    std::atomic<double> _lastTime = 0;
    std::unique_ptr<PXKeyboard> _keyboard = valueOf(_screen->makeKeyboard());
};

TEST_F(X11KeyboardTest, KnowsWhatIsOnTheKeys)
{
    struct Case {
        const char *name;
        const char16_t *keymap;
        std::uint8_t group;
        /// By key code. The first is new in this layout: with it the layout has arrived.
        std::vector<std::pair<std::uint16_t, const char16_t *>> characters;
    };
    const Case cases[] = {
        {"german",
         u"de",
         0,
         {{33, u"ü"},
          {6, u"y"},
          {16, u"z"},
          {50, u"^"},
          {24, u"´"},
          {10, u"<"},
          {65, u"\x7F"},
          {27, u"ß"},
          {18, u"1"}}},
        {"american",
         u"us",
         0,
         {{33, u"["},
          {0, u"a"},
          {50, u"`"},
          {39, u"'"},
          {49, u" "},
          {10, u"<"},
          {65, u"\x7F"},
          // Without text, by the characters of stored shortcuts.
          {123, u"\x1C"},
          {124, u"\x1D"},
          {126, u"\x1E"},
          {125, u"\x1F"},
          {115, u"\uF729"},
          {119, u"\uF72B"},
          {116, u"\uF72C"},
          {121, u"\uF72D"},
          {114, u"\uF746"},
          {117, u"\x7F"},
          {36, u"\r"},
          {76, u"\x03"},
          {48, u"\t"},
          {51, u"\b"},
          {53, u"\x1B"},
          {122, u"\x10"},
          {111, u"\x10"},
          {105, u"\x10"},
          {106, u"\uF713"},
          {90, u"\x10"},
          {0x100 + KEY_SYSRQ, u"\uF72E"},
          {0x100 + KEY_SCROLLLOCK, u"\uF72F"},
          {0x100 + KEY_PAUSE, u"\uF730"},
          {110, u"\uF735"},
          // The keypad while Num Lock is off.
          {82, u"\uF746"},
          {83, u"\uF72B"},
          {87, u"\uF72A"},
          {89, u"\uF729"},
          {92, u"\uF72C"},
          {69, u"+"},
          {78, u"-"},
          {67, u"*"},
          {75, u"/"},
          {81, u"="},
          // Neither text nor any of that.
          {56, u""},
          {66, u""},
          {63, u""},
          {0xFFFF, u""}}},
        {"french", u"fr", 0, {{12, u"a"}, {0, u"q"}, {18, u"&"}, {33, u"^"}, {26, u"è"}}},
        {"russianSecond", u"us,ru", 1, {{0, u"ф"}, {33, u"х"}, {36, u"\r"}, {126, u"\x1E"}}},
        {"americanFirst", u"us,ru", 0, {{0, u"a"}, {33, u"["}}},
        {"hebrew", u"il", 0, {{17, u"א"}}},
    };
    for (const Case &c : cases) {
        setKeymap(_display, QString::fromUtf16(c.keymap));
        lockGroup(_test, c.group);
        ASSERT_TRUE(waitUntil([&] {
            return at(c.characters.front().first)
                == QString::fromUtf16(c.characters.front().second);
        })) << c.name;
        for (const auto &[keyCode, expected] : c.characters)
            EXPECT_EQ(at(keyCode), QString::fromUtf16(expected)) << c.name << ' ' << keyCode;
    }
}

TEST_F(X11KeyboardTest, KnowsTheKeypadsDigitsWhileNumLockIsOn)
{
    setKeymap(_display, u"de"_s);
    press({KEY_NUMLOCK});
    ASSERT_TRUE(waitUntil([&] { return at(89) == u"7"_s; }));
    EXPECT_EQ(at(82), u"0"_s);
    EXPECT_EQ(at(65), u","_s);
    EXPECT_EQ(at(115), QString(QChar(0xF729))); // Not of the keypad.
    press({KEY_NUMLOCK});
    EXPECT_TRUE(waitUntil([&] { return at(89) == QString(QChar(0xF729)); }));
}

TEST_F(X11KeyboardTest, HotKeysWorkInEveryStateOfTheLocksAndInEveryGroup)
{
    setKeymap(_display, u"us,ru"_s);
    const auto key = hotKey(kA, kBoth);
    int expected = 0;
    for (const std::uint8_t group : {std::uint8_t{0}, std::uint8_t{1}})
        for (const std::vector<int> &lock :
             std::vector<std::vector<int>>{{}, {KEY_CAPSLOCK}, {KEY_NUMLOCK}, {KEY_CAPSLOCK}}) {
            lockGroup(_test, group);
            press(lock);
            press({KEY_LEFTCTRL, KEY_LEFTALT, KEY_A});
            EXPECT_EQ(pressesSoFar(), ++expected) << int{group};
            press({KEY_LEFTCTRL, KEY_A});
            press({KEY_LEFTCTRL, KEY_LEFTALT, KEY_LEFTSHIFT, KEY_A});
            press({KEY_LEFTCTRL, KEY_LEFTALT, KEY_S});
            EXPECT_EQ(pressesSoFar(), expected) << int{group};
        }
}

TEST_F(X11KeyboardTest, HotKeysFireOnceHoweverLongTheKeyIsHeld)
{
    runOn(_display, u"xset"_s, {u"r"_s, u"rate"_s, u"50"_s, u"200"_s});
    const auto a = hotKey(kA, PXModifierCommand);
    const auto s = hotKey(kS, PXModifierCommand);
    Listener listener;
    const auto monitor = valueOf(_screen->makeInputMonitor(listener));
    _hand.keyDown(KEY_LEFTMETA + 8);
    _hand.keyDown(KEY_A + 8);
    auto keys = listener.takeKeys([](const auto &all) { return all.size() > 20; });
    EXPECT_EQ(_lastTime, keys.at(1).timestamp); // One press, seen on two connections.
    // Another one while the first is held, which is let go before.
    _hand.keyDown(KEY_S + 8);
    _hand.keyUp(KEY_A + 8);
    listener.takeKeys([](const auto &all) { return all.size() > 20; });
    _hand.keyUp(KEY_S + 8);
    _hand.keyDown(KEY_S + 8);
    _hand.keyUp(KEY_S + 8);
    _hand.keyUp(KEY_LEFTMETA + 8);
    EXPECT_EQ(pressesSoFar(), 3);
}

TEST_F(X11KeyboardTest, ACombinationHasOneOwner)
{
    const auto refusalOf = [](PXKeyboard &keyboard) {
        const auto refused = keyboard.registerHotKey(kA, kBoth, [](double) {});
        if (refused || refused.error().code != PXDisplayRequestRefused)
            return -1;
        return refused.error().userInfo.value(u"trueErrorCode"_s).toInt();
    };
    const auto other = openScreen(_display);
    const auto otherKeyboard = valueOf(other->makeKeyboard());
    auto key = hotKey(kA, kBoth);
    EXPECT_EQ(refusalOf(*_keyboard), XCB_ACCESS);
    EXPECT_EQ(refusalOf(*otherKeyboard), XCB_ACCESS);
    key.reset();
    { // Free when that returns; and with one of the states taken, all are refused.
        const auto taken = valueOf(otherKeyboard->registerHotKey(kA, kBoth, [](double) {}));
    }
    constexpr std::uint16_t withNumLock
        = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_2 | XCB_MOD_MASK_LOCK;
    xcb_grab_key(_test.get(), 0, _test.root(), withNumLock, KEY_A + 8, XCB_GRAB_MODE_ASYNC,
                 XCB_GRAB_MODE_ASYNC);
    _test.sync();
    EXPECT_EQ(refusalOf(*_keyboard), XCB_ACCESS);
    xcb_ungrab_key(_test.get(), KEY_A + 8, _test.root(), withNumLock);
    _test.sync();
    // The refusal left nothing of ours behind: the other can have all of it.
    EXPECT_EQ(refusalOf(*otherKeyboard), -1);
    EXPECT_EQ(valueOf(_keyboard->registerHotKey(kA, kBoth, [](double) {})) != nullptr, true);
    EXPECT_FALSE(_keyboard->registerHotKey(66, kBoth, [](double) {})); // No such key.
}

TEST_F(X11KeyboardTest, HotKeysFollowTheModifiers)
{
    const auto key = hotKey(kA, PXModifierOption);
    setKeymap(_display, u"us -option altwin:swap_alt_win"_s);
    // The key for Option is the other one now.
    ASSERT_TRUE(waitUntil([&] {
        press({KEY_LEFTMETA, KEY_A});
        return _presses > 0;
    }));
    const int before = pressesSoFar();
    press({KEY_LEFTALT, KEY_A});
    EXPECT_EQ(pressesSoFar(), before);
}

TEST_F(X11KeyboardTest, AHotKeyCanEndInsideItsOwnCall)
{
    std::unique_ptr<PXHotKey> key;
    std::promise<void> ended;
    key = valueOf(_keyboard->registerHotKey(kA, kBoth, [&](double) {
        key.reset();
        ++_presses;
        ended.set_value(); // A second call would throw.
    }));
    press({KEY_LEFTCTRL, KEY_LEFTALT, KEY_A});
    ended.get_future().wait();
    press({KEY_LEFTCTRL, KEY_LEFTALT, KEY_A});
    EXPECT_EQ(pressesSoFar(), 1);
}

TEST_F(X11KeyboardTest, TheServersOwnCombinationsAreReserved)
{
    EXPECT_TRUE(_keyboard->isReserved(122, kBoth));
    EXPECT_TRUE(_keyboard->isReserved(kF12, PXModifierMask));
    EXPECT_FALSE(_keyboard->isReserved(105, kBoth)); // F13.
    EXPECT_FALSE(_keyboard->isReserved(122, PXModifierControl));
    EXPECT_FALSE(_keyboard->isReserved(kA, kBoth));
}

} // namespace
