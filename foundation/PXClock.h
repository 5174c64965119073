#pragma once

#include <cstdint>

/// Seconds between the Unix epoch and the reference date, 2001-01-01 00:00 UTC.
inline constexpr double kPXUnixTimeOfReferenceDate = 978307200.0;

/// CLOCK_MONOTONIC in nanoseconds: the clock that frames and sound are lined up on.
std::uint64_t PXCurrentHostTime();

/// Seconds since the reference date. The wall clock as it was at the program's first call plus
/// monotonic time since, so that it never jumps when somebody sets the clock.
double PXTimeIntervalSinceReferenceDate();

/// The host time at which the reference-date clock shows, or will show, `time`.
std::uint64_t PXHostTimeForReferenceTime(double time);
