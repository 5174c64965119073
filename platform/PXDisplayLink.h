#pragma once

#include "foundation/PXError.h"

#include <cstdint>
#include <functional>

/// Calls back at the display's refreshes on a thread of its own, "tolvane-link".
///
/// The callback answers when it wants its next call: a host time (CLOCK_MONOTONIC nanoseconds).
/// The call comes at the first refresh at or after it. Until then the link rests and the process
/// has no wake-ups of it. `wake()` makes the next refresh call, whatever was answered. A call that
/// takes longer than a refresh makes the next one later, never two in a row.
class PXDisplayLink {
public:
    static constexpr std::uint64_t kNextRefresh = 0;
    /// For `wake()`: without waiting for a refresh, for a recording that is to end.
    static constexpr std::uint64_t kAtOnce = 1;
    static constexpr std::uint64_t kWhenWoken = UINT64_MAX;

    virtual ~PXDisplayLink() = default;

    /// Starts the thread; `refresh` gets the host time of the refresh. Once.
    virtual PXExpected<void> start(std::function<std::uint64_t(std::uint64_t)> refresh) = 0;
    /// Any thread. `notBefore`: a host time before which no call is wanted.
    virtual void wake(std::uint64_t notBefore = kNextRefresh) = 0;
    /// Stops and joins; from the callback itself it only marks, and the thread ends after it.
    virtual void stop() = 0;
};
