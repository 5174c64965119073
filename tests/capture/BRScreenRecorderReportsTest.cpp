#include "foundation/PXDefaults.h"
#include "foundation/PXNotificationCenter.h"
#include "tests/capture/RecordingSession.h"
#include "tests/support/PaintedWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

using namespace Qt::StringLiterals;
using testing::ElementsAreArray;

namespace {

/// Stands where the tray and the frame around the area do; hears of them on any thread. What stays
/// the same it keeps once.
class Listener final : public BRStatusItem, public BRMovieBounds {
public:
    void setStatusItemImage(const QString &imageName) override
    {
        add(calls, imageName.toStdString());
    }
    void setStatusItemText(const std::optional<QString> &text) override
    {
        add<std::string>(calls, text ? "a text" : "no text");
    }
    void setScreenSelectionRect(const PXRect &rect) override { add(boundsRects, rect); }
    void selectionWasRead(const PXRect &rect) override { add(readRects, rect); }
    void orderFront() override { add<std::string>(calls, "front"); }
    void orderOut() override { add<std::string>(calls, "out"); }
    void cameraWasSet(const PXRect &rect)
    {
        add(cameraRects, rect);
        ++timesCameraWasSet;
    }
    [[nodiscard]] PXRect lastReadRect()
    {
        const std::lock_guard lock(_mutex);
        return readRects.empty() ? PXRect() : readRects.back();
    }

    // Once the recording has ended nobody calls any more.
    std::vector<std::string> calls;
    std::vector<PXRect> boundsRects;
    std::vector<PXRect> readRects;
    std::vector<PXRect> cameraRects;
    std::atomic<std::size_t> timesCameraWasSet = 0;

private:
    template <typename T> void add(std::vector<T> &list, const T &value)
    {
        const std::lock_guard lock(_mutex);
        if (list.empty() || list.back() != value)
            list.push_back(value);
    }

    std::mutex _mutex;
};

struct ReportsCase {
    const char *name;
    int cameraMode;
    bool displayMovieBounds;
    bool showsDuration;
    std::vector<PXRect> cameraRects;
    std::vector<std::string> calls;
};

// Around (100, 100) and (400, 250) on a display that is 400 high.
const std::vector<PXRect> kFollowing = {{0, 250, 200, 100}, {300, 100, 200, 100}};
const std::vector<PXRect> kFixed = {{50, 60, 200, 100}};
const ReportsCase kReportsCases[] = {
    {"followsThePointer",
     1,
     true,
     true,
     kFollowing,
     {"status-recording", "front", "a text", "no text", "status-normal", "out"}},
    {"withoutBounds",
     1,
     false,
     true,
     kFollowing,
     {"status-recording", "a text", "no text", "status-normal", "out"}},
    {"fixedWithoutText",
     0,
     true,
     false,
     kFixed,
     {"status-recording", "front", "no text", "status-normal", "out"}},
};

TEST(ScreenRecorder, ReportsItsCameraAndItsStateToWhoeverShowsThem)
{
    const VirtualDisplay display(600, 400);
    const PaintedWindow window(display, {0, 0, 600, 400});
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    defaults.setArgumentValue(u"showRecordingSizeInMenubar"_s, false);
    for (const ReportsCase &c : kReportsCases) {
        defaults.setArgumentValue(u"showRecordingDurationInMenubar"_s, c.showsDuration);
        display.warpPointer(100, 100);
        Listener listener;
        RecordingSession session(display, &listener, &listener);
        BRScreenRecorder &recorder = session.recorder();
        const PXObservation observation = PXNotificationCenter::defaultCenter().addObserver(
            kBRScreenRecorderScreenSelectionRectChangedNotification, &recorder,
            [&](auto &&...) { listener.cameraWasSet(recorder.currentScreenSelectionRect()); });
        auto options = session.options();
        options.cameraMode = c.cameraMode;
        options.displayMovieBounds = c.displayMovieBounds;
        options.screenSelectionRect = {50, 60, 200, 100};
        options.screenSelectionSize = {200, 100};
        ASSERT_TRUE(session.start(options));
        session.waitForFrames(1);
        display.movePointerBy(300, 150);
        session.waitUntil(
            [&] { return recorder.currentScreenSelectionRect() == c.cameraRects.back(); });
        if (c.displayMovieBounds) // The frame comes back when the camera stands.
            session.waitUntil([&] { return listener.lastReadRect() == c.cameraRects.back(); });
        session.stop();
        EXPECT_THAT(listener.calls, ElementsAreArray(c.calls)) << c.name;
        EXPECT_EQ(listener.cameraRects, c.cameraRects) << c.name;
        EXPECT_EQ(listener.boundsRects,
                  c.displayMovieBounds ? c.cameraRects : std::vector<PXRect>())
            << c.name;
        EXPECT_EQ(listener.readRects, listener.boundsRects) << c.name;
        if (c.cameraMode == 0)
            EXPECT_EQ(listener.timesCameraWasSet, 1U) << c.name;
        else // At the start and at each grab.
            EXPECT_GT(listener.timesCameraWasSet, session.frames().size()) << c.name;
    }
}

} // namespace
