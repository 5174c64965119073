#include "foundation/PXClock.h"

#include <algorithm>
#include <ctime>

namespace {

constexpr double kNanosecondsPerSecond = 1e9;

std::uint64_t nanosecondsOf(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000u
        + static_cast<std::uint64_t>(now.tv_nsec);
}

struct Start {
    std::uint64_t hostTime = nanosecondsOf(CLOCK_MONOTONIC);
    double referenceTime
        = static_cast<double>(nanosecondsOf(CLOCK_REALTIME)) / kNanosecondsPerSecond
        - kPXUnixTimeOfReferenceDate;
};

const Start &start()
{
    static const Start theStart;
    return theStart;
}

} // namespace

std::uint64_t PXCurrentHostTime()
{
    return nanosecondsOf(CLOCK_MONOTONIC);
}

double PXTimeIntervalSinceReferenceDate()
{
    const Start &since = start();
    return since.referenceTime
        + static_cast<double>(PXCurrentHostTime() - since.hostTime) / kNanosecondsPerSecond;
}

std::uint64_t PXHostTimeForReferenceTime(double time)
{
    const Start &since = start();
    // A century is as good as never, and still a number that can be cast.
    constexpr double kCentury = 3.2e18;
    const double sinceStart
        = std::min((time - since.referenceTime) * kNanosecondsPerSecond, kCentury);
    return sinceStart <= 0 ? since.hostTime
                           : since.hostTime + static_cast<std::uint64_t>(sinceStart);
}
