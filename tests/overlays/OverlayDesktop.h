#pragma once

#include "platform/PXScreenPlatform.h"
#include "tests/support/Hand.h"
#include "tests/support/VirtualDisplay.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <memory>

/// The desktop of this test program: 1001 x 701 pixels, so that nothing comes out even, with a
/// window manager. Made by main().
VirtualDisplay &theDesktop();

/// A test of what stands on the screen, with and without a compositor.
class OverlayTest : public testing::TestWithParam<VirtualDisplay::Compositor> {
protected:
    static constexpr int kWidth = 1001;
    static constexpr int kHeight = 701;

    OverlayTest();

    [[nodiscard]] static QImage screenshot() { return theDesktop().screenshot(); }

    const std::unique_ptr<PXScreenPlatform> platform;
    const std::unique_ptr<PXWindowServer> windowServer;
    const Hand hand{theDesktop().name()};
};

std::string nameOfCompositor(const testing::TestParamInfo<VirtualDisplay::Compositor> &info);
