#include "platform/PXWindowServer.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/TestConnection.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>
#include <xcb/shape.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kWide = 640;
constexpr int kHigh = 480;

using Kind = PaintedWindow::Kind;
using Showing = PaintedWindow::Showing;

/// A display, its window server, and a view of both from outside.
struct Desktop {
    explicit Desktop(const VirtualDisplay::Options &options = {})
        : display(kWide, kHigh, options),
          screen(openScreen(display)),
          server(valueOf(screen->makeWindowServer())),
          test(display.name())
    {
        const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(test.get(), test.root(), XCB_CW_EVENT_MASK, &mask);
    }

    void waitUntil(const std::function<bool()> &isTrue, const char *what) const
    {
        test.waitUntil(isTrue, what);
    }
    [[nodiscard]] std::vector<xcb_window_t> children(xcb_window_t window) const
    {
        const TestReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(test.get(), xcb_query_tree(test.get(), window), nullptr));
        if (!tree)
            return {};
        const xcb_window_t *first = xcb_query_tree_children(tree.get());
        return {first, first + xcb_query_tree_children_length(tree.get())};
    }
    /// Its place in the stack of what the root has as children, with a frame around it or without.
    [[nodiscard]] int heightOf(xcb_window_t window) const
    {
        const auto topLevels = children(test.root());
        for (std::size_t i = 0; i < topLevels.size(); ++i) {
            std::vector<xcb_window_t> inside = children(topLevels[i]);
            inside.push_back(topLevels[i]);
            if (std::find(inside.begin(), inside.end(), window) != inside.end())
                return static_cast<int>(i);
        }
        return -1;
    }
    [[nodiscard]] bool isAbove(const PaintedWindow &upper, const PaintedWindow &lower) const
    {
        return heightOf(upper.id()) > heightOf(lower.id());
    }
    void setProperty(xcb_window_t window, const char *name, xcb_atom_t type,
                     const std::vector<std::uint32_t> &values) const
    {
        xcb_change_property(test.get(), XCB_PROP_MODE_REPLACE, window, test.atom(name), type, 32,
                            static_cast<std::uint32_t>(values.size()), values.data());
        test.sync();
    }
    [[nodiscard]] std::vector<std::uint32_t> property(xcb_window_t window, const char *name) const
    {
        const TestReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            test.get(),
            xcb_get_property(test.get(), 0, window, test.atom(name), XCB_ATOM_ANY, 0, 64),
            nullptr));
        if (!reply)
            return {};
        const auto *first = static_cast<const std::uint32_t *>(xcb_get_property_value(reply.get()));
        return {first, first + reply->value_len};
    }
    [[nodiscard]] bool hasAtom(xcb_window_t window, const char *name, const char *atom) const
    {
        const auto values = property(window, name);
        return std::find(values.begin(), values.end(), test.atom(atom)) != values.end();
    }
    [[nodiscard]] xcb_window_t focused() const
    {
        const TestReply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(test.get(), xcb_get_input_focus(test.get()), nullptr));
        return reply ? reply->focus : XCB_NONE;
    }
    void setFocus(const PaintedWindow &window) const
    {
        xcb_set_input_focus(test.get(), XCB_INPUT_FOCUS_POINTER_ROOT, window.id(),
                            XCB_CURRENT_TIME);
        test.sync();
    }
    void setShape(xcb_window_t window, xcb_shape_kind_t kind,
                  const std::vector<xcb_rectangle_t> &parts) const
    {
        xcb_shape_rectangles(test.get(), XCB_SHAPE_SO_SET, kind, XCB_CLIP_ORDERING_UNSORTED, window,
                             0, 0, static_cast<std::uint32_t>(parts.size()), parts.data());
        test.sync();
    }
    /// The window below the pointer, as a click would find it.
    [[nodiscard]] xcb_window_t underPointer(int x, int y) const
    {
        display.warpPointer(x, y);
        const TestReply<xcb_query_pointer_reply_t> reply(xcb_query_pointer_reply(
            test.get(), xcb_query_pointer(test.get(), test.root()), nullptr));
        return reply ? reply->child : XCB_NONE;
    }

    VirtualDisplay display;
    std::unique_ptr<PXScreenPlatform> screen;
    std::unique_ptr<PXWindowServer> server;
    TestConnection test;
};

constexpr QRgb kBlack = 0xFF000000;
constexpr QRgb kWhite = 0xFFFFFFFF;
constexpr QRgb kBelow = 0xFF3060A0;

bool isInside(const PXPixelRect &rect, int x, int y)
{
    return x >= rect.x && y >= rect.y && x < rect.x + rect.width && y < rect.y + rect.height;
}

/// What a dashed frame over a picture of one colour must look like.
QImage framed(const PXPixelRect &inner, const PXPixelRect &bounds)
{
    QImage image(kWide, kHigh, QImage::Format_RGB32);
    image.fill(kBelow);
    const PXPixelRect outer = {inner.x - 4, inner.y - 4, inner.width + 8, inner.height + 8};
    for (int y = 0; y < kHigh; ++y)
        for (int x = 0; x < kWide; ++x) {
            if (!isInside(outer, x, y) || isInside(inner, x, y) || !isInside(bounds, x, y))
                continue;
            const bool isSide = y >= inner.y && y < inner.y + inner.height;
            // A side that is cut begins with a whole dash.
            const int along
                = isSide ? y - std::max(inner.y, bounds.y) : x - std::max(outer.x, bounds.x);
            image.setPixel(x, y, along / 8 % 2 == 0 ? kBlack : kWhite);
        }
    return image;
}

TEST(X11WindowServer, DrawsADashedFrameAroundARectangleAndNothingInIt)
{
    const Desktop desktop;
    PaintedWindow below(desktop.display, {0, 0, kWide, kHigh}, kBelow & 0xFFFFFF);
    const auto frame = valueOf(desktop.server->makeDashedFrame());
    const PXPixelRect screen = {0, 0, kWide, kHigh};
    const struct {
        const char *name;
        PXPixelRect inner;
        PXPixelRect bounds;
    } rows[] = {
        {"free", {100, 90, 201, 103}, screen},
        {"moved", {103, 97, 201, 103}, screen},
        {"one pixel", {300, 200, 1, 1}, screen},
        {"left and top cut", {2, 3, 100, 100}, screen},
        {"right and bottom cut", {500, 400, kWide - 501, kHigh - 402}, screen},
        {"whole screen", screen, screen},
        {"whole width", {0, 100, kWide, 40}, screen},
        {"one of two displays", {320, 100, 120, 100}, {320, 0, 320, kHigh}},
        {"bigger than the screen", {-30, -30, kWide + 60, kHigh + 60}, screen},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        frame->show(row.inner, row.bounds);
        frame->show(row.inner, row.bounds);
        desktop.waitUntil(
            [&] { return desktop.display.screenshot() == framed(row.inner, row.bounds); },
            row.name);
        EXPECT_EQ(desktop.underPointer(row.inner.x - 2, row.inner.y + 5), below.id());
    }
    frame->hide();
    EXPECT_EQ(desktop.display.screenshot().pixel(102, 150), kBelow);
    // Nothing of the first is left, and what came above meanwhile is below again.
    frame->show(rows[0].inner, screen);
    desktop.waitUntil([&] { return desktop.display.screenshot() == framed(rows[0].inner, screen); },
                      "the frame");
    below.raise();
    desktop.waitUntil([&] { return desktop.display.screenshot() == framed(rows[0].inner, screen); },
                      "the raised frame");
}

TEST(X11WindowServer, TellsWhenACompositorComesOrGoes)
{
    Desktop desktop;
    EXPECT_FALSE(desktop.server->isCompositing());
    std::mutex mutex;
    std::condition_variable changed;
    int times = 0;
    auto observation = desktop.server->addCompositingObserver([&] {
        const std::lock_guard lock(mutex);
        ++times;
        changed.notify_all();
    });
    const auto waitForTimes = [&](int wanted) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return times == wanted; });
    };
    desktop.display.setCompositor(VirtualDisplay::Compositor::XRender);
    waitForTimes(1);
    EXPECT_TRUE(desktop.server->isCompositing());
    EXPECT_TRUE(valueOf(desktop.screen->makeWindowServer())->isCompositing());
    desktop.display.setCompositor(VirtualDisplay::Compositor::None);
    waitForTimes(2);
    EXPECT_FALSE(desktop.server->isCompositing());
    observation = {};
    desktop.display.setCompositor(VirtualDisplay::Compositor::XRender);
    EXPECT_EQ(times, 2);
}

TEST(X11WindowServer, PutsWindowsOnTheirLevels)
{
    const Desktop desktop({.hasWindowManager = true});
    const PXPixelRect place = {100, 100, 200, 150};
    const auto make = [&](PXWindowLevel level, Kind kind) {
        auto window = std::make_unique<PaintedWindow>(desktop.display, place, 0xFF0000, kind,
                                                      Showing::Later);
        // What the toolkit has put there.
        desktop.setProperty(window->id(), "_NET_WM_STATE", XCB_ATOM_ATOM,
                            {desktop.test.atom("_NET_WM_STATE_MODAL")});
        desktop.server->setLevel(window->id(), level);
        desktop.server->joinAllSpaces(window->id());
        EXPECT_TRUE(desktop.hasAtom(window->id(), "_NET_WM_STATE", "_NET_WM_STATE_MODAL"));
        EXPECT_TRUE(desktop.hasAtom(window->id(), "_NET_WM_STATE", "_NET_WM_STATE_STICKY"));
        window->show();
        return window;
    };
    const auto floating = make(PXWindowLevel::Floating, Kind::Managed);
    const auto overlay = make(PXWindowLevel::Maximum, Kind::Unmanaged);
    desktop.server->keepOnTop(overlay->id());
    PaintedWindow normal(desktop.display, place, 0x00FF00, Kind::Managed);
    const auto cover = make(PXWindowLevel::DesktopIconPlusOne, Kind::Managed);
    PaintedWindow menu(desktop.display, place, 0x0000FF);
    desktop.waitUntil(
        [&] {
            return desktop.isAbove(normal, *cover) && desktop.isAbove(*floating, normal)
                && desktop.isAbove(menu, *floating) && desktop.isAbove(*overlay, menu);
        },
        "all in their places");
    EXPECT_EQ(desktop.property(floating->id(), "_NET_WM_DESKTOP"), std::vector{0xFFFFFFFFU});
    EXPECT_TRUE(desktop.hasAtom(floating->id(), "_NET_WM_STATE", "_NET_WM_STATE_SKIP_TASKBAR"));

    PaintedWindow fullScreen(desktop.display, {0, 0, kWide, kHigh}, 0xFFFF00, Kind::Managed,
                             Showing::Later);
    desktop.setProperty(fullScreen.id(), "_NET_WM_STATE", XCB_ATOM_ATOM,
                        {desktop.test.atom("_NET_WM_STATE_FULLSCREEN")});
    fullScreen.show();
    desktop.waitUntil(
        [&] {
            return desktop.isAbove(fullScreen, normal) && desktop.isAbove(*overlay, fullScreen);
        },
        "the full-screen window below the overlay");
    desktop.server->letGo(overlay->id());
    menu.raise();
    // Another window that is kept is raised by the same event, if any is.
    const auto witness = make(PXWindowLevel::Maximum, Kind::Unmanaged);
    desktop.server->keepOnTop(witness->id());
    fullScreen.hide();
    menu.raise();
    desktop.waitUntil([&] { return desktop.isAbove(*witness, menu); }, "the witness");
    EXPECT_TRUE(desktop.isAbove(menu, *overlay));
}

TEST(X11WindowServer, CoversTheDesktopAlsoWithoutAWindowManager)
{
    const Desktop desktop;
    const PaintedWindow ordinary(desktop.display, {50, 50, 200, 200}, 0x00FF00);
    PaintedWindow cover(desktop.display, {0, 0, kWide, kHigh}, 0xFF0000, Kind::Unmanaged,
                        Showing::Later);
    desktop.server->setLevel(cover.id(), PXWindowLevel::DesktopIconPlusOne);
    cover.show();
    const QImage picture = desktop.display.screenshot();
    EXPECT_EQ(picture.pixel(100, 100), 0xFF00FF00);
    EXPECT_EQ(picture.pixel(10, 10), 0xFFFF0000);
}

TEST(X11WindowServer, PlacesAndCutsAWindowToThePixel)
{
    for (const bool hasWindowManager : {false, true}) {
        const Desktop desktop({.hasWindowManager = hasWindowManager});
        PaintedWindow window(desktop.display, {50, 50, 200, 200}, 0xFF0000, Kind::Managed,
                             Showing::Later);
        desktop.server->setFrame(window.id(), {101, 87, 33, 21});
        window.show();
        const auto lies = [&](int x, int y, int width, int height) {
            return [&desktop, x, y, width, height] {
                const QImage picture = desktop.display.screenshot();
                const auto isRed
                    = [&](int px, int py) { return picture.pixel(px, py) == 0xFFFF0000; };
                return isRed(x, y) && isRed(x + width - 1, y + height - 1) && !isRed(x - 1, y)
                    && !isRed(x, y - 1) && !isRed(x + width, y) && !isRed(x, y + height);
            };
        };
        desktop.waitUntil(lies(101, 87, 33, 21), "its first place");
        desktop.server->setFrame(window.id(), {203, 155, 41, 57});
        desktop.waitUntil(lies(203, 155, 41, 57), "its second place");
        const PXPixelRect parts[] = {{0, 0, 10, 10}, {20, 20, 7, 9}};
        desktop.server->setShape(window.id(), parts);
        desktop.waitUntil(lies(223, 175, 7, 9), "its shape");
    }
}

/// Counts how often windows were moved in the stack, since it was made.
class RaiseCounter final {
public:
    explicit RaiseCounter(const VirtualDisplay &display) : _connection(display.name())
    {
        const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(_connection.get(), _connection.root(), XCB_CW_EVENT_MASK,
                                     &mask);
        _connection.sync();
    }
    int of(const PaintedWindow &window)
    {
        _connection.sync();
        while (const TestReply<xcb_generic_event_t> event{xcb_poll_for_event(_connection.get())})
            if ((event->response_type & 0x7F) == XCB_CONFIGURE_NOTIFY)
                ++_counts[reinterpret_cast<const xcb_configure_notify_event_t &>(*event).window];
        return _counts[window.id()];
    }

private:
    TestConnection _connection;
    std::map<xcb_window_t, int> _counts;
};

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

TEST(X11WindowServer, RaisesSeldomHoweverOftenOthersDo)
{
    const Desktop desktop;
    const PaintedWindow overlay(desktop.display, {100, 100, 50, 50}, 0xFF0000);
    PaintedWindow other(desktop.display, {100, 100, 50, 50}, 0x00FF00);
    PaintedWindow sibling(desktop.display, {0, 0, 5, 5}, 0x0000FF);
    RaiseCounter counter(desktop.display);
    const Clock::time_point start = Clock::now();
    desktop.server->keepOnTop(overlay.id());
    int storm = 0;
    for (; storm < 2000 || counter.of(overlay) < 3; ++storm) {
        other.raise();
        sibling.raise();
    }
    desktop.waitUntil(
        [&] { return desktop.isAbove(overlay, other) && desktop.isAbove(overlay, sibling); },
        "the overlay on top");
    const double seconds = secondsSince(start);
    EXPECT_LE(counter.of(overlay), 2 + seconds * 4) << seconds << " s";
    EXPECT_GE(counter.of(other), storm);
}

TEST(X11WindowServer, TiresOfAFight)
{
    const Desktop desktop;
    const auto rival = valueOf(desktop.screen->makeWindowServer());
    const PaintedWindow ours(desktop.display, {100, 100, 50, 50}, 0xFF0000);
    const PaintedWindow theirs(desktop.display, {100, 100, 50, 50}, 0x00FF00);
    RaiseCounter counter(desktop.display);
    const Clock::time_point start = Clock::now();
    desktop.server->keepOnTop(ours.id());
    rival->keepOnTop(theirs.id());
    // At once, then each after a quarter, a half, one and two seconds.
    desktop.waitUntil([&] { return counter.of(ours) >= 5 && counter.of(theirs) >= 5; }, "raises");
    EXPECT_GE(secondsSince(start), 1.7);
}

TEST(X11WindowServer, FindsTheFrameOfTheWindowThatShows)
{
    const Desktop desktop({.hasWindowManager = true});
    const auto at = [&](int x, int y, xcb_window_t own = XCB_NONE) {
        return desktop.server->windowFrameAt(x, y, own);
    };
    EXPECT_EQ(at(300, 300), std::nullopt);

    PaintedWindow decorated(desktop.display, {40, 60, 200, 150}, 0xFF0000, Kind::Managed);
    const auto extents = desktop.property(decorated.id(), "_NET_FRAME_EXTENTS");
    ASSERT_EQ(extents.size(), 4U);
    const auto frameOf = [&](const PaintedWindow &window) -> PXPixelRect {
        const TestReply<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
            desktop.test.get(),
            xcb_translate_coordinates(desktop.test.get(), window.id(), desktop.test.root(), 0, 0),
            nullptr));
        const int left = static_cast<int>(extents[0]);
        const int top = static_cast<int>(extents[2]);
        return {place->dst_x - left, place->dst_y - top,
                window.rect().width + left + static_cast<int>(extents[1]),
                window.rect().height + top + static_cast<int>(extents[3])};
    };
    const PXPixelRect frame = frameOf(decorated);
    ASSERT_GT(frame.height, 150);
    EXPECT_EQ(at(frame.x, frame.y), frame);
    EXPECT_EQ(at(frame.x + frame.width - 1, frame.y + frame.height - 1), frame);
    EXPECT_EQ(at(frame.x + frame.width, frame.y), std::nullopt);
    EXPECT_EQ(at(frame.x, frame.y, decorated.id()), std::nullopt) << "own, inside a frame";

    // All over the decorated one, and over each other from here on.
    const int x = frame.x + 60;
    const int y = frame.y + 60;
    PaintedWindow menu(desktop.display, {x - 20, y - 20, 100, 80}, 0x00FF00);
    EXPECT_EQ(at(x, y), menu.rect());
    EXPECT_EQ(at(x, y, menu.id()), frame);
    EXPECT_EQ(at(frame.x + 5, y), frame);
    desktop.setShape(menu.id(), XCB_SHAPE_SK_BOUNDING, {{0, 0, 10, 10}, {50, 0, 10, 10}});
    EXPECT_EQ(at(x, y), frame) << "where it is cut away";
    EXPECT_EQ(at(x - 15, y - 15), menu.rect());
    desktop.setShape(menu.id(), XCB_SHAPE_SK_BOUNDING, {{0, 0, 100, 80}});
    desktop.setShape(menu.id(), XCB_SHAPE_SK_INPUT, {});
    EXPECT_EQ(at(x, y), frame) << "lets clicks through";
    desktop.setShape(menu.id(), XCB_SHAPE_SK_INPUT, {{0, 0, 100, 80}});
    EXPECT_EQ(at(x, y), menu.rect());
    menu.hide();
    EXPECT_EQ(at(x, y), frame);

    PaintedWindow shadowed(desktop.display, {x - 50, y - 40, 120, 100}, 0x0000FF);
    desktop.setProperty(shadowed.id(), "_GTK_FRAME_EXTENTS", XCB_ATOM_CARDINAL, {26, 27, 23, 29});
    EXPECT_EQ(at(x, y), (PXPixelRect{x - 24, y - 17, 67, 48}));
    EXPECT_EQ(at(x - 40, y), frame) << "in its shadow";
    desktop.setProperty(shadowed.id(), "_GTK_FRAME_EXTENTS", XCB_ATOM_CARDINAL,
                        {0xFFFFFFFF, 1, 0x80000000, 1});
    EXPECT_EQ(at(x, y), frame) << "nothing but shadow";
    shadowed.hide();

    PaintedWindow other(desktop.display, {x, y, 200, 150}, 0x00FFFF, Kind::Managed);
    const PXPixelRect otherFrame = frameOf(other);
    EXPECT_EQ(at(otherFrame.x + 1, otherFrame.y + 1), otherFrame);
    const auto dashes = valueOf(desktop.server->makeDashedFrame());
    dashes->show({otherFrame.x + 8, otherFrame.y + 8, 50, 50}, {0, 0, kWide, kHigh});
    EXPECT_EQ(at(otherFrame.x + 5, otherFrame.y + 5), otherFrame) << "our own frame above it";
}

TEST(X11WindowServer, TakesTheKeyboardAndGivesItBack)
{
    for (const bool hasWindowManager : {false, true}) {
        SCOPED_TRACE(hasWindowManager);
        const Desktop desktop({.hasWindowManager = hasWindowManager});
        PaintedWindow before(desktop.display, {10, 10, 100, 100}, 0x00FF00, Kind::Managed);
        if (!hasWindowManager)
            desktop.setFocus(before);
        const auto waitForFocus = [&](const PaintedWindow &window, const char *what) {
            desktop.waitUntil([&] { return desktop.focused() == window.id(); }, what);
        };
        waitForFocus(before, "the window before");
        PaintedWindow first(desktop.display, {60, 60, 100, 100}, 0xFF0000, Kind::Unmanaged,
                            Showing::Later);
        desktop.server->focus(first.id()); // Nobody sees it yet.
        first.show();
        waitForFocus(first, "the first");
        PaintedWindow second(desktop.display, {90, 90, 100, 100}, 0x0000FF);
        desktop.server->focus(second.id());
        waitForFocus(second, "the second");
        desktop.server->giveFocusBack();
        waitForFocus(before, "the window that had it");
        desktop.server->giveFocusBack(); // There is nothing to give.
        {
            const PaintedWindow gone(desktop.display, {60, 60, 100, 100}, 0xFFFF00, Kind::Managed);
            if (!hasWindowManager)
                desktop.setFocus(gone);
            waitForFocus(gone, "the one that goes");
            desktop.server->focus(second.id());
            waitForFocus(second, "the second again");
        }
        desktop.server->giveFocusBack();
        EXPECT_EQ(desktop.focused(), second.id());
        desktop.server->focus(0x1234567);
        desktop.server->giveFocusBack();
    }
}

} // namespace
