#include "foundation/PXClock.h"
#include "tests/capture/RecordingSession.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/PaintedWindow.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <optional>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/// A square of `size` pixels in pictures of `frames`; the cursor of a PaintedWindow is opaque.
QImage withoutCursorAt(const QImage &picture, const QRect &cursor)
{
    QImage copy = picture;
    for (int y = std::max(0, cursor.top()); y <= std::min(cursor.bottom(), copy.height() - 1); ++y)
        for (int x = std::max(0, cursor.left()); x <= std::min(cursor.right(), copy.width() - 1);
             ++x)
            copy.setPixel(x, y, 0xFF000000);
    return copy;
}

TEST(ScreenRecorder, AStillScreenIsAFirstAndALastFrame)
{
    const VirtualDisplay display(320, 200);
    const PaintedWindow window(display, {10, 10, 100, 100});
    RecordingSession session(display);
    const std::uint64_t before = PXCurrentHostTime();
    ASSERT_TRUE(session.start(session.options()));
    EXPECT_TRUE(session.recorder().isRecording());
    EXPECT_GE(session.hostTimeOfFirstFrame, before);
    // The frame in the ring is not held back for as long as nothing changes.
    session.waitForFrames(1);
    EXPECT_EQ(session.frames().size(), 1U);
    session.stop();
    EXPECT_FALSE(session.recorder().isRecording());
    const auto frames = session.frames();
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_TRUE(frames[0].isKeyFrame && frames[1].isKeyFrame);
    EXPECT_EQ(frames[0].timestamp, 0);
    EXPECT_GT(frames[1].timestamp, 0);
    // One grab before the stop: there is no rate to speak of.
    EXPECT_EQ(session.info().value(u"averageCaptureRate"_s).toDouble(), 0);
}

TEST(ScreenRecorder, EndsWithExactlyWhatTheScreenShows)
{
    const VirtualDisplay display(640, 480);
    display.warpPointer(639, 479);
    PaintedWindow window(display, {40, 40, 300, 200});
    std::mt19937 random(3);
    for (const std::int32_t compression : {1, 2}) {
        RecordingSession session(display);
        auto options = session.options();
        options.videoCompression = compression;
        options.showCursor = false;
        ASSERT_TRUE(session.start(options));
        for (int step = 0; step < 20; ++step) {
            window.fillAtRandom(random, 5);
            window.scroll(7, 0x204060U + static_cast<unsigned>(step));
            window.moveTo(40 + 8 * step, 40 + 5 * step);
            session.waitForFrames(static_cast<std::uint32_t>(step) / 2);
        }
        session.stop();
        const auto frames = session.frames();
        EXPECT_GT(frames.size(), 3U);
        EXPECT_EQ(frames.back().picture, display.screenshot()) << compression;
    }
}

TEST(ScreenRecorder, EveryFrameIsASubsetOfTheScreenAsItWasPainted)
{
    // Only the area, off the display's corner, and the picture after each settled change.
    const VirtualDisplay display(400, 300);
    PaintedWindow window(display, {0, 0, 400, 300}, 0x102030);
    RecordingSession session(display);
    auto options = session.options();
    options.showCursor = false;
    options.screenSelectionRect = {50, 60, 200, 100};
    options.screenSelectionSize = {200, 100};
    ASSERT_TRUE(session.start(options));
    session.waitForFrames(1);
    window.fill({60, 150, 30, 20}, 0xFF0000);
    window.fill({0, 0, 40, 40}, 0x00FF00); // Outside.
    session.waitForFrames(2);
    session.stop();
    const auto frames = session.frames();
    ASSERT_EQ(frames.size(), 3U);
    // The display is 300 high: its row 150 is 300 - 150 - 20 - 60 above the selection's lower edge.
    EXPECT_EQ(frames[1].rects, (std::vector<PXRect>{{10, 70, 30, 20}}));
    EXPECT_EQ(frames[1].picture.pixel(10, 10), 0xFFFF0000U);
    EXPECT_EQ(frames[1].picture.pixel(9, 10), 0xFF102030U);
    EXPECT_EQ(frames[2].picture, display.screenshot().copy(50, 140, 200, 100));
}

TEST(ScreenRecorder, TheCursorIsInThePictureAndLeavesNoTrace)
{
    const VirtualDisplay display(400, 300);
    PaintedWindow window(display, {0, 0, 400, 300}, 0x406080);
    window.setCursor(16, 4, 6);
    display.warpPointer(100, 100);
    RecordingSession session(display);
    ASSERT_TRUE(session.start(session.options()));
    session.waitForFrames(1);
    display.movePointerBy(50, 20);
    session.waitForFrames(2);
    display.warpPointer(300, 200); // Makes no motion of a device, and is found all the same.
    session.waitForFrames(3);
    session.stop();
    const auto frames = session.frames();
    const QRect places[] = {{96, 94, 16, 16}, {146, 114, 16, 16}, {296, 194, 16, 16}};
    const QImage bare = display.screenshot();
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NE(frames[i].picture, bare) << i;
        EXPECT_EQ(withoutCursorAt(frames[i].picture, places[i]), withoutCursorAt(bare, places[i]))
            << i;
    }
}

TEST(ScreenRecorder, TheCameraFollowsThePointerAndComesToRestOverIt)
{
    const VirtualDisplay display(600, 400);
    PaintedWindow window(display, {0, 0, 600, 400}, 0x506070);
    std::mt19937 random(5);
    window.fillAtRandom(random, 200);
    display.warpPointer(100, 100);
    RecordingSession session(display);
    auto options = session.options();
    options.cameraMode = 1;
    options.showCursor = false;
    options.screenSelectionSize = {200, 100};
    options.numberOfFramesPerSecond = 5; // Time enough to stop the camera between two grabs.
    ASSERT_TRUE(session.start(options));
    BRScreenRecorder &recorder = session.recorder();
    EXPECT_EQ(recorder.currentScreenSelectionRect(), (PXRect{0, 250, 200, 100}));
    session.waitForFrames(1);
    display.movePointerBy(300, 150);
    // One grab sees that the pointer moved, the next shows the new place, with nothing else moving.
    session.waitForFrames(3);
    EXPECT_EQ(session.frames().back().picture, display.screenshot().copy(300, 200, 200, 100));

    // A camera that is told to stay is shown where it had just gone to.
    display.movePointerBy(-150, -100);
    const PXRect newPlace{150, 200, 200, 100};
    session.waitUntil([&] { return recorder.currentScreenSelectionRect() == newPlace; });
    recorder.toggleCameraMode();
    display.movePointerBy(150, 100);
    session.waitForFrames(5);
    EXPECT_EQ(session.frames().back().picture, display.screenshot().copy(150, 100, 200, 100));
    EXPECT_EQ(recorder.currentScreenSelectionRect(), newPlace);
    session.stop();
}

TEST(ScreenRecorder, AMainDisplayThatMovesIsReadAgainWhereItIs)
{
    const VirtualDisplay display(600, 400);
    PaintedWindow window(display, {0, 0, 600, 400}, 0x506070);
    std::mt19937 random(6);
    window.fillAtRandom(random, 200);
    window.setCursor(16, 0, 0);
    display.warpPointer(20, 320);
    const QImage screen = display.screenshot();
    RecordingSession session(display);
    auto options = session.options();
    options.screenSelectionRect = {0, 0, 100, 100};
    options.screenSelectionSize = {100, 100};
    ASSERT_TRUE(session.start(options));
    // The first frame still waits in the ring, for its cursor as well.
    display.moveMainDisplay({10, 0, 500, 390});
    session.waitForFrames(2);
    const auto frames = session.frames();
    const QPoint origins[] = {{0, 300}, {10, 290}};
    for (std::size_t i = 0; i < 2; ++i) {
        const QRect cursor(QPoint(20, 320) - origins[i], QSize(16, 16));
        EXPECT_EQ(frames[i].picture.pixel(cursor.topLeft()), 0xFFFF0000U) << i;
        EXPECT_EQ(withoutCursorAt(frames[i].picture, cursor),
                  withoutCursorAt(screen.copy(QRect(origins[i], QSize(100, 100))), cursor))
            << i;
    }
    session.stop();
}

TEST(ScreenRecorder, KeyFramesComeAfterThirtyGrabsAndThreeSeconds)
{
    const VirtualDisplay display(200, 100);
    PaintedWindow window(display, {0, 0, 200, 100});
    RecordingSession session(display);
    auto options = session.options();
    options.showCursor = false;
    ASSERT_TRUE(session.start(options));
    session.waitForFrames(1); // From here on the file stays the same one.
    std::uint32_t count = 0;
    std::vector<RecordedFrame> frames;
    session.waitUntil([&] {
        window.fill({static_cast<int>(count % 190), 0, 4, 4}, 0x010101U * (count % 255));
        ++count;
        frames = session.frames();
        return !frames.empty() && frames.back().timestamp > 3.5;
    });
    session.stop();
    std::vector<std::size_t> keyFrames;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].isKeyFrame)
            keyFrames.push_back(i);
    }
    ASSERT_EQ(keyFrames.size(), 2U);
    EXPECT_GE(keyFrames[1], 31U);
    EXPECT_GT(frames[keyFrames[1]].timestamp, 3.0);
}

TEST(ScreenRecorder, FilesThatCannotBeStoredEndTheRecording)
{
    const VirtualDisplay display(200, 100);
    RecordingSession session(display);
    ASSERT_TRUE(session.start(session.options()));
    session.waitForFrames(1);
    ASSERT_TRUE(QFile::remove(session.filePath()));
    session.waitUntil([&] { return session.failure.has_value(); });
    EXPECT_EQ(session.failure->code, ENOENT);
    session.stop();
}

TEST(ScreenRecorder, StoppingReportsOnceHoweverItIsCalled)
{
    const VirtualDisplay display(100, 100);
    RecordingSession neverStarted(display);
    neverStarted.stop();
    EXPECT_EQ(neverStarted.timesStopped, 1);

    RecordingSession refused(display);
    auto options = refused.options();
    options.screenSelectionSize = {1e30F, 10};
    EXPECT_FALSE(refused.start(options));
    EXPECT_FALSE(refused.recorder().isRecording());
    refused.stop();
    EXPECT_THROW((void)refused.start(refused.options()), std::logic_error);

    RecordingSession twice(display);
    ASSERT_TRUE(twice.start(twice.options()));
    EXPECT_THROW((void)twice.start(twice.options()), std::logic_error);
    twice.recorder().stopRecording();
    twice.stop();
    EXPECT_EQ(twice.timesStopped, 1);

    // Destroying a recorder that runs leaves a whole file, with what waited in the ring.
    RecordingSession destroyed(display);
    ASSERT_TRUE(destroyed.start(destroyed.options()));
    destroyed.destroyRecorder();
    EXPECT_EQ(destroyed.frames().size(), 1U);
    EXPECT_EQ(destroyed.timesStopped, 0);
}

TEST(ScreenRecorder, AFailureInTheLastFramesIsReportedBeforeTheEnd)
{
    const VirtualDisplay display(400, 300);
    PaintedWindow window(display, {0, 0, 400, 300});
    std::mt19937 random(12);
    window.fillAtRandom(random, 300);
    RecordingSession session(display);
    auto options = session.options();
    options.videoCompression = 2;
    ASSERT_TRUE(session.start(options));
    session.waitForFrames(1);
    std::optional<FileSizeLimit> limit(static_cast<rlim_t>(QFileInfo(session.filePath()).size())
                                       + 100);
    session.stop();
    limit.reset();
    ASSERT_TRUE(session.failure);
    EXPECT_EQ(session.failure->code, EFBIG);
    EXPECT_EQ(session.frames().size(), 1U);
}

} // namespace
