#include "capture/BRFrameReader.h"
#include "platform/x11/X11ScreenPlatform.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/VirtualDisplay.h"

#include <gtest/gtest.h>

namespace {

TEST(FrameReader, AScreenshotIsTheWholeDisplayAsAnotherProgramReadsIt)
{
    VirtualDisplay display(331, 207);
    PaintedWindow window(display, {13, 9, 301, 190});
    window.setCursor(16, 0, 0);
    display.warpPointer(100, 100); // The cursor is no part of it.
    const auto platform = X11ScreenPlatform::open(display.name()).value();
    std::mt19937 random(8);
    for (int step = 0; step < 3; ++step) {
        window.fillAtRandom(random, 40);
        const QImage screenshot = BRFrameReader::grabScreenshot(*platform).value();
        EXPECT_EQ(screenshot, display.screenshot()) << step;
        EXPECT_EQ(screenshot.constScanLine(100)[3], 255); // Comparing leaves the byte out.
    }
    display.kill();
    EXPECT_FALSE(BRFrameReader::grabScreenshot(*platform));
}

} // namespace
