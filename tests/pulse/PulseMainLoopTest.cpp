#include "platform/pulse/PulseMainLoop.h"

#include "foundation/PXClock.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint64_t kLong = 60'000'000'000;

TEST(PulseMainLoop, AWakeUpBeforeTheWaitIsNotLost)
{
    PulseMainLoop loop;
    const std::uint64_t deadline = PXCurrentHostTime() + kLong;
    loop.wake();
    loop.handleEvents(deadline);
    EXPECT_LT(PXCurrentHostTime(), deadline);
}

} // namespace
