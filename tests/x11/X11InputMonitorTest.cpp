#include "tests/x11/X11Screens.h"
#include "tests/x11/X11Typing.h"

#include <gtest/gtest.h>

#include <xcb/xcb.h>

#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint16_t kF12 = 111; // Ends what a row types.

struct Typing {
    const char *name;
    const char16_t *keymap;
    std::vector<std::vector<int>> chords; ///< Linux's numbers.
    const char16_t *typed;
};

const Typing kTypings[] = {
    {"plain", u"us", {{KEY_A}, {KEY_SPACE}, {KEY_1}}, u"a 1"},
    {"shift", u"us", {{KEY_LEFTSHIFT, KEY_A}, {KEY_RIGHTSHIFT, KEY_1}}, u"A!"},
    {"capsLock", u"us", {{KEY_CAPSLOCK}, {KEY_A}, {KEY_1}, {KEY_CAPSLOCK}, {KEY_A}}, u"A1a"},
    {"capsLockAndShift", u"us", {{KEY_CAPSLOCK}, {KEY_LEFTSHIFT, KEY_A}, {KEY_CAPSLOCK}}, u"a"},
    {"control", u"us", {{KEY_LEFTCTRL, KEY_A}, {KEY_RIGHTCTRL, KEY_ENTER}, {KEY_B}}, u"b"},
    {"command", u"us", {{KEY_LEFTMETA, KEY_A}, {KEY_B}}, u"b"},
    {"option", u"us", {{KEY_LEFTALT, KEY_A}}, u"a"},
    {"noText",
     u"us",
     {{KEY_ENTER}, {KEY_ESC}, {KEY_TAB}, {KEY_BACKSPACE}, {KEY_LEFT}, {KEY_F5}},
     u""},
    {"keypad",
     u"us",
     {{KEY_KP1}, {KEY_NUMLOCK}, {KEY_KP1}, {KEY_KPDOT}, {KEY_NUMLOCK}, {KEY_KP1}},
     u"1."},
    {"german", u"de", {{KEY_APOSTROPHE}, {KEY_Y}, {KEY_LEFTSHIFT, KEY_SEMICOLON}}, u"äzÖ"},
    {"germanThirdLevel", u"de", {{KEY_RIGHTALT, KEY_Q}, {KEY_RIGHTALT, KEY_E}, {KEY_Q}}, u"@€q"},
    {"deadKey", u"de", {{KEY_GRAVE}, {KEY_A}, {KEY_A}}, u"âa"},
    {"deadKeyAndShift", u"de", {{KEY_EQUAL}, {KEY_LEFTSHIFT, KEY_E}}, u"É"},
    {"deadKeyTwice", u"de", {{KEY_GRAVE}, {KEY_GRAVE}, {KEY_A}}, u"^a"},
    {"deadKeyThatLeadsNowhere", u"de", {{KEY_GRAVE}, {KEY_X}, {KEY_X}}, u"x"},
    {"deadKeyAcrossACommand", u"de", {{KEY_GRAVE}, {KEY_LEFTCTRL, KEY_C}, {KEY_A}}, u"â"},
    {"french",
     u"fr",
     {{KEY_Q}, {KEY_7}, {KEY_LEFTSHIFT, KEY_7}, {KEY_LEFTBRACE}, {KEY_E}},
     u"aè7ê"},
    {"compose",
     u"us -option compose:ralt",
     {{KEY_RIGHTALT}, {KEY_APOSTROPHE}, {KEY_E}, {KEY_E}},
     u"ée"},
    {"composeOutOfOrder",
     u"us -option compose:ralt",
     {{KEY_RIGHTALT}, {KEY_LEFTSHIFT, KEY_A}, {KEY_E}},
     u""},
    {"secondGroup",
     u"us,ru -option grp:menu_toggle",
     {{KEY_A}, {KEY_COMPOSE}, {KEY_A}, {KEY_LEFTSHIFT, KEY_A}, {KEY_COMPOSE}, {KEY_A}},
     u"aфФa"},
    {"rightToLeft", u"il", {{KEY_T}}, u"א"},
};

class X11InputMonitorTest : public testing::Test {
protected:
    X11InputMonitorTest() { qputenv("LC_ALL", "en_US.UTF-8"); }

    void type(const std::vector<std::vector<int>> &chords) const
    {
        for (const std::vector<int> &keys : chords)
            chord(_hand, keys);
    }

    VirtualDisplay _display = VirtualDisplay(640, 480);
    Hand _hand = Hand(_display.name());
    std::unique_ptr<PXScreenPlatform> _screen = openScreen(_display);
    Listener _listener;
    std::unique_ptr<PXInputMonitor> _monitor = valueOf(_screen->makeInputMonitor(_listener));
};

TEST_F(X11InputMonitorTest, TellsWhatKeysType)
{
    QString keymap;
    for (const Typing &typing : kTypings) {
        if (const QString wanted = QString::fromUtf16(typing.keymap); wanted != keymap)
            setKeymap(_display, keymap = wanted);
        type(typing.chords);
        type({{KEY_F12}});
        QString typed;
        for (const PXKeyEvent &event : _listener.takeKeysUntil(kF12))
            typed += event.characters;
        EXPECT_EQ(typed, QString::fromUtf16(typing.typed)) << typing.name;
    }
}

/// "+0" is a key of code 0 that goes down, "-0" that goes up, "=0" repeats, "~56" is a modifier;
/// after that the flags, in steps of 0x10000.
QStringList linesOf(const Listener::Keys &keys)
{
    QStringList lines;
    for (const PXKeyEvent &event : keys) {
        const char16_t kind = event.type == PXKeyEventType::FlagsChanged ? u'~'
            : event.type == PXKeyEventType::KeyUp                        ? u'-'
            : event.isARepeat                                            ? u'='
                                                                         : u'+';
        QString line = QChar(kind) + QString::number(event.keyCode);
        if (event.modifierFlags != 0)
            line += u' ' + QString::number(event.modifierFlags >> 16);
        lines += line;
    }
    return lines;
}

TEST_F(X11InputMonitorTest, TellsOfKeysAndModifiersInTheirOrder)
{
    struct Case {
        const char *name;
        const char16_t *keymap;
        std::vector<std::vector<int>> chords;
        QStringList told;
    };
    const Case cases[] = {
        {"plain", u"us", {{KEY_A}, {KEY_KP0}}, {u"+0"_s, u"-0"_s, u"+82"_s, u"-82"_s}},
        {"shift", u"us", {{KEY_LEFTSHIFT, KEY_A}}, {u"~56 2"_s, u"+0 2"_s, u"-0 2"_s, u"~56"_s}},
        {"bothOfThem",
         u"us",
         {{KEY_LEFTSHIFT, KEY_RIGHTSHIFT}},
         {u"~56 2"_s, u"~60 2"_s, u"~60 2"_s, u"~56"_s}},
        {"allFour",
         u"us",
         {{KEY_LEFTCTRL, KEY_RIGHTALT, KEY_RIGHTMETA, KEY_RIGHTSHIFT, KEY_F1}},
         {u"~59 4"_s, u"~61 12"_s, u"~54 28"_s, u"~60 30"_s, u"+122 30"_s, u"-122 30"_s,
          u"~60 28"_s, u"~54 12"_s, u"~61 4"_s, u"~59"_s}},
        {"locks",
         u"us",
         {{KEY_CAPSLOCK}, {KEY_NUMLOCK}, {KEY_A}, {KEY_NUMLOCK}, {KEY_CAPSLOCK}},
         {u"~57"_s, u"~57"_s, u"~71"_s, u"~71"_s, u"+0"_s, u"-0"_s, u"~71"_s, u"~71"_s, u"~57"_s,
          u"~57"_s}},
        {"thirdLevel", u"de", {{KEY_RIGHTALT, KEY_Q}}, {u"~61"_s, u"+12"_s, u"-12"_s, u"~61"_s}},
        {"swappedAltAndLogo",
         u"us -option altwin:swap_alt_win",
         {{KEY_LEFTALT, KEY_A}},
         {u"~58 16"_s, u"+0 16"_s, u"-0 16"_s, u"~58"_s}},
    };
    for (const Case &c : cases) {
        setKeymap(_display, QString::fromUtf16(c.keymap));
        type(c.chords);
        type({{KEY_F12}});
        EXPECT_EQ(linesOf(_listener.takeKeysUntil(kF12)), c.told) << c.name;
    }
}

TEST_F(X11InputMonitorTest, TellsEachOfManyPressesOnce)
{
    // As fast as they go, which is more than anybody types.
    constexpr int presses = 2000;
    for (int i = 0; i < presses; ++i)
        type({{i % 2 == 0 ? KEY_A : KEY_B}});
    type({{KEY_F12}});
    const Listener::Keys keys = _listener.takeKeysUntil(kF12);
    ASSERT_EQ(keys.size(), std::size_t{presses} * 2);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(keys[i].keyCode, i / 2 % 2 == 0 ? 0 : 11);
        EXPECT_EQ(keys[i].type, i % 2 == 0 ? PXKeyEventType::KeyDown : PXKeyEventType::KeyUp);
        EXPECT_FALSE(keys[i].isARepeat);
    }
}

TEST_F(X11InputMonitorTest, RepeatsAHeldKeyAsTheServerDoes)
{
    runOn(_display, u"xset"_s, {u"r"_s, u"rate"_s, u"200"_s, u"100"_s});
    const auto repeats = [](std::size_t count) {
        return [count](const Listener::Keys &keys) { return keys.size() >= count; };
    };
    _hand.keyDown(KEY_A + 8);
    auto keys = linesOf(_listener.takeKeys(repeats(4)));
    EXPECT_EQ(keys.mid(0, 4), (QStringList{u"+0"_s, u"=0"_s, u"=0"_s, u"=0"_s}));
    // A modifier does not end it, another key does.
    _hand.keyDown(KEY_LEFTSHIFT + 8);
    _hand.keyDown(KEY_B + 8);
    _listener.takeKeys(
        [](const Listener::Keys &all) { return !all.empty() && all.back().keyCode == 11; });
    keys = linesOf(_listener.takeKeys(repeats(3)));
    EXPECT_EQ(keys.mid(0, 3), (QStringList{u"=11 2"_s, u"=11 2"_s, u"=11 2"_s}));
    _hand.keyUp(KEY_B + 8);
    type({{KEY_F12}});
    keys = linesOf(_listener.takeKeysUntil(kF12));
    ASSERT_FALSE(keys.isEmpty());
    EXPECT_EQ(keys.back(), u"-11 2"_s);
    // Nothing begins again, though A is still held; and keys that do not repeat never do.
    runOn(_display, u"xset"_s, {u"-r"_s, QString::number(KEY_C + 8)});
    _hand.keyDown(KEY_C + 8);
    _hand.keyDown(KEY_D + 8);
    keys = linesOf(_listener.takeKeys(repeats(4)));
    EXPECT_EQ(keys.mid(0, 4), (QStringList{u"+8 2"_s, u"+2 2"_s, u"=2 2"_s, u"=2 2"_s}));
}

TEST_F(X11InputMonitorTest, IsNotMistakenAboutKeysThatWereHeldBefore)
{
    _monitor.reset();
    _hand.keyDown(KEY_A + 8);
    _hand.keyDown(KEY_LEFTSHIFT + 8);
    _monitor = valueOf(_screen->makeInputMonitor(_listener));
    _hand.keyUp(KEY_A + 8);
    type({{KEY_B}});
    _hand.keyUp(KEY_LEFTSHIFT + 8);
    type({{KEY_F12}});
    EXPECT_EQ(linesOf(_listener.takeKeysUntil(kF12)), (QStringList{u"+11 2"_s, u"-11 2"_s}));
}

struct MouseLine {
    PXMouseEventType type;
    PXMouseButton button;
    int x, y;
};

void expectMouse(Listener &listener, const std::vector<MouseLine> &expected, const char *name)
{
    const auto told = listener.takeMouse(
        [&](const Listener::Mouse &events) { return events.size() >= expected.size(); });
    ASSERT_EQ(told.size(), expected.size()) << name;
    for (std::size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told[i].type, expected[i].type) << name << i;
        EXPECT_EQ(told[i].button, expected[i].button) << name << i;
        EXPECT_EQ(told[i].x, expected[i].x) << name << i;
        EXPECT_EQ(told[i].y, expected[i].y) << name << i;
    }
}

TEST_F(X11InputMonitorTest, TellsOfClicksAndDrags)
{
    using enum PXMouseEventType;
    using enum PXMouseButton;
    const TestConnection test(_display.name());
    struct Case {
        const char *name;
        std::array<std::uint8_t, 10> arrangement;
        Hand::Button button;
        PXMouseButton told;
    };
    const Case cases[] = {
        {"left", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, Hand::LeftButton, Primary},
        {"right", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, Hand::RightButton, Secondary},
        {"leftHanded", {3, 2, 1, 4, 5, 6, 7, 8, 9, 10}, Hand::LeftButton, Secondary},
        {"leftHandedRight", {3, 2, 1, 4, 5, 6, 7, 8, 9, 10}, Hand::RightButton, Primary},
    };
    for (const Case &c : cases) {
        const TestReply<xcb_set_pointer_mapping_reply_t> set(xcb_set_pointer_mapping_reply(
            test.get(),
            xcb_set_pointer_mapping(test.get(), c.arrangement.size(), c.arrangement.data()),
            nullptr));
        ASSERT_TRUE(set && set->status == 0) << c.name;
        _hand.moveTo({300, 200});
        _hand.press(c.button);
        expectMouse(_listener, {{Down, c.told, 300, 200}}, c.name);
        _hand.moveTo({310, 220});
        expectMouse(_listener, {{Dragged, c.told, 310, 220}}, c.name);
        _hand.moveTo({320, 240});
        expectMouse(_listener, {{Dragged, c.told, 320, 240}}, c.name);
        _hand.release(c.button);
        expectMouse(_listener, {{Up, c.told, 320, 240}}, c.name);
    }
    // A button that is pressed twice, as programs do it, and released once.
    _hand.press(Hand::RightButton);
    _hand.press(Hand::RightButton);
    _hand.release(Hand::RightButton);
    expectMouse(_listener, {{Down, Primary, 320, 240}, {Up, Primary, 320, 240}}, "twice");
    // Neither the wheel nor moving alone is told.
    constexpr auto wheel = static_cast<Hand::Button>(4);
    _hand.press(wheel);
    _hand.release(wheel);
    _hand.moveTo({10, 10});
    _hand.press(Hand::RightButton);
    _hand.release(Hand::RightButton);
    expectMouse(_listener, {{Down, Primary, 10, 10}, {Up, Primary, 10, 10}}, "afterwards");
}

TEST_F(X11InputMonitorTest, HearsWhatAnotherProgramKeepsToItself)
{
    const TestConnection menu(_display.name());
    const TestReply<xcb_grab_keyboard_reply_t> keyboard(
        xcb_grab_keyboard_reply(menu.get(),
                                xcb_grab_keyboard(menu.get(), 0, menu.root(), XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr));
    const TestReply<xcb_grab_pointer_reply_t> pointer(xcb_grab_pointer_reply(
        menu.get(),
        xcb_grab_pointer(menu.get(), 0, menu.root(), XCB_EVENT_MASK_BUTTON_PRESS,
                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE,
                         XCB_CURRENT_TIME),
        nullptr));
    ASSERT_TRUE(keyboard && keyboard->status == XCB_GRAB_STATUS_SUCCESS);
    ASSERT_TRUE(pointer && pointer->status == XCB_GRAB_STATUS_SUCCESS);
    type({{KEY_LEFTSHIFT, KEY_A}, {KEY_F12}});
    EXPECT_EQ(linesOf(_listener.takeKeysUntil(kF12)),
              (QStringList{u"~56 2"_s, u"+0 2"_s, u"-0 2"_s, u"~56"_s}));
    using enum PXMouseEventType;
    _hand.moveTo({50, 60});
    _hand.press(Hand::LeftButton);
    expectMouse(_listener, {{Down, PXMouseButton::Primary, 50, 60}}, "press");
    _hand.moveTo({70, 60});
    expectMouse(_listener, {{Dragged, PXMouseButton::Primary, 70, 60}}, "drag");
    _hand.release(Hand::LeftButton);
    expectMouse(_listener, {{Up, PXMouseButton::Primary, 70, 60}}, "release");
}

TEST_F(X11InputMonitorTest, EndsWithTheServer)
{
    const auto front = valueOf(_screen->makeFrontProcess());
    const auto keyboard = valueOf(_screen->makeKeyboard());
    _display.kill();
    _monitor.reset(); // Returns.
    const auto refused = keyboard->registerHotKey(0, PXModifierControl, [](double) {});
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, PXDisplayLost);
    EXPECT_TRUE(keyboard->layout()); // The last one.
    front->setFrontProcess({0, 1});
    const auto monitor = _screen->makeInputMonitor(_listener);
    EXPECT_FALSE(monitor);
}

} // namespace
