#include "tests/support/CopiedChildren.h"
#include "tests/support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <QApplication>

/// Widgets are shown on a private display; QT_SCALE_FACTOR counts.
int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests))
        return RUN_ALL_TESTS();
    const VirtualDisplay display(800, 600);
    qputenv("DISPLAY", display.name().toLatin1());
    qputenv("QT_QPA_PLATFORM", "xcb");
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
