#pragma once

#include "platform/pulse/PulseHandles.h"

#include <atomic>
#include <cstdint>

/// libpulse's event loop, run by the one thread that also makes every other libpulse call on what
/// belongs to it: nothing of libpulse is shared between threads, so nothing needs a lock.
class PulseMainLoop final {
public:
    static constexpr std::uint64_t kNever = UINT64_MAX;

    /// Throws std::system_error when the system has no descriptors left.
    PulseMainLoop();

    [[nodiscard]] pa_mainloop_api *api() const { return pa_mainloop_get_api(_loop.get()); }
    /// Handles the events that are there. With none it waits for some, until the host time
    /// `deadline` at the latest.
    void handleEvents(std::uint64_t deadline);
    /// Ends that wait, or the next one. From any thread.
    void wake();

private:
    PulseMainLoopHandle _loop;
    std::atomic<bool> _isWoken = false;
};
