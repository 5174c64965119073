#include "platform/x11/X11CursorSource.h"
#include "platform/x11/X11DamageSource.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

TEST(X11ScreenPlatform, RefusesAServerThatLacksWhatRecordingNeeds)
{
    const VirtualDisplay display(320, 240, {.serverArguments = {u"-extension"_s, u"DAMAGE"_s}});
    const auto screen = X11ScreenPlatform::open(display.name());
    ASSERT_FALSE(screen);
    EXPECT_EQ(screen.error().code, PXDisplayNotSupported);
    EXPECT_TRUE(screen.error().description.contains(u"DAMAGE"));
}

TEST(X11ScreenPlatform, FollowsTheMainDisplay)
{
    const VirtualDisplay display(1024, 768);
    const auto screen = openScreen(display);
    PXMainDisplay &main = screen->mainDisplay();
    EXPECT_EQ(main.bounds(), (PXPixelRect{0, 0, 1024, 768}));
    EXPECT_EQ(main.refreshRate(), 60); // A virtual display knows none.

    std::mutex mutex;
    std::condition_variable changed;
    bool isSmall = false;
    PXObservation observation = main.addChangedObserver([&] {
        const std::lock_guard lock(mutex);
        isSmall = main.bounds() == PXPixelRect{0, 0, 640, 480};
        changed.notify_all();
    });
    display.resize(640, 480);
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return isSmall; });
    lock.unlock();
    observation.end();
    display.resize(1000, 700);
    EXPECT_TRUE(isSmall); // Told no more.
}

TEST(X11ScreenPlatform, LosesTheServerWithoutEndingTheProcess)
{
    VirtualDisplay display(320, 240);
    const auto screen = openScreen(display);
    const auto link = valueOf(screen->makeDisplayLink());
    const PXPixelRect bounds = screen->mainDisplay().bounds();
    std::unique_ptr<X11Connection> opened[4];
    for (auto &connection : opened)
        connection = valueOf(X11Connection::open(display.name()));
    display.kill();
    EXPECT_EQ(screen->mainDisplay().bounds(), bounds);
    for (const bool isMade :
         {screen->makeDamageSource().has_value(), screen->makeCursorSource().has_value(),
          screen->makeFrameBufferReader().has_value()})
        EXPECT_FALSE(isMade);
    // Connections that were lost after they had been opened.
    for (const auto &connection : opened)
        EXPECT_FALSE(connection->reply<xcb_get_geometry_reply>(
            "xcb_get_geometry", xcb_get_geometry(connection->get(), connection->root())));
    EXPECT_FALSE(X11CursorSource::onConnections(std::move(opened[0]), std::move(opened[1])));
    EXPECT_FALSE(X11DamageSource::onConnections(std::move(opened[2]), std::move(opened[3])));
}

} // namespace
