#include "overlays/KPDefaultKeyboardVisualizer.h"

#include "capture/BRScreenRecorder.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXNotificationCenter.h"
#include "input/BRApplication.h"
#include "overlays/KPDefaultKeystrokeStackerView.h"
#include "overlays/KPKeyboardPosition.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/overlays/TypedKeys.h"
#include "tests/support/PaintedWindow.h"

#include <QMoveEvent>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr QRgb kBelow = 0xFF3060A0;
constexpr std::uint32_t kCommand = 0x100000;
constexpr std::uint32_t kControl = 0x40000;

const QVariantMap kFactory = {
    {u"showKeyboardAlways"_s, false},
    {u"showMultipleKeyboardEvents"_s, true},
    {u"showKeyboardCommands"_s, true},
    {u"showKeyboardCommandsSeparately"_s, true},
    {u"showKeyboardCharacters"_s, true},
    {u"showKeyboardOtherKeys"_s, true},
    {u"keyboardEventDuration"_s, 1000.0},
    {u"keyboardEventNewLineDelay"_s, 1.5},
    {u"keyboardEventTextSize"_s, 40},
    {u"keyboardEventPosition"_s, 7},
    {u"keyboardEventBackgroundColor"_s, PXColor::calibratedWhite(0, 0.8F).archivedData()},
    {u"keyboardEventTextColor"_s, PXColor::calibratedWhite(1, 1).archivedData()},
};

/// Counts how often a window is moved.
class MoveWatch final : public QObject {
public:
    explicit MoveWatch(QWidget &widget) { widget.installEventFilter(this); }
    bool eventFilter(QObject *, QEvent *event) override
    {
        moves += event->type() == QEvent::Move ? 1 : 0;
        return false;
    }

    int moves = 0;
};

class KPKeyboardVisualizerTest : public OverlayTest, private KPKeyboardVisualizerDelegate {
protected:
    KPKeyboardVisualizerTest()
    {
        defaults.registerDefaults(kFactory);
        makeVisualizer();
    }
    ~KPKeyboardVisualizerTest() override { defaults.registerDefaults(kFactory); }

    void makeVisualizer()
    {
        visualizer = std::make_unique<KPDefaultKeyboardVisualizer>(
            *windowServer, platform->mainDisplay(),
            static_cast<KPKeyboardVisualizerDelegate &>(*this));
    }
    /// Only for this test.
    void set(const QString &key, const QVariant &value)
    {
        defaults.registerDefaults({{key, value}});
    }
    static void post(const PXKeyEvent &event)
    {
        PXNotificationCenter::defaultCenter().postNotificationName(
            kBRExternalKeyboardEventNotification, nullptr,
            {{u"NSEvent"_s, QVariant::fromValue(event)}});
    }
    void type(const QString &text)
    {
        for (const QChar character : text)
            post(keyDown(kLetterKey, 0, character, character, time += 0.1));
    }
    void command(const QString &letter) { post(keyDown(kLetterKey, kCommand, letter, {}, ++time)); }
    void selectionChanged()
    {
        PXNotificationCenter::defaultCenter().postNotificationName(
            kBRScreenRecorderScreenSelectionRectChangedNotification, nullptr);
    }
    /// Newest first.
    [[nodiscard]] QStringList lines() const
    {
        QStringList result;
        for (const KPKeystroke &keystroke : visualizer->stackerView().keystrokes())
            result.append(keystroke.displayString());
        return result;
    }
    [[nodiscard]] KPDefaultWindow &window() const { return visualizer->window(); }
    [[nodiscard]] QRect frame() const
    {
        const PXPixelRect &rect = window().frame();
        return {rect.x, rect.y, rect.width, rect.height};
    }
    /// What of the desktop is not as it was, when it has come to rest at `frame()`.
    [[nodiscard]] bool isSeenAt(const QRect &place) const
    {
        QRect seen;
        const QImage screen = screenshot();
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                if (screen.pixel(x, y) != kBelow)
                    seen |= QRect(x, y, 1, 1);
        return seen == place;
    }
    [[nodiscard]] bool hasComeToRest() const
    {
        return window().alphaValue() >= 1 && window().interiorSize() == window().shownInteriorSize()
            && isSeenAt(frame());
    }

    PXRect currentScreenSelectionRect() const override { return selection; }
    const std::vector<PXShortcut> &keyboardShortcutExceptions() override { return exceptions; }

    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    PXRect selection = {100, 101, 801, 501};
    std::vector<PXShortcut> exceptions;
    double time = 100;
    const PaintedWindow below{theDesktop(), {0, 0, kWidth, kHeight}, kBelow & 0xFFFFFF};
    std::unique_ptr<KPDefaultKeyboardVisualizer> visualizer;
};

INSTANTIATE_TEST_SUITE_P(, KPKeyboardVisualizerTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

TEST_P(KPKeyboardVisualizerTest, LetsThroughWhatIsWanted)
{
    const PXKeyEvent shortcut = keyDown(kLetterKey, kCommand, u"s"_s, {});
    const PXKeyEvent character = keyDown(kLetterKey, 0, u"s"_s, u"s"_s);
    const PXKeyEvent otherKey = keyDown(kDeleteKey, 0, {}, {});
    PXKeyEvent released = shortcut;
    released.type = PXKeyEventType::KeyUp;
    PXKeyEvent modifier = keyDown(55, kCommand, {}, {});
    modifier.type = PXKeyEventType::FlagsChanged;
    const struct {
        const char *name;
        PXKeyEvent event;
        QString unlessSet; ///< It is shown by default, and not with this switched off.
    } rows[] = {
        {"shortcut", shortcut, u"showKeyboardCommands"_s},
        {"character", character, u"showKeyboardCharacters"_s},
        {"heldCharacter", repeated(character), u"showKeyboardCharacters"_s},
        {"otherKey", otherKey, u"showKeyboardOtherKeys"_s},
    };
    for (const auto &row : rows) {
        const QStringList before = lines();
        set(row.unlessSet, false);
        post(row.event);
        EXPECT_EQ(lines(), before) << row.name;
        set(row.unlessSet, true);
        post(row.event);
        EXPECT_NE(lines(), before) << row.name;
    }
    const auto before = lines();
    post(released);
    post(modifier);
    post(keyDown(200, 0, {}, {}));
    // Also where another layout was active when the exception was made.
    exceptions = {PXShortcut({}, shortcut.modifierFlags, shortcut.keyCode, u"я"_s)};
    post(shortcut);
    EXPECT_EQ(lines(), before);
}

TEST_P(KPKeyboardVisualizerTest, KeepsCharactersShortOnceTheyAreNotWanted)
{
    type(u"secret"_s);
    set(u"showKeyboardCharacters"_s, false);
    post(repeated(keyDown(kLetterKey, 0, u"t"_s, u"t"_s, time)));
    post(keyDown(kDeleteKey, 0, {}, {}, time));
    post(keyDown(kDeleteKey, 0, {}, {}, time));
    EXPECT_EQ(lines(), QStringList({u"⌫⌫"_s, u"secret"_s}));
}

struct Press {
    double time;
    std::uint16_t keyCode;
    std::uint32_t modifiers;
    QString text;
    bool isARepeat = false;
};

TEST_P(KPKeyboardVisualizerTest, RunsTogetherWhatIsTypedQuickly)
{
    const struct {
        const char *name;
        QVariantMap settings;
        std::vector<Press> presses;
        QStringList lines; ///< Newest first.
    } rows[] = {
        {"quick", {}, {{0, 1, 0, u"a"_s}, {1.49, 1, 0, u"b"_s}, {2.9, 1, 0, u"c"_s}}, {u"abc"_s}},
        {"pause", {}, {{0, 1, 0, u"a"_s}, {1.5, 1, 0, u"b"_s}}, {u"b"_s, u"a"_s}},
        {"delayOfTheUser",
         {{u"keyboardEventNewLineDelay"_s, 0.5}},
         {{0, 1, 0, u"a"_s}, {0.6, 1, 0, u"b"_s}},
         {u"b"_s, u"a"_s}},
        {"shortcutsApart",
         {},
         {{0, 1, 0, u"a"_s}, {0.1, 1, kCommand, u"s"_s}, {0.2, 1, kControl, u"s"_s}},
         {u"⌃S"_s, u"⌘S"_s, u"a"_s}},
        {"shortcutsTogether",
         {{u"showKeyboardCommandsSeparately"_s, false}},
         {{0, 1, 0, u"a"_s}, {0.1, 1, kCommand, u"s"_s}},
         {u"a⌘S"_s}},
        {"oneLineOnly",
         {{u"showMultipleKeyboardEvents"_s, false}},
         {{0, 1, 0, u"a"_s}, {0.1, 1, 0, u"b"_s}, {0.2, 1, kCommand, u"s"_s}},
         {u"⌘S"_s}},
        {"heldWhileOneLineOnly",
         {{u"showMultipleKeyboardEvents"_s, false}},
         {{0, 1, 0, u"a"_s}, {0.5, 1, 0, u"a"_s, true}, {0.6, 1, 0, u"a"_s, true}},
         {u"a\u00A0×3"_s}},
        {"heldLongerThanTheDelay",
         {{u"keyboardEventNewLineDelay"_s, 0.1}},
         {{0, 1, 0, u"a"_s}, {0.5, 1, 0, u"a"_s, true}, {0.55, 2, 0, u"b"_s}},
         {u"a\u00A0×2 b"_s}},
        {"heldShortcut",
         {},
         {{0, 1, kCommand, u"z"_s}, {0.5, 1, kCommand, u"z"_s, true}, {1, 1, kCommand, u"z"_s}},
         {u"⌘Z"_s, u"⌘Z\u00A0×2"_s}},
    };
    for (const auto &row : rows) {
        visualizer.reset();
        defaults.registerDefaults(kFactory);
        defaults.registerDefaults(row.settings);
        makeVisualizer();
        for (const Press &press : row.presses) {
            PXKeyEvent event = keyDown(press.keyCode, press.modifiers, press.text,
                                       press.modifiers == 0 ? press.text : QString(), press.time);
            event.isARepeat = press.isARepeat;
            post(event);
        }
        EXPECT_EQ(lines(), row.lines) << row.name;
    }
}

TEST(KPKeyboardPosition, StandsInTheRecordedRectangle)
{
    const PXRect selection = {100, 50, 801, 401};
    const PXPoint origins[] = {{400, 234}, {400, 408}, {690, 234}, {400, 60}, {110, 234},
                               {110, 408}, {690, 408}, {690, 60},  {110, 60}};
    int code = 0;
    for (const PXPoint &origin : origins) {
        const auto position = KPKeyboardPosition::positionWithCode(code);
        ASSERT_TRUE(position) << code;
        EXPECT_EQ(position->originOf({201, 33}, selection), origin) << code;
        ++code;
    }
    EXPECT_FALSE(KPKeyboardPosition::positionWithCode(9));
    EXPECT_FALSE(KPKeyboardPosition::positionWithCode(-1));
}

TEST_P(KPKeyboardVisualizerTest, StandsInItsPlaceAndMovesWithTheRecordedRectangle)
{
    command(u"s"_s);
    EXPECT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    EXPECT_EQ(frame().bottomRight(), QPoint(890, 589)) << "10 from the recorded rectangle's";
    command(u"t"_s);
    type(u"and some text"_s);
    EXPECT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    EXPECT_EQ(frame().bottomRight(), QPoint(890, 589));
    set(u"keyboardEventPosition"_s, 5);
    selection.x -= 50;
    selectionChanged();
    EXPECT_TRUE(waitUntil([&] { return frame().topLeft() == QPoint(60, 109) && hasComeToRest(); }));
    set(u"keyboardEventPosition"_s, 99);
    selection.x += 50;
    selectionChanged();
    command(u"u"_s);
    EXPECT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    EXPECT_EQ(frame().x(), 60) << "as proposed: where it was";
}

TEST_P(KPKeyboardVisualizerTest, MovesToTheNewestPlaceOnly)
{
    command(u"s"_s);
    ASSERT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    const MoveWatch watch(window());
    // The main thread waits for it: had it to be waited for, this would not end.
    std::thread([&] {
        for (int i = 0; i < 1000; ++i) {
            selection.x = static_cast<float>(i % 100);
            selectionChanged();
        }
    }).join();
    EXPECT_TRUE(waitUntil([&] { return frame().right() == 99 + 801 - 10 - 1; }));
    EXPECT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    EXPECT_LE(watch.moves, 2) << "the toolkit may tell of one twice";
}

TEST_P(KPKeyboardVisualizerTest, GoesWithTheLastLine)
{
    command(u"s"_s);
    command(u"t"_s);
    const int bothLines = window().interiorSize().height();
    ASSERT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    set(u"keyboardEventDuration"_s, 0.0);
    EXPECT_TRUE(waitUntil([&] { return lines() == QStringList(u"⌘T"_s); })) << "the oldest first";
    EXPECT_EQ(window().interiorSize().height(), bothLines / 2);
    EXPECT_TRUE(waitUntil([&] { return !window().isVisible(); }));
    EXPECT_TRUE(lines().isEmpty());
    EXPECT_TRUE(waitUntil([&] { return isSeenAt({}); }));
    set(u"keyboardEventDuration"_s, 1000.0);
    command(u"u"_s);
    EXPECT_TRUE(waitUntil([&] { return hasComeToRest(); })) << "and comes again";
}

TEST_P(KPKeyboardVisualizerTest, StaysWhileItIsAlwaysShown)
{
    set(u"showKeyboardAlways"_s, true);
    EXPECT_FALSE(window().isVisible());
    selectionChanged();
    EXPECT_TRUE(waitUntil([&] { return window().isVisible() && hasComeToRest(); }));
    command(u"s"_s);
    EXPECT_GT(window().interiorSize().height(), 0);
    set(u"keyboardEventDuration"_s, 0.0);
    EXPECT_TRUE(waitUntil([&] { return lines().isEmpty() && hasComeToRest(); }));
    EXPECT_TRUE(window().isVisible());
    EXPECT_EQ(window().interiorSize().height(), 0);
}

TEST_P(KPKeyboardVisualizerTest, StaysInsideOfTheRecordedRectangle)
{
    struct Size {
        float width;
        float height;
    };
    for (const Size size : {Size{801, 501}, Size{200, 90}, Size{60, 60}}) {
        for (const int textSize : {1, 12, 72, 1000}) {
            selection.width = size.width;
            selection.height = size.height;
            set(u"keyboardEventTextSize"_s, textSize);
            for (const QString &text :
                 {u"The quick brown fox jumps over the lazy dog, then rests"_s,
                  u"שלום עולם, זה משפט ארוך מאוד שלא נכנס בשורה אחת"_s}) {
                type(text);
                time += 10;
            }
            post(keyDown(200, 0x1E0000, u"\uF72F"_s, {}, ++time)); // The longest name there is.
            for (int i = 0; i < 12; ++i)
                command(u"s"_s);
            const PXPixelRect room = PXPixelsFromRect(selection, platform->mainDisplay().bounds());
            const QRect inner
                = QRect(room.x, room.y, room.width, room.height).adjusted(10, 10, -10, -10);
            EXPECT_TRUE(inner.contains(frame())) << size.width << ' ' << textSize;
            EXPECT_FALSE(lines().isEmpty());
        }
    }
    // 501 less margins and insets hold so many lines of the smallest text.
    EXPECT_LE(visualizer->stackerView().keystrokes().size(), 40U);
}

/// How much the lightest and the darkest pixel differ: 1 of equal ones to 21.
double contrastIn(const QImage &image)
{
    double lightest = 0;
    double darkest = 1;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double light = std::pow(qGray(image.pixel(x, y)) / 255.0, 2.2);
            lightest = std::max(lightest, light);
            darkest = std::min(darkest, light);
        }
    }
    return (lightest + 0.05) / (darkest + 0.05);
}

TEST_P(KPKeyboardVisualizerTest, IsLegibleWhateverTheColours)
{
    set(u"keyboardEventPosition"_s, 0);
    const PXColor clear = PXColor::calibratedWhite(1, 0);
    const PXColor whites[] = {PXColor::calibratedWhite(1, 1), PXColor::calibratedWhite(1, 0.3F)};
    const PXColor blue = PXColor::calibratedRGB(0.2F, 0.4F, 0.6F, 1); // Nearly the desktop's.
    for (const PXColor &text : {whites[0], whites[1], blue, clear}) {
        for (const PXColor &background : {whites[0], whites[1], blue, clear}) {
            set(u"keyboardEventTextColor"_s, text.archivedData());
            set(u"keyboardEventBackgroundColor"_s, background.archivedData());
            command(u"s"_s);
            ASSERT_TRUE(waitUntil([&] {
                return window().interiorSize() == window().shownInteriorSize()
                    && contrastIn(screenshot().copy(frame().adjusted(12, 12, -12, -12))) > 3;
            })) << text.components[1]
                << ' ' << background.components[1];
        }
    }
}

TEST_P(KPKeyboardVisualizerTest, FollowsACompositorThatComesOrGoes)
{
    command(u"s"_s);
    ASSERT_TRUE(waitUntil([&] { return hasComeToRest(); }));
    const auto isRoundedAnd = [&](int red) {
        const QImage screen = screenshot();
        const QRect place = frame();
        return screen.pixel(place.topLeft()) == kBelow
            && screen.pixel(place.bottomRight()) == kBelow
            && std::abs(qRed(screen.pixel(place.left() + 4, place.center().y())) - red) <= 2;
    };
    for (const auto compositor :
         {VirtualDisplay::Compositor::XRender, VirtualDisplay::Compositor::None, GetParam()}) {
        theDesktop().setCompositor(compositor);
        const bool isBlending = compositor != VirtualDisplay::Compositor::None;
        EXPECT_TRUE(waitUntil([&] { return isRoundedAnd(isBlending ? qRed(kBelow) / 5 : 0); }))
            << isBlending;
    }
}

} // namespace
