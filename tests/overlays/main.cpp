#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/CopiedChildren.h"
#include "tests/x11/X11Screens.h"

#include <QApplication>
#include <QTemporaryDir>

namespace {
VirtualDisplay *desktop = nullptr;
}

VirtualDisplay &theDesktop()
{
    return *desktop;
}

OverlayTest::OverlayTest()
    : platform(openScreen(theDesktop())), windowServer(valueOf(platform->makeWindowServer()))
{
    theDesktop().setCompositor(GetParam());
    const bool isBlending = GetParam() != VirtualDisplay::Compositor::None;
    EXPECT_TRUE(waitUntil([&] { return windowServer->isCompositing() == isBlending; }));
}

std::string nameOfCompositor(const testing::TestParamInfo<VirtualDisplay::Compositor> &info)
{
    return info.param == VirtualDisplay::Compositor::None ? "NoCompositor" : "XRender";
}

/// QT_SCALE_FACTOR counts. The settings are the test's own.
int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests))
        return RUN_ALL_TESTS();
    VirtualDisplay::Options options;
    options.hasWindowManager = true;
    options.serverArguments = {QStringLiteral("+bs")};
    // It can only become smaller.
    VirtualDisplay display(1500, 1000, options);
    display.resize(1001, 701);
    desktop = &display;
    const QTemporaryDir settings;
    qputenv("XDG_CONFIG_HOME", settings.path().toLocal8Bit());
    qputenv("DISPLAY", display.name().toLatin1());
    qputenv("QT_QPA_PLATFORM", "xcb");
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
