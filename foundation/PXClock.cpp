#include "foundation/PXClock.h"

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
    const double sinceStart = (time - since.referenceTime) * kNanosecondsPerSecond;
    return sinceStart <= 0 ? since.hostTime
                           : since.hostTime + static_cast<std::uint64_t>(sinceStart);
}
