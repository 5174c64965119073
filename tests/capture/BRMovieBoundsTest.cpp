#include "overlays/BRMovieBoundsView.h"
#include "platform/x11/X11ScreenPlatform.h"
#include "tests/capture/RecordingSession.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/ValueOf.h"

#include <gtest/gtest.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int kWide = 400;
constexpr int kHigh = 300;
constexpr PXPixelRect kScreen = {0, 0, kWide, kHigh};
constexpr QRgb kBelow = 0xFF3060A0;

/// A desktop of one colour, and the frame that is drawn over it.
struct FramedDesktop {
    explicit FramedDesktop(VirtualDisplay::Compositor compositor = VirtualDisplay::Compositor::None)
        : display(kWide, kHigh, {.compositor = compositor}),
          below(display, kScreen, kBelow & 0xFFFFFF),
          platform(valueOf(X11ScreenPlatform::open(display.name()))),
          windowServer(valueOf(platform->makeWindowServer())),
          bounds(valueOf(windowServer->makeDashedFrame()), platform->mainDisplay())
    {
    }

    VirtualDisplay display;
    PaintedWindow below;
    std::unique_ptr<PXScreenPlatform> platform;
    std::unique_ptr<PXWindowServer> windowServer;
    BRMovieBoundsView bounds;
};

/// Not the desktop's; half faded away, too.
bool isOfFrame(QRgb pixel)
{
    return qRed(pixel) != qRed(kBelow);
}

int framePixelsIn(const QImage &picture)
{
    int count = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            count += isOfFrame(picture.pixel(x, y)) ? 1 : 0;
    return count;
}

/// Of the four sides' pixels, how many are there; those beyond the screen are not.
int pixelsAround(const PXPixelRect &inner)
{
    const PXPixelRect outer = {inner.x - 4, inner.y - 4, inner.width + 8, inner.height + 8};
    return static_cast<int>(PXIntersection(outer, kScreen).area()
                            - PXIntersection(inner, kScreen).area());
}

BRScreenRecordingOptions framedOptions(const RecordingSession &session)
{
    BRScreenRecordingOptions options = session.options();
    options.showCursor = false;
    options.displayMovieBounds = true;
    return options;
}

TEST(MovieBounds, AFixedAreasFrameIsNeverInTheRecording)
{
    std::mt19937 random(7);
    const auto from = [&](int first, int last) {
        return std::uniform_int_distribution(first, std::max(first, last))(random);
    };
    for (const auto compositor :
         {VirtualDisplay::Compositor::None, VirtualDisplay::Compositor::XRender}) {
        FramedDesktop desktop(compositor);
        for (int i = 0; i < 20; ++i) {
            PXPixelRect area;
            area.width = from(1, i % 4 == 0 ? kWide : 150);
            area.height = from(1, i % 4 == 1 ? kHigh : 150);
            // Every other one lies at an edge or less than the frame's width off.
            area.x = i % 2 == 0 ? from(0, kWide - area.width) : from(0, 5);
            area.y = i % 3 == 0 ? kHigh - area.height - from(0, 5) : from(0, kHigh - area.height);
            area = PXIntersection(area, kScreen);
            SCOPED_TRACE(testing::Message()
                         << area.x << ' ' << area.y << ' ' << area.width << ' ' << area.height);
            RecordingSession session(desktop.display, nullptr, &desktop.bounds);
            auto options = framedOptions(session);
            options.screenSelectionRect = PXRectFromPixels(area, kScreen);
            options.screenSelectionSize = options.screenSelectionRect.size();
            ASSERT_TRUE(session.start(options));
            session.waitUntil(
                [&] { return framePixelsIn(desktop.display.screenshot()) == pixelsAround(area); });
            desktop.below.fill({area.x, area.y, 1, 1}, 0x3060A1 + static_cast<unsigned>(i));
            session.waitForFrames(2);
            session.stop();
            for (const RecordedFrame &frame : session.frames())
                EXPECT_EQ(framePixelsIn(frame.picture), 0);
            session.waitUntil([&] { return framePixelsIn(desktop.display.screenshot()) == 0; });
        }
    }
}

/// Records while the pointer wanders, with a stop now and then: how many frames, and how many of
/// them show something of the frame.
std::pair<int, int> framesWithBounds(FramedDesktop &desktop)
{
    desktop.display.warpPointer(200, 150);
    RecordingSession session(desktop.display, nullptr, &desktop.bounds);
    auto options = framedOptions(session);
    options.cameraMode = 1;
    options.screenSelectionSize = {120, 90};
    options.screenSelectionRect = {140, 105, 120, 90};
    EXPECT_TRUE(session.start(options));
    std::mt19937 random(11);
    const auto upTo = [&](int last) { return std::uniform_int_distribution(-last, last)(random); };
    std::uint32_t frames = 1;
    for (int rest = 0; rest < 25; ++rest) {
        // The frame stands before each start: that is when it could be caught.
        session.waitUntil([&] {
            const PXPixelRect area
                = PXPixelsFromRect(session.recorder().currentScreenSelectionRect(), kScreen);
            return framePixelsIn(desktop.display.screenshot()) == pixelsAround(area);
        });
        for (int step = 0; step < 4; ++step) {
            desktop.display.movePointerBy(upTo(30), upTo(20));
            session.waitForFrames(frames++);
        }
    }
    session.stop();
    session.waitUntil([&] { return framePixelsIn(desktop.display.screenshot()) == 0; });
    std::pair<int, int> result;
    for (const RecordedFrame &frame : session.frames()) {
        ++result.first;
        result.second += framePixelsIn(frame.picture) > 0 ? 1 : 0;
    }
    return result;
}

TEST(MovieBounds, AMovingCamerasFrameIsNotInTheRecording)
{
    FramedDesktop desktop;
    const auto [frames, withBounds] = framesWithBounds(desktop);
    EXPECT_GE(frames, 100);
    EXPECT_EQ(withBounds, 0);
}

TEST(MovieBounds, ACompositorThatPaintsLateIsSeldomCaught)
{
    FramedDesktop desktop(VirtualDisplay::Compositor::Fading);
    const auto [frames, withBounds] = framesWithBounds(desktop);
    EXPECT_GE(frames, 100);
    // None on a machine with nothing else to do. A frame that fades is in one of seven there, and
    // one that stays in three of four.
    EXPECT_LT(withBounds, frames / 10);
}

} // namespace
