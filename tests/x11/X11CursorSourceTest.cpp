#include "tests/support/PaintedWindow.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

namespace {

class X11CursorSourceTest : public testing::Test {
protected:
    /// Arms the source so that `waitForMove()` hears of it.
    void arm()
    {
        _cursor->callOnceWhenMoved([this] {
            const std::lock_guard lock(_mutex);
            ++_moves;
            _moved.notify_all();
        });
    }

    void waitForMoves(int count)
    {
        std::unique_lock lock(_mutex);
        _moved.wait(lock, [&] { return _moves >= count; });
    }

    int moves()
    {
        const std::lock_guard lock(_mutex);
        return _moves;
    }

    VirtualDisplay _display = VirtualDisplay(640, 480);
    PaintedWindow _window = PaintedWindow(_display, {0, 0, 640, 480});
    std::unique_ptr<PXScreenPlatform> _screen = openScreen(_display);
    std::mutex _mutex;
    std::condition_variable _moved;
    int _moves = 0;
    std::unique_ptr<PXCursorSource> _cursor = valueOf(_screen->makeCursorSource());
};

TEST_F(X11CursorSourceTest, TellsThePictureAndItsPlace)
{
    struct Case {
        const char *name;
        int size, hotX, hotY, pointerX, pointerY;
        PXPixelRect rect; ///< Empty: nothing is visible.
    };
    const Case cases[] = {
        {"hotSpotInTheCorner", 12, 0, 0, 100, 50, {100, 50, 12, 12}},
        {"hotSpotInside", 20, 5, 9, 100, 50, {95, 41, 20, 20}},
        {"reachesOverTheEdge", 16, 8, 8, 0, 0, {-8, -8, 16, 16}},
        {"invisible", 0, 0, 0, 30, 30, {}},
        {"visibleAgain", 8, 1, 1, 639, 479, {638, 478, 8, 8}},
    };
    for (const Case &c : cases) {
        _window.setCursor(c.size, c.hotX, c.hotY);
        _display.warpPointer(c.pointerX, c.pointerY);
        const auto cursor = valueOf(_cursor->cursor());
        EXPECT_EQ(valueOf(_cursor->pointerPixel()), (PXPixelRect{c.pointerX, c.pointerY, 1, 1}))
            << c.name;
        ASSERT_EQ(cursor.has_value(), !c.rect.isEmpty()) << c.name;
        if (!cursor)
            continue;
        EXPECT_EQ(cursor->rect, c.rect) << c.name;
        // All red, fully opaque: B, G, R, A.
        ASSERT_EQ(cursor->image->pixels.size(), static_cast<std::size_t>(c.size * c.size * 4));
        EXPECT_EQ(cursor->image->pixels[0], std::byte{0}) << c.name;
        EXPECT_EQ(cursor->image->pixels[2], std::byte{255}) << c.name;
        EXPECT_EQ(cursor->image->pixels[3], std::byte{255}) << c.name;
    }
}

TEST_F(X11CursorSourceTest, SharesAPictureWhileItStays)
{
    _window.setCursor(12, 0, 0);
    _display.warpPointer(10, 10);
    const auto first = valueOf(_cursor->cursor());
    _display.warpPointer(20, 20);
    const auto second = valueOf(_cursor->cursor());
    EXPECT_EQ(first->image, second->image);
    EXPECT_EQ(first->serial, second->serial);
    _window.setCursor(14, 0, 0);
    EXPECT_NE(valueOf(_cursor->cursor())->serial, first->serial);
}

TEST_F(X11CursorSourceTest, CallsOnceForEachTimeItIsArmed)
{
    arm();
    arm(); // Armed already.
    _display.movePointerBy(5, 5);
    waitForMoves(1);
    _display.movePointerBy(5, 5);
    _display.movePointerBy(5, 5);
    EXPECT_EQ(moves(), 1);

    arm();
    _window.setCursor(9, 0, 0);
    waitForMoves(2);

    arm();
    _cursor->callOnceWhenMoved({});
    _display.movePointerBy(-5, -5);
    EXPECT_EQ(moves(), 2);
    // What came while it was disarmed is not told later.
    arm();
    EXPECT_EQ(moves(), 2);
    _display.movePointerBy(-5, -5);
    waitForMoves(3);
}

TEST_F(X11CursorSourceTest, AMotionEndsTheBeliefInTheLastAnswer)
{
    _window.setCursor(12, 2, 3);
    _display.warpPointer(100, 50);
    int x = 100;
    for (int moved = 1; moved <= 10; ++moved) {
        arm();
        EXPECT_EQ(valueOf(_cursor->cursor())->rect.x, x - 2);
        // Believed, or asked for again: nothing has moved.
        EXPECT_EQ(valueOf(_cursor->pointerPixel()), (PXPixelRect{x, 50, 1, 1}));
        _display.movePointerBy(5, 0);
        waitForMoves(moved);
        x += 5;
        const auto cursor = valueOf(_cursor->cursor());
        EXPECT_EQ(cursor->rect, (PXPixelRect{x - 2, 47, 12, 12}));
        EXPECT_EQ(cursor->pointerPixel, (PXPixelRect{x, 50, 1, 1}));
    }
}

TEST_F(X11CursorSourceTest, CanBeArmedFromItsOwnCall)
{
    _cursor->callOnceWhenMoved([this] { arm(); });
    // The first motion is the outer call's; a later one is the inner's.
    while (moves() == 0)
        _display.movePointerBy(1, 0);
}

TEST_F(X11CursorSourceTest, FindsWarpsWithoutWaiting)
{
    _display.warpPointer(10, 10);
    valueOf(_cursor->pointerPixel());
    // Each of these may come before its answer; none of them is wrong.
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(_cursor->mayHaveMoved());
    _display.warpPointer(300, 200);
    while (!_cursor->mayHaveMoved()) { }
    EXPECT_EQ(valueOf(_cursor->pointerPixel()), (PXPixelRect{300, 200, 1, 1}));
    // An old answer does not count once the new place was told.
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(_cursor->mayHaveMoved());
    valueOf(_cursor->cursor());
    _window.setCursor(9, 0, 0);
    while (!_cursor->mayHaveMoved()) { }
    EXPECT_EQ(valueOf(_cursor->cursor())->rect.width, 9);
}

TEST_F(X11CursorSourceTest, ReportsAServerThatHasGone)
{
    valueOf(_cursor->cursor());
    arm();
    (void)_cursor->mayHaveMoved();
    _display.kill();
    waitForMoves(1);
    EXPECT_TRUE(_cursor->mayHaveMoved() || _cursor->mayHaveMoved());
    const auto cursor = _cursor->cursor();
    ASSERT_FALSE(cursor);
    EXPECT_EQ(cursor.error().code, PXDisplayLost);
    EXPECT_FALSE(_cursor->pointerPixel());
    arm(); // Harmless.
}

} // namespace
