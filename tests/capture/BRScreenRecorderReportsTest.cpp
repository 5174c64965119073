#include "foundation/PXDefaults.h"
#include "foundation/PXNotificationCenter.h"
#include "tests/capture/RecordingSession.h"
#include "tests/support/PaintedWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

using namespace Qt::StringLiterals;
using testing::ElementsAreArray;

namespace {

/// Keeps what did not stay the same.
template <typename T> void appendChange(std::vector<T> &list, const T &value)
{
    if (list.empty() || list.back() != value)
        list.push_back(value);
}

/// Stands where the tray and the frame around the area do; hears of them on any thread.
class Listener final : public BRStatusItem, public BRMovieBounds {
public:
    void setStatusItemImage(const QString &imageName) override { add(imageName.toStdString()); }
    void setStatusItemText(const std::optional<QString> &text) override
    {
        add(text ? "a text" : "no text");
    }
    void setScreenSelectionRect(const PXRect &rect) override
    {
        const std::lock_guard lock(_mutex);
        appendChange(_boundsRects, rect);
    }
    void selectionWasRead(const PXRect &rect) override
    {
        const std::lock_guard lock(_mutex);
        appendChange(_readRects, rect);
    }
    void orderFront() override { add("front"); }
    void orderOut() override { add("out"); }
    void cameraWasSet(const PXRect &rect)
    {
        const std::lock_guard lock(_mutex);
        appendChange(_cameraRects, rect);
        ++_timesCameraWasSet;
    }

    [[nodiscard]] PXRect lastReadRect()
    {
        const std::lock_guard lock(_mutex);
        return _readRects.empty() ? PXRect() : _readRects.back();
    }

    // Once the recording has ended nobody calls any more.
    [[nodiscard]] const std::vector<std::string> &calls() const { return _calls; }
    [[nodiscard]] const std::vector<PXRect> &boundsRects() const { return _boundsRects; }
    [[nodiscard]] const std::vector<PXRect> &readRects() const { return _readRects; }
    [[nodiscard]] const std::vector<PXRect> &cameraRects() const { return _cameraRects; }
    [[nodiscard]] std::size_t timesCameraWasSet() const { return _timesCameraWasSet; }

private:
    void add(const std::string &call)
    {
        const std::lock_guard lock(_mutex);
        appendChange(_calls, call);
    }

    std::mutex _mutex;
    std::vector<std::string> _calls;
    std::vector<PXRect> _boundsRects;
    std::vector<PXRect> _readRects;
    std::vector<PXRect> _cameraRects;
    std::size_t _timesCameraWasSet = 0;
};

struct ReportsCase {
    const char *name;
    int cameraMode;
    bool displayMovieBounds;
    bool showsDuration;
    std::vector<PXRect> cameraRects;
    std::vector<std::string> calls;
};

const ReportsCase kReportsCases[] = {
    {"fixedArea",
     0,
     true,
     true,
     {{50, 60, 200, 100}},
     {"status-recording", "front", "a text", "no text", "status-normal", "out"}},
    // Around (100, 100) and (400, 250) on a display that is 400 high.
    {"followsThePointer",
     1,
     true,
     true,
     {{0, 250, 200, 100}, {300, 100, 200, 100}},
     {"status-recording", "front", "a text", "no text", "status-normal", "out"}},
    {"withoutBounds",
     1,
     false,
     true,
     {{0, 250, 200, 100}, {300, 100, 200, 100}},
     {"status-recording", "a text", "no text", "status-normal", "out"}},
    {"withoutText",
     0,
     true,
     false,
     {{50, 60, 200, 100}},
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
        EXPECT_THAT(listener.calls(), ElementsAreArray(c.calls)) << c.name;
        EXPECT_EQ(listener.cameraRects(), c.cameraRects) << c.name;
        EXPECT_EQ(listener.boundsRects(),
                  c.displayMovieBounds ? c.cameraRects : std::vector<PXRect>())
            << c.name;
        EXPECT_EQ(listener.readRects(), listener.boundsRects()) << c.name;
        if (c.cameraMode == 0)
            EXPECT_EQ(listener.timesCameraWasSet(), 1U) << c.name;
        else // At the start and at each grab.
            EXPECT_GT(listener.timesCameraWasSet(), session.frames().size()) << c.name;
    }
}

} // namespace
