#pragma once

#include "foundation/PXClock.h"

#include <xcb/xcb.h>

#include <cstdint>

/// The seconds at which the server saw something, on CLOCK_MONOTONIC where the server is of this
/// machine. Its own clock counts milliseconds in 32 bits and begins again every 49 days: of the
/// times that look like `time` this is the one nearest to now. Nothing but `time` matters, so two
/// connections tell the same of one event, to the last bit.
inline double X11Seconds(xcb_timestamp_t time)
{
    const auto nowMs = static_cast<std::int64_t>(PXCurrentHostTime() / 1'000'000);
    const auto sinceThen = static_cast<std::int32_t>(static_cast<std::uint32_t>(nowMs) - time);
    return static_cast<double>(nowMs - sinceThen) / 1000;
}
