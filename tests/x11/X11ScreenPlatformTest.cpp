#include "platform/x11/X11CursorSource.h"
#include "platform/x11/X11DamageSource.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

/// Sets an environment variable for a scope.
class Environment final {
public:
    Environment(const char *name, const char *value) : _name(name), _before(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~Environment() { _before.isNull() ? qunsetenv(_name) : qputenv(_name, _before); }
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

private:
    const char *_name;
    QByteArray _before;
};

TEST(X11ScreenPlatform, TellsTheDisplayThatCannotBeOpened)
{
    const Environment noWayland("WAYLAND_DISPLAY", "");
    const Environment session("XDG_SESSION_TYPE", "x11");
    for (const QString &name : {u":9999"_s, u"nonsense"_s}) {
        const auto screen = X11ScreenPlatform::open(name);
        ASSERT_FALSE(screen);
        EXPECT_EQ(screen.error().domain, kPXDisplayErrorDomain);
        EXPECT_EQ(screen.error().code, PXDisplayCannotOpen);
        EXPECT_EQ(screen.error().description, u"cannot open display \"%1\""_s.arg(name));
        EXPECT_FALSE(screen.error().suggestion.isEmpty());
    }
}

TEST(X11ScreenPlatform, RefusesAWaylandSessionAndNothingElse)
{
    const Environment session("XDG_SESSION_TYPE", "wayland");
    const auto none = X11ScreenPlatform::open(u":9999"_s);
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().code, PXDisplayNotSupported);
    EXPECT_TRUE(none.error().description.contains(u"X11 session"));
    // A real X server inside such a session can be recorded.
    const VirtualDisplay display(320, 240);
    EXPECT_TRUE(X11ScreenPlatform::open(display.name()));
}

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
