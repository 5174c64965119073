#include "tests/support/CopiedChildren.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

/// Every test program runs inside a Qt application, so that queued calls reach the main thread.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
