#include "tests/support/PaintedWindow.h"
#include "tests/support/TestConnection.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

namespace {

using Compositor = VirtualDisplay::Compositor;

/// A damage source and the picture that it keeps up to date.
class Follower final {
public:
    Follower(const VirtualDisplay &display, X11PixelWay way = X11PixelWay::Best)
        : _screen(openScreen(display, way)),
          _canvas(*_screen, display.screenshot().size(), 0),
          _source(valueOf(_screen->makeDamageSource()))
    {
        valueOf(_source->start([this] {
            const std::lock_guard lock(_mutex);
            ++_arrivals;
            _arrived.notify_all();
        }));
        const PXPixelRect all = {0, 0, _canvas.image().width(), _canvas.image().height()};
        valueOf(_canvas.read({&all, 1}));
    }

    ~Follower() { _source->stop(); }

    /// Takes what is there and reads it.
    PXExpected<std::vector<PXPixelRect>> follow()
    {
        std::vector<PXPixelRect> rects;
        if (auto taken = _source->takeDamage(rects); !taken)
            return PXFail(std::move(taken).error());
        if (auto read = _canvas.read(rects); !read)
            return PXFail(std::move(read).error());
        return rects;
    }

    bool isLike(const VirtualDisplay &display) const
    {
        return _canvas.image() == display.screenshot();
    }

    /// Whether the picture becomes what the screen shows, by following what is reported alone.
    bool becomesLike(const VirtualDisplay &display)
    {
        for (;;) {
            valueOf(follow());
            if (isLike(display))
                return true;
            if (!waitForArrival())
                return false;
        }
    }

    /// False after a minute without one.
    bool waitForArrival()
    {
        std::unique_lock lock(_mutex);
        const bool came
            = _arrived.wait_for(lock, std::chrono::minutes(1), [&] { return _arrivals != _seen; });
        _seen = _arrivals;
        return came;
    }

    int arrivals()
    {
        const std::lock_guard lock(_mutex);
        return _arrivals;
    }

private:
    std::unique_ptr<PXScreenPlatform> _screen;
    Canvas _canvas;
    std::mutex _mutex;
    std::condition_variable _arrived;
    int _arrivals = 0;
    int _seen = 0;
    std::unique_ptr<PXDamageSource> _source;
};

struct DesktopCase {
    const char *name;
    bool hasWindowManager;
    Compositor compositor;
};

void PrintTo(const DesktopCase &c, std::ostream *out)
{
    *out << c.name;
}

class X11DamageSourceTest : public testing::TestWithParam<DesktopCase> {
protected:
    VirtualDisplay _display = VirtualDisplay(
        640, 480,
        {.hasWindowManager = GetParam().hasWindowManager, .compositor = GetParam().compositor});
};

INSTANTIATE_TEST_SUITE_P(Desktops, X11DamageSourceTest,
                         testing::Values(DesktopCase{"Bare", false, Compositor::None},
                                         DesktopCase{"Managed", true, Compositor::None},
                                         DesktopCase{"XRender", true, Compositor::XRender},
                                         DesktopCase{"Glx", false, Compositor::Glx}),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_P(X11DamageSourceTest, CoversWhateverIsPaintedAndMoved)
{
    const auto kind = GetParam().hasWindowManager ? PaintedWindow::Kind::Managed
                                                  : PaintedWindow::Kind::Unmanaged;
    PaintedWindow lower(_display, {40, 40, 300, 200}, 0x3060A0, kind);
    PaintedWindow upper(_display, {200, 150, 250, 250}, 0xA06030, PaintedWindow::Kind::Unmanaged);
    Follower follower(_display);
    std::mt19937 random = repeatable(11);
    for (int round = 0; round < 12; ++round) {
        for (int step = 0; step < 5; ++step) {
            lower.fillAtRandom(random, 2);
            upper.fillAtRandom(random, 2);
            upper.scroll(7, 0xFFFFFF);
            valueOf(follower.follow());
        }
        if (round % 4 == 1)
            upper.moveTo(20 + 30 * round, 300 - 20 * round);
        if (round % 4 == 2)
            upper.hide();
        if (round % 4 == 3)
            upper.show();
        ASSERT_TRUE(follower.becomesLike(_display)) << "round " << round;
    }
}

TEST_P(X11DamageSourceTest, TellsExactlyWhere)
{
    PaintedWindow window(_display, {100, 100, 300, 200}, 0x3060A0);
    Follower follower(_display);
    // Repeated until one round was not disturbed by the compositor's late repaints.
    const PXPixelRect painted[] = {{10, 10, 20, 20}, {250, 20, 20, 20}, {30, 150, 20, 20}};
    std::uint32_t color = 0x101010;
    for (std::int64_t area = 0; area != std::int64_t{3} * 400;) {
        ASSERT_TRUE(follower.becomesLike(_display));
        for (const PXPixelRect &rect : painted)
            window.fill(rect, color += 0x050505);
        area = 0;
        while (area == 0) {
            ASSERT_TRUE(follower.waitForArrival());
            for (const PXPixelRect &rect : valueOf(follower.follow()))
                area += rect.area();
        }
        RecordProperty("area", static_cast<int>(area));
    }
}

TEST_P(X11DamageSourceTest, SaysNothingTwice)
{
    PaintedWindow window(_display, {100, 100, 300, 200}, 0x3060A0);
    Follower follower(_display);
    ASSERT_TRUE(follower.becomesLike(_display));
    valueOf(follower.follow());
    const int arrivals = follower.arrivals();
    // Nobody takes it: however much is painted, there is one call at most.
    auto random = repeatable(3);
    window.fillAtRandom(random, 50);
    EXPECT_LE(follower.arrivals(), arrivals + 1);
    EXPECT_TRUE(follower.becomesLike(_display));
}

TEST_P(X11DamageSourceTest, ReportsAServerThatHasGone)
{
    Follower follower(_display);
    ASSERT_TRUE(follower.becomesLike(_display));
    _display.kill();
    auto result = follower.follow();
    while (result && follower.waitForArrival())
        result = follower.follow();
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, PXDisplayLost);
}

TEST(X11DamageSource, FollowsACompositorThatComesAndGoes)
{
    VirtualDisplay display(640, 480, {.hasWindowManager = true});
    PaintedWindow window(display, {100, 100, 300, 200}, 0x3060A0);
    Follower follower(display);
    std::mt19937 random = repeatable(5);
    for (const Compositor compositor :
         {Compositor::XRender, Compositor::None, Compositor::XRender, Compositor::None}) {
        display.setCompositor(compositor);
        for (int i = 0; i < 5; ++i) {
            window.fillAtRandom(random, 3);
            ASSERT_TRUE(follower.becomesLike(display));
        }
    }
}

/// Owns the compositor's selection without redirecting windows, and paints on the screen itself.
class PaintingCompositor final {
public:
    explicit PaintingCompositor(const VirtualDisplay &display) : _connection(display.name())
    {
        xcb_connection_t *c = _connection.get();
        _window = xcb_generate_id(c);
        const std::uint32_t overrideRedirect = 1;
        xcb_create_window(c, XCB_COPY_FROM_PARENT, _window, _connection.root(), 100, 100, 50, 50, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_OVERRIDE_REDIRECT, &overrideRedirect);
        xcb_map_window(c, _window);
        _context = xcb_generate_id(c);
        xcb_create_gc(c, _context, _connection.root(), 0, nullptr);
        xcb_set_selection_owner(c, _window, _connection.atom("_NET_WM_CM_S0"), XCB_CURRENT_TIME);
        _connection.sync();
    }

    void paint(std::uint32_t ofWindow, std::optional<std::uint32_t> ofScreen = {})
    {
        xcb_connection_t *c = _connection.get();
        const xcb_rectangle_t inWindow = {5, 5, 20, 20};
        const xcb_rectangle_t onScreen = {400, 300, 100, 30};
        xcb_grab_server(c); // Nobody comes between the two.
        xcb_change_gc(c, _context, XCB_GC_FOREGROUND, &ofWindow);
        xcb_poly_fill_rectangle(c, _window, _context, 1, &inWindow);
        if (ofScreen) {
            xcb_change_gc(c, _context, XCB_GC_FOREGROUND, &*ofScreen);
            xcb_poly_fill_rectangle(c, _connection.root(), _context, 1, &onScreen);
        }
        xcb_ungrab_server(c);
        _connection.sync();
    }

private:
    TestConnection _connection;
    xcb_window_t _window = 0;
    xcb_gcontext_t _context = 0;
};

TEST(X11DamageSource, ReportsWhatACompositorPaintsItself)
{
    const VirtualDisplay display(640, 480);
    PaintingCompositor compositor(display);
    Follower follower(display);
    // Right after the start everything counts; what is hard comes later.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    for (std::uint32_t panel : {0x00FF00U, 0xFF0000U, 0x0000FFU}) {
        compositor.paint(0x123456, panel);
        ASSERT_TRUE(follower.waitForArrival());
        // Only a window paints from now on.
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        for (std::uint32_t color = 0;; color += 0x010101) {
            valueOf(follower.follow());
            if (follower.isLike(display))
                break;
            ASSERT_LT(std::chrono::steady_clock::now(), end) << panel;
            compositor.paint(color & 0xFFFFFF);
            ASSERT_TRUE(follower.waitForArrival());
        }
    }
}

TEST(X11DamageSource, StopsWhileAnotherThreadTakesDamage)
{
    for (const Compositor compositor : {Compositor::None, Compositor::XRender}) {
        const VirtualDisplay display(640, 480, {.compositor = compositor});
        PaintedWindow window(display, {100, 100, 300, 200}, 0x3060A0);
        const auto screen = openScreen(display);
        std::mt19937 random = repeatable(7);
        for (int round = 0; round < 5; ++round) {
            const auto source = valueOf(screen->makeDamageSource());
            valueOf(source->start([] {}));
            std::jthread taker([&](const std::stop_token &stop) {
                std::vector<PXPixelRect> rects;
                while (!stop.stop_requested())
                    EXPECT_TRUE(source->takeDamage(rects));
            });
            window.fillAtRandom(random, 20);
            source->stop();
            window.fillAtRandom(random, 2);
        }
    }
}

} // namespace
