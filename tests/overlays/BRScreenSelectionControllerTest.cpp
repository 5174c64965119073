#include "overlays/BRScreenSelectionController.h"

#include "foundation/PXDefaults.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/PaintedWindow.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>

#include <random>

using namespace Qt::StringLiterals;

static void PrintTo(const PXRect &rect, std::ostream *out)
{
    *out << PXStringFromRect(rect).toStdString();
}

namespace {

/// Opens the selection on a desktop with a window full of colours.
class BRScreenSelectionTest : public OverlayTest, private BRScreenSelectionDelegate {
protected:
    BRScreenSelectionTest()
    {
        std::mt19937 random(3); // NOLINT: the same picture in each run
        background.keepWhatIsCovered();
        background.fillAtRandom(random, 60);
        for (const QString &key : {u"screenSelectionRect"_s, u"screenSelectionSizing"_s,
                                   u"screenSelectionWidth"_s, u"screenSelectionHeight"_s})
            EXPECT_TRUE(defaults.removeValue(key));
        // Where no cursor changes what is seen.
        hand.moveTo({kWidth - 1, 0});
    }
    ~BRScreenSelectionTest() override
    {
        // A drag that a failed test left half done.
        hand.release(Hand::LeftButton);
        if (controller.isDisplayed())
            controller.okButton();
    }

    void open(const PXRect &rect)
    {
        ASSERT_TRUE(defaults.setValue(u"screenSelectionRect"_s, PXStringFromRect(rect)));
        open();
    }
    void open()
    {
        action = -1;
        before = screenshot();
        controller.displayWindowWithDelegate(*this, u"Take It"_s);
        // The panel stands where a test would grab.
        panel()->move(0, 0);
        // No key comes before the window has the keyboard.
        ASSERT_TRUE(waitUntil([&] { return panel()->window()->isActiveWindow(); }));
    }
    /// What the hand has done arrives, and leads to that.
    void expect(const PXRect &rect, const char *what)
    {
        (void)waitUntil([&] { return controller.selectionRect() == rect; });
        EXPECT_EQ(controller.selectionRect(), rect) << what;
        EXPECT_EQ(PXRectFromString(defaults.stringValue(u"screenSelectionRect"_s)), rect) << what;
    }
    /// A point of the display in the pixels that a hand knows.
    static QPoint at(float x, float y)
    {
        return {static_cast<int>(x), kHeight - static_cast<int>(y)};
    }

    [[nodiscard]] QWidget *panel() const { return controller.window(); }
    [[nodiscard]] BRScreenSelectionView *view() const
    {
        for (QWidget *child : panel()->window()->findChildren<QWidget *>())
            if (auto *found = dynamic_cast<BRScreenSelectionView *>(child))
                return found;
        return nullptr;
    }
    /// Width, then height.
    [[nodiscard]] QLineEdit *field(int index) const
    {
        return panel()->findChildren<QLineEdit *>().at(index);
    }
    [[nodiscard]] QPoint pixelOf(const QWidget *widget) const
    {
        const QPoint center = widget->mapTo(panel()->window(), widget->rect().center());
        return (QPointF(center) * panel()->devicePixelRatioF()).toPoint();
    }

    void screenSelectionDidEnd(int value) override { action = value; }

    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    PaintedWindow background{theDesktop(), {0, 0, kWidth, kHeight}, 0xC0D0E0};
    QImage before; ///< The screen.
    int action = -1;
    BRScreenSelectionController controller{*platform, *windowServer};
};

INSTANTIATE_TEST_SUITE_P(, BRScreenSelectionTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

TEST_P(BRScreenSelectionTest, HandsDragWhatIsUnderThem)
{
    constexpr PXRect kStart = {400, 200, 301, 201};
    const struct {
        const char *name;
        QPoint from, to;
        PXRect expected;
    } rows[] = {
        {"topLeft", at(401, 395), at(380, 420), {380, 200, 321, 220}},
        {"topRight", at(699, 399), at(750, 350), {400, 200, 350, 150}},
        {"bottomLeft", at(399, 199), at(390, 150), {390, 150, 311, 251}},
        {"bottomRight", at(700, 200), at(760, 180), {400, 180, 360, 221}},
        {"left", at(400, 300), at(390, 390), {390, 200, 311, 201}},
        {"right", at(700, 300), at(730, 200), {400, 200, 331, 201}},
        {"top", at(550, 407), at(650, 427), {400, 200, 301, 221}},
        {"bottom", at(550, 200), at(550, 180), {400, 180, 301, 221}},
        {"leftThroughRight", at(400, 300), at(750, 300), {701, 200, 49, 201}},
        {"rightThroughLeft", at(700, 300), at(350, 300), {351, 200, 49, 201}},
        {"topThroughBottom", at(550, 400), at(550, 150), {400, 151, 301, 49}},
        {"bottomThroughTop", at(550, 200), at(550, 450), {400, 401, 301, 49}},
        {"cornerThroughItsOpposite", at(401, 395), at(800, 100), {701, 100, 99, 100}},
        {"moved", at(550, 300), at(600, 280), {450, 180, 301, 201}},
        {"movedBeyondTheLeft", at(500, 300), at(20, 300), {0, 200, 301, 201}},
        {"movedBeyondTheRight", at(550, 300), at(990, 300), {700, 200, 301, 201}},
        {"movedBeyondTheTop", at(550, 210), at(550, 690), {400, 500, 301, 201}},
        {"movedBeyondTheBottom", at(550, 390), at(550, 20), {400, 0, 301, 201}},
        {"anew", at(800, 600), at(900, 650), {800, 600, 100, 50}},
        {"anewBackwards", at(900, 650), at(750, 500), {750, 500, 150, 150}},
        {"toTheFarCorner", at(800, 100), at(kWidth - 1, 1), {800, 0, 201, 100}},
        {"toTheNearCorner", at(300, 600), at(0, kHeight), {0, 600, 300, 101}},
        {"aClickOutside", at(850, 100), at(850, 100), kStart},
    };
    open(kStart);
    panel()->hide();
    for (const auto &row : rows) {
        view()->setSelectionRect(kStart);
        hand.drag({row.from, (row.from + row.to) / 2, row.to});
        expect(row.expected, row.name);
    }
}

TEST_P(BRScreenSelectionTest, FixedAspectIsKept)
{
    constexpr PXRect kStart = {400, 200, 320, 240};
    const struct {
        const char *name;
        QPoint from, to;
        PXRect expected;
    } rows[] = {
        {"cornerTooWide", at(719, 439), at(799, 409), {400, 200, 279, 209}},
        {"cornerTooHigh", at(719, 439), at(700, 600), {400, 200, 300, 225}},
        {"oppositeCorner", at(400, 200), at(420, 100), {420, 215, 300, 225}},
        {"right", at(719, 320), at(759, 320), {400, 200, 360, 270}},
        {"bottom", at(560, 200), at(560, 170), {400, 170, 360, 270}},
        {"anew", at(800, 600), at(900, 650), {800, 600, 67, 50}},
        {"moved", at(560, 300), at(590, 310), {430, 210, 320, 240}},
    };
    ASSERT_TRUE(defaults.setValue(u"screenSelectionSizing"_s, 1));
    ASSERT_TRUE(defaults.setValue(u"screenSelectionWidth"_s, 4));
    ASSERT_TRUE(defaults.setValue(u"screenSelectionHeight"_s, 3));
    open({400, 200, 320, 320});
    expect({400, 280, 320, 240}, "the upper edge stays");
    EXPECT_EQ(field(0)->text() + u':' + field(1)->text(), u"4:3"_s);
    panel()->hide();
    for (const auto &row : rows) {
        view()->setSelectionRect(kStart);
        hand.drag({row.from, row.to});
        expect(row.expected, row.name);
    }
}

TEST_P(BRScreenSelectionTest, KeysMoveAndEnd)
{
    open({400, 200, 300, 200});
    for (const int key : {Hand::Left, Hand::Left, Hand::Up, Hand::Up, Hand::Up, Hand::Right})
        hand.type(key);
    hand.type(Hand::Down);
    hand.typeDigits(u"5"_s); // Nothing.
    expect({399, 202, 300, 200}, "arrows");
    const struct {
        int key;
        int action;
    } rows[] = {{Hand::Return, 1}, {Hand::KeypadEnter, 1}, {Hand::Escape, 0}};
    for (const auto &row : rows) {
        if (!controller.isDisplayed())
            open({399, 202, 300, 200});
        hand.type(row.key);
        ASSERT_TRUE(waitUntil([&] { return action >= 0; })) << row.key;
        EXPECT_EQ(action, row.action) << row.key;
        EXPECT_EQ(controller.selectionRect(), (PXRect{399, 202, 300, 200}));
        EXPECT_FALSE(controller.isDisplayed());
        EXPECT_TRUE(waitUntil([&] { return screenshot() == before; })) << "the screen is back";
    }
}

TEST_P(BRScreenSelectionTest, ShowsTheFrozenScreenDimmedButForTheSelection)
{
    constexpr PXRect kSelection = {101, 90, 333, 222};
    const QRect selection(101, kHeight - 312, 333, 222);
    open({500, 300, 100, 100});
    panel()->hide();
    hand.drag({at(101, 312), at(300, 150), at(434, 90)});
    expect(kSelection, "drawn");
    // Where no cursor shape is left on the selection either.
    const QRect handles = selection.adjusted(-18, -18, 18, 18);
    const QRect inside = selection.adjusted(16, 16, -16, -16);
    const QRect info(selection.center() - QPoint(100, 60), QSize(200, 120));
    const auto isRight = [&] {
        const QImage seen = screenshot();
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const QRgb was = before.pixel(x, y);
                const QRgb is = seen.pixel(x, y);
                const bool isBright = inside.contains(x, y) && !info.contains(x, y);
                const bool isDim = !handles.contains(x, y);
                if (isBright && is != was)
                    return false;
                if (isDim
                    && (std::abs(qRed(is) * 2 - qRed(was)) > 2
                        || std::abs(qGreen(is) * 2 - qGreen(was)) > 2
                        || std::abs(qBlue(is) * 2 - qBlue(was)) > 2))
                    return false;
            }
        }
        // The edge, where no handle is.
        const int x = selection.left() + 60;
        const QRgb black = 0xFF000000;
        return seen.pixel(x, selection.top() - 2) == black
            && seen.pixel(x, selection.top() - 1) == black
            && seen.pixel(x, selection.top()) == before.pixel(x, selection.top())
            && seen.pixel(x, selection.bottom()) == before.pixel(x, selection.bottom())
            && seen.pixel(x, selection.bottom() + 1) == black
            && seen.pixel(selection.left() - 2, selection.top() + 50) == black
            && seen.pixel(selection.right() + 2, selection.top() + 50) == black
            && seen.pixel(selection.right(), selection.top() + 50)
            == before.pixel(selection.right(), selection.top() + 50);
    };
    EXPECT_TRUE(waitUntil(isRight));
    // What was painted piece by piece while a hand dragged is what painting all at once gives.
    const QImage inPieces = screenshot();
    view()->update();
    QCoreApplication::processEvents();
    EXPECT_TRUE(waitUntil([&] { return screenshot() == inPieces; }));
}

TEST_P(BRScreenSelectionTest, RemembersOrBeginsLeftOfTheMiddle)
{
    const struct {
        const char *name;
        QString stored;
        int sizing;
        PXRect expected;
        int sizingAfter;
    } rows[] = {
        {"nothing", {}, 0, {kWidth / 2.0F - 420, kHeight / 2.0F - 150, 400, 300}, 0},
        {"zero",
         u"{{0, 0}, {0, 0}}"_s,
         1,
         {kWidth / 2.0F - 420, kHeight / 2.0F - 150, 400, 300},
         0},
        {"noText", u"nonsense"_s, 1, {kWidth / 2.0F - 420, kHeight / 2.0F - 150, 400, 300}, 0},
        {"noWidth", u"{{10, 20}, {0.5, 30}}"_s, 1, {10, 20, 0.5F, 30}, 0},
        {"outside", u"{{900, -20}, {300, 200}}"_s, 0, {701, 0, 300, 200}, 0},
        {"unknownSizing", u"{{10, 20}, {30, 40}}"_s, 7, {10, 20, 30, 40}, 7},
    };
    for (const auto &row : rows) {
        const QString key = u"screenSelectionRect"_s;
        ASSERT_TRUE(row.stored.isEmpty() ? defaults.removeValue(key)
                                         : defaults.setValue(key, row.stored));
        ASSERT_TRUE(defaults.setValue(u"screenSelectionSizing"_s, row.sizing));
        open();
        EXPECT_EQ(controller.selectionRect(), row.expected) << row.name;
        EXPECT_EQ(defaults.intValue(u"screenSelectionSizing"_s), row.sizingAfter) << row.name;
        controller.okButton();
    }
}

TEST_P(BRScreenSelectionTest, PanelSetsSizesByKeysAndMouse)
{
    open({100, 100, 300, 200});
    EXPECT_EQ(field(0)->text(), u"300"_s);
    EXPECT_EQ(field(1)->text(), u"200"_s);
    hand.type(Hand::Tab); // From the picture into the panel.
    ASSERT_TRUE(waitUntil([&] { return field(0)->hasFocus(); }));
    hand.typeDigits(u"450"_s);
    hand.type(Hand::Return);
    expect({100, 100, 450, 200}, "width");
    EXPECT_TRUE(controller.isDisplayed()) << "the first Return takes the number";
    hand.type(Hand::Tab);
    hand.typeDigits(u"9999"_s);
    hand.type(Hand::Tab); // Leaving the field takes it, too.
    expect({100, 0, 450, kHeight}, "cut to the display");
    EXPECT_EQ(field(1)->text(), QString::number(kHeight));
    // The popup: down and Return.
    hand.type(Hand::Down);
    ASSERT_TRUE(waitUntil([&] { return defaults.intValue(u"screenSelectionSizing"_s) == 1; }));
    EXPECT_EQ(defaults.intValue(u"screenSelectionWidth"_s), 4);
    EXPECT_EQ(defaults.intValue(u"screenSelectionHeight"_s), 3);
    expect({100, kHeight - 338, 450, 338}, "the aspect's height");
    EXPECT_EQ(field(0)->text() + u':' + field(1)->text(), u"4:3"_s);
    field(0)->setFocus();
    field(0)->selectAll();
    hand.typeDigits(u"2"_s);
    hand.type(Hand::Return);
    ASSERT_TRUE(waitUntil([&] { return defaults.intValue(u"screenSelectionWidth"_s) == 2; }));
    EXPECT_EQ(view()->selectionAspect(), (PXSize{2, 3}));
    // The mode that is there is none that is entered.
    auto *popup = panel()->findChild<QComboBox *>();
    Q_EMIT popup->activated(popup->currentIndex());
    EXPECT_EQ(defaults.intValue(u"screenSelectionWidth"_s), 2);
    hand.type(Hand::Return); // Nothing to take: the button.
    ASSERT_TRUE(waitUntil([&] { return action == 1; }));
    const PXRect chosen = controller.selectionRect();
    open(chosen);
    field(0)->setFocus();
    field(0)->selectAll();
    hand.typeDigits(u"77"_s);
    ASSERT_TRUE(waitUntil([&] { return field(0)->text() == u"77"_s; }));
    hand.type(Hand::Escape);
    ASSERT_TRUE(waitUntil([&] { return action == 0; }));
    EXPECT_EQ(controller.selectionRect(), chosen) << "what was typed is not taken";
}

TEST_P(BRScreenSelectionTest, PresetsAndButtons)
{
    open({100, 100, 300, 200});
    const struct {
        int item;
        PXRect expected;
    } rows[] = {
        {1, {125, 88, 750, 525}}, {2, {250, 175, 500, 350}},    {3, {375, 263, 250, 175}},
        {4, {438, 307, 125, 87}}, {0, {0, 0, kWidth, kHeight}},
    };
    const QList<QPushButton *> buttons = panel()->findChildren<QPushButton *>();
    ASSERT_EQ(buttons.size(), 3);
    for (const auto &row : rows) {
        buttons[0]->menu()->actions().at(row.item)->trigger();
        expect(row.expected, buttons[0]->menu()->actions().at(row.item)->text().toUtf8());
    }
    // By a hand; the menu has an event loop of its own.
    QTimer keys;
    keys.callOnTimeout([&] {
        if (!buttons[0]->menu()->isVisible())
            return;
        keys.stop();
        for (const int key : {Hand::Down, Hand::Down, Hand::Return})
            hand.type(key);
    });
    keys.start(10);
    hand.click(pixelOf(buttons[0]));
    expect({125, 88, 750, 525}, "three quarters");
    hand.click(pixelOf(buttons[1]));
    ASSERT_TRUE(waitUntil([&] { return action == 0; }));
    EXPECT_TRUE(waitUntil([&] { return screenshot() == before; }));
    open({100, 100, 300, 200});
    hand.click(pixelOf(panel()->findChildren<QPushButton *>()[2]));
    ASSERT_TRUE(waitUntil([&] { return action == 1; }));
}

TEST_P(BRScreenSelectionTest, PicksTheWindowUnderTheModifierClick)
{
    const PaintedWindow other(theDesktop(), {250, 200, 321, 151}, 0x40A060);
    open({700, 100, 50, 50});
    panel()->hide();
    hand.keyDown(Hand::Alt);
    hand.click({300, 250});
    expect({250, kHeight - 351, 321, 151}, "a window");
    hand.click({20, 650});
    expect({0, 0, kWidth, kHeight}, "the one behind");
    hand.click({kWidth - 1, kHeight - 1});
    hand.click({300, 250});
    expect({250, kHeight - 351, 321, 151}, "again");
    hand.click({kWidth - 1, kHeight - 1});
    expect({0, 0, kWidth, kHeight}, "in the last pixel");
    hand.keyUp(Hand::Alt);
    // All of it is selected: its last row is inside, too.
    hand.drag({QPoint(500, kHeight - 1), QPoint(400, 300)});
    hand.drag({QPoint(kWidth - 1, 500), QPoint(400, 300)});
    hand.drag({QPoint(500, 0), QPoint(400, 300)});
    expect({0, 0, kWidth, kHeight}, "moved nowhere");
}

/// Somebody else's window comes while the screen is frozen.
TEST_P(BRScreenSelectionTest, StaysAboveWhatComesLater)
{
    open({100, 100, 300, 200});
    panel()->hide();
    const auto isShown = [&] {
        const QImage seen = screenshot();
        return std::abs(qRed(seen.pixel(8, 50)) * 2 - qRed(before.pixel(8, 50))) <= 2
            && seen.pixel(120, kHeight - 120) == before.pixel(120, kHeight - 120);
    };
    ASSERT_TRUE(waitUntil(isShown));
    const QImage seen = screenshot();
    const PaintedWindow late(theDesktop(), {700, 400, 200, 200}, 0xFF0000);
    const auto frontmost = [&] { return windowServer->windowFrameAt(800, 500, background.id()); };
    EXPECT_TRUE(waitUntil([&] { return frontmost() && frontmost()->width >= kWidth; }));
    EXPECT_TRUE(waitUntil([&] { return screenshot() == seen; }));
}

/// A program opens a window meanwhile, and the window manager gives the keyboard to it; then it
/// goes.
TEST_P(BRScreenSelectionTest, KeepsTheKeyboard)
{
    open({100, 100, 300, 200});
    const auto isActive = [&] { return panel()->window()->isActiveWindow(); };
    {
        const PaintedWindow other(theDesktop(), {50, 50, 100, 100}, 0xFF0000,
                                  PaintedWindow::Kind::Managed);
        ASSERT_TRUE(waitUntil([&] { return !isActive(); })) << "openbox gives it away";
        ASSERT_TRUE(waitUntil(isActive));
    }
    hand.type(Hand::Right);
    expect({101, 100, 300, 200}, "a key");
    ASSERT_TRUE(waitUntil(isActive));
    hand.type(Hand::Return);
    ASSERT_TRUE(waitUntil([&] { return action == 1; }));
}

/// The main display is not at the desktop's corner: there is another one left of it and above.
TEST_P(BRScreenSelectionTest, CoversTheMainDisplayWhereverItIs)
{
    // picom goes on painting a screen of the size that it once had.
    theDesktop().setCompositor(VirtualDisplay::Compositor::None);
    theDesktop().resize(1500, 1000);
    theDesktop().setCompositor(GetParam());
    theDesktop().moveMainDisplay({333, 222, 1001, 701});
    EXPECT_TRUE(waitUntil([&] {
        return platform->mainDisplay().bounds() == PXPixelRect{333, 222, 1001, 701}
        && QGuiApplication::primaryScreen()->geometry().topLeft() == QPoint(333, 222);
    }));
    const PaintedWindow all(theDesktop(), {0, 0, 1500, 1000}, 0x80FF60);
    ASSERT_TRUE(waitUntil([] {
        const QImage screen = screenshot();
        return screen.pixel(0, 0) == 0xFF80FF60 && screen.pixel(1499, 999) == 0xFF80FF60;
    }));
    open({500, 300, 100, 100});
    panel()->hide();
    hand.drag({QPoint(333, 222) + at(101, 312), QPoint(333, 222) + at(434, 90)});
    expect({101, 90, 333, 222}, "drawn");
    const auto covers = [&] {
        const QImage seen = screenshot();
        const auto isDim = [&](int x, int y) { return seen.pixel(x, y) != before.pixel(x, y); };
        return seen.pixel(332, 500) == before.pixel(332, 500)
            && seen.pixel(500, 221) == before.pixel(500, 221) && isDim(333, 222) && isDim(1333, 222)
            && isDim(333, 922) && isDim(1333, 922)
            && seen.pixel(1334, 500) == before.pixel(1334, 500)
            && seen.pixel(500, 923) == before.pixel(500, 923)
            && seen.pixel(433 + 30, 222 + 389 + 40) == before.pixel(433 + 30, 222 + 389 + 40);
    };
    EXPECT_TRUE(waitUntil(covers));
    // It moves: what is frozen is no longer what is there.
    theDesktop().moveMainDisplay({0, 0, 1001, 701});
    EXPECT_TRUE(waitUntil([&] { return action == 0; }));
    theDesktop().resize(kWidth, kHeight);
    EXPECT_TRUE(waitUntil(
        [&] { return QGuiApplication::primaryScreen()->geometry().topLeft() == QPoint(0, 0); }));
}

} // namespace
