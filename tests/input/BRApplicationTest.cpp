#include "input/BRApplication.h"

#include "app/BRFactoryDefaults.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXNotificationCenter.h"
#include "input/BRShortcutResponder.h"
#include "tests/input/Recorder.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/TestConnection.h"
#include "tests/x11/X11Screens.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QWidget>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

// Of the keyboard that `Hand` has.
constexpr int k2 = 11;
constexpr int kSuper = 133;
constexpr int kHeight = 701;
const std::vector<int> kActivation = {kSuper, Hand::Shift};
const std::vector<int> kToggle = {kSuper, Hand::Alt, Hand::Shift};

/// Another program with a connection of its own.
class OtherProgram final {
public:
    void holdKey(int key, std::uint16_t modifiers) const
    {
        xcb_grab_key(_connection.get(), 1, _connection.root(), modifiers,
                     static_cast<xcb_keycode_t>(key), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        _connection.sync();
    }
    void letKeysGo() const
    {
        xcb_ungrab_key(_connection.get(), XCB_GRAB_ANY, _connection.root(), XCB_MOD_MASK_ANY);
        _connection.sync();
    }
    /// As an open menu does.
    void grabKeyboardAndPointer() const
    {
        const TestReply<xcb_grab_keyboard_reply_t> keyboard(xcb_grab_keyboard_reply(
            _connection.get(),
            xcb_grab_keyboard(_connection.get(), 0, _connection.root(), XCB_CURRENT_TIME,
                              XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
            nullptr));
        ASSERT_EQ(keyboard->status, XCB_GRAB_STATUS_SUCCESS);
        const TestReply<xcb_grab_pointer_reply_t> pointer(xcb_grab_pointer_reply(
            _connection.get(),
            xcb_grab_pointer(_connection.get(), 0, _connection.root(), XCB_EVENT_MASK_BUTTON_PRESS,
                             XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE,
                             XCB_CURRENT_TIME),
            nullptr));
        ASSERT_EQ(pointer->status, XCB_GRAB_STATUS_SUCCESS);
    }

private:
    TestConnection _connection{theDesktop().name()};
};

class BRApplicationTest : public testing::Test {
protected:
    BRApplicationTest()
    {
        for (const auto &entry : BRFactoryDefaults::table())
            factory.insert(entry.key, entry.value);
        PXDefaults::standardUserDefaults().registerDefaults(factory);
        application.setMouseEventReceiver(&recorder);
        application.awakeFromNib();
    }

    void press(const std::vector<int> &held, int key) const
    {
        for (const int modifier : held)
            hand.keyDown(modifier);
        hand.type(key);
        for (const int modifier : held)
            hand.keyUp(modifier);
    }
    [[nodiscard]] QStringList callsAfter(const std::vector<int> &held)
    {
        recorder.calls.clear();
        press(held, k2);
        EXPECT_TRUE(waitUntil([&] { return !recorder.calls.isEmpty(); }));
        return std::exchange(recorder.calls, {});
    }

    QVariantMap factory;
    const std::unique_ptr<PXScreenPlatform> platform = openScreen(theDesktop());
    const Hand hand{theDesktop().name()};
    Recorder recorder;
    BRApplication application{*platform, recorder, &recorder};
};

TEST_F(BRApplicationTest, HotKeysSteerWindowAndRecording)
{
    EXPECT_EQ(callsAfter(kActivation), (QStringList{u"video"_s, u"display"_s, u"activate"_s}));
    recorder.isVisible = true;
    EXPECT_EQ(callsAfter(kActivation), (QStringList{u"display"_s, u"activate"_s}));
    recorder.records = true;
    EXPECT_EQ(callsAfter(kActivation), (QStringList{u"stop"_s, u"activate"_s}));
    EXPECT_EQ(callsAfter(kToggle), QStringList{u"toggle"_s});
    EXPECT_TRUE(recorder.beeps.isEmpty());
}

TEST_F(BRApplicationTest, ACombinationThatAnotherProgramHoldsIsReportedAndTakenOnceItIsFree)
{
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    const OtherProgram other;
    ASSERT_TRUE(defaults.setValue(u"activationShortcut"_s,
                                  QVariantMap{{u"modifiers"_s, u"Control"_s},
                                              {u"keyCode"_s, 18},
                                              {u"characters"_s, u"1"_s}}));
    other.holdKey(k2 - 1, XCB_MOD_MASK_CONTROL);
    application.setupHotKeys();
    EXPECT_EQ(recorder.beeps, QStringList{u"Could not register hotkey 10"_s});
    // The one before is free for others again, and the other one works on.
    other.holdKey(k2, XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT);
    EXPECT_EQ(callsAfter(kToggle), QStringList{u"toggle"_s});

    other.letKeysGo();
    recorder.isVisible = true;
    application.setupHotKeys();
    press({Hand::Control}, k2 - 1);
    EXPECT_TRUE(waitUntil([&] { return recorder.calls.contains(u"display"_s); }));
    EXPECT_EQ(recorder.beeps.size(), 1);

    ASSERT_TRUE(defaults.setValue(u"activationShortcut"_s, QVariantMap()));
    application.setupHotKeys();
    EXPECT_EQ(recorder.beeps.size(), 1);
    press({Hand::Control}, k2 - 1);
    EXPECT_EQ(callsAfter(kToggle), QStringList{u"toggle"_s}) << "none any more";
    EXPECT_TRUE(defaults.removeValue(u"activationShortcut"_s));
}

TEST_F(BRApplicationTest, AHotKeyActsOnceWhileWatchedAndAlsoWhileAMenuIsOpen)
{
    recorder.records = true;
    application.installMonitorHandler();
    application.installMonitorHandler();
    const OtherProgram menu;
    QStringList expected;
    for (const bool isOpen : {false, true}) {
        if (isOpen)
            menu.grabKeyboardAndPointer();
        for (int i = 0; i < 3; ++i) {
            press(kToggle, k2);
            expected << u"toggle"_s;
        }
        EXPECT_TRUE(waitUntil([&] { return recorder.calls.size() >= expected.size(); }));
    }
    press(kActivation, k2);
    expected << u"stop"_s << u"activate"_s;
    EXPECT_TRUE(waitUntil([&] { return recorder.calls.size() >= expected.size(); }));
    EXPECT_EQ(recorder.calls, expected);
}

TEST_F(BRApplicationTest, KeysOfOtherProgramsArePostedOnceEachWhileARecordingRuns)
{
    QStringList heard;
    const PXObservation observation = PXNotificationCenter::defaultCenter().addObserver(
        kBRExternalKeyboardEventNotification, nullptr,
        [&](const QString &, const void *, const QVariantMap &userInfo) {
            const auto event = userInfo.value(u"NSEvent"_s).value<PXKeyEvent>();
            heard << u"%1 %2 %3"_s.arg(static_cast<int>(event.type))
                         .arg(event.keyCode)
                         .arg(event.characters);
        });
    application.installMonitorHandler();
    press({}, Hand::A);
    // The mouse goes the same way, so what comes before has come.
    hand.click({5, 5});
    ASSERT_TRUE(waitUntil([&] { return recorder.mouse.size() >= 2; }));
    EXPECT_TRUE(heard.isEmpty()) << "nothing is recorded";

    recorder.records = true;
    press({Hand::Shift}, Hand::A);
    press(kToggle, k2); // Ours, and nobody else's.
    const QStringList expected = {u"12 56 "_s, u"10 0 A"_s, u"11 0 "_s,  u"12 56 "_s, u"12 55 "_s,
                                  u"12 58 "_s, u"12 56 "_s, u"12 55 "_s, u"12 58 "_s, u"12 56 "_s};
    EXPECT_TRUE(waitUntil([&] { return heard.size() >= expected.size(); }));
    EXPECT_EQ(heard, expected);

    // Keys of a window of ours are the toolkit's.
    heard.clear();
    QWidget window;
    window.show();
    window.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return window.isActiveWindow(); }));
    press({}, Hand::A);
    hand.click({5, 5});
    ASSERT_TRUE(waitUntil([&] { return recorder.mouse.size() >= 4; }));
    EXPECT_TRUE(heard.isEmpty());

    window.hide();
    application.uninstallMonitorHandler();
    recorder.mouse.clear();
    hand.click({5, 5});
    EXPECT_EQ(callsAfter(kToggle), QStringList{u"toggle"_s});
    EXPECT_TRUE(recorder.mouse.empty()) << "nobody watches any more";
}

TEST_F(BRApplicationTest, TheMouseIsToldInCoordinatesOfTheDisplayItIsOn)
{
    using enum BRMouseEventType;
    application.installMonitorHandler();
    // One at a time: a place is asked for after the event.
    const auto heardAfter = [&](const auto &act) {
        recorder.mouse.clear();
        act();
        EXPECT_TRUE(waitUntil([&] { return !recorder.mouse.empty(); }));
        return recorder.mouse;
    };
    const struct {
        std::function<void()> act;
        BRMouseEventType type;
        PXPoint point;
    } steps[] = {
        {[&] { hand.press(Hand::LeftButton); }, LeftMouseDown, {10, kHeight - 20}},
        {[&] {
             hand.moveTo({300, 200});
         },
         LeftMouseDragged,
         {300, kHeight - 200}},
        {[&] { hand.release(Hand::LeftButton); }, LeftMouseUp, {300, kHeight - 200}},
        {[&] { hand.press(Hand::RightButton); }, RightMouseDown, {300, kHeight - 200}},
        {[&] {
             hand.moveTo({30, 20});
         },
         RightMouseDragged,
         {30, kHeight - 20}},
        {[&] { hand.release(Hand::RightButton); }, RightMouseUp, {30, kHeight - 20}},
    };
    hand.moveTo({10, 20});
    for (const auto &step : steps)
        EXPECT_THAT(heardAfter(step.act),
                    testing::ElementsAre(testing::Pair(step.type, step.point)));
    // A wheel and buttons beside it are nothing.
    hand.press(static_cast<Hand::Button>(4));
    hand.release(static_cast<Hand::Button>(4));
    EXPECT_EQ(heardAfter([&] { hand.press(Hand::LeftButton); }).front().first, LeftMouseDown);
    hand.release(Hand::LeftButton);
}

/// A view that takes one combination, if it likes.
class Responder final : public QWidget, public BRShortcutResponder {
public:
    [[nodiscard]] bool respondsToShortcut(const PXShortcut &shortcut) const override
    {
        return shortcut.keyCode() == 0 && shortcut.modifiers() == PXModifierControl;
    }
    bool triggerShortcut(const PXShortcut &) override
    {
        ++triggered;
        return takes;
    }
    int triggered = 0;
    int keys = 0;
    bool takes = true;

protected:
    void keyPressEvent(QKeyEvent *event) override
    {
        if (event->key() == Qt::Key_A)
            ++keys;
    }
};

TEST_F(BRApplicationTest, AFirstResponderIsAskedBeforeTheKeyGoesItsUsualWay)
{
    Responder responder;
    responder.show();
    responder.activateWindow();
    responder.setFocus();
    ASSERT_TRUE(waitUntil([&] { return responder.isActiveWindow(); }));
    press({Hand::Control}, Hand::A);
    EXPECT_TRUE(waitUntil([&] { return responder.triggered == 1; }));
    responder.takes = false;
    press({Hand::Control}, Hand::A);
    EXPECT_TRUE(waitUntil([&] { return responder.keys == 1; }));
    EXPECT_EQ(responder.triggered, 2);
    press({}, Hand::A);
    EXPECT_TRUE(waitUntil([&] { return responder.keys == 2; }));
    EXPECT_EQ(responder.triggered, 2);
}

TEST_F(BRApplicationTest, GivesTheKeyboardBackToTheProgramThatWasInFrontBefore)
{
    const auto front = valueOf(platform->makeFrontProcess());
    QWidget window;
    QWidget dialog;
    const auto activate = [](QWidget &ours) {
        ours.show();
        ours.activateWindow();
        return waitUntil([&] { return ours.isActiveWindow(); });
    };
    ASSERT_TRUE(activate(window));
    const PaintedWindow theirs(theDesktop(), {300, 300, 200, 100}, 0x3060A0,
                               PaintedWindow::Kind::Managed);
    const PXProcessSerialNumber other = {0, theirs.id()};
    const auto ours = static_cast<std::uint32_t>(window.winId());
    // That it was in front has been noticed once ours is the one before.
    ASSERT_TRUE(waitUntil([&] { return application.previousFrontProcess().lowLongOfPSN == ours; }));
    for (QWidget *next : {&window, &dialog}) {
        EXPECT_TRUE(activate(*next));
        EXPECT_TRUE(waitUntil([&] { return application.previousFrontProcess() == other; }));
    }
    application.deactivateByActivatingProcess(application.previousFrontProcess());
    EXPECT_TRUE(waitUntil(
        [&] { return QApplication::activeWindow() == nullptr && front->frontProcess() == other; }));
}

} // namespace
