#include "platform/pulse/PulseMainLoop.h"

#include "foundation/PXClock.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

PulseMainLoop::PulseMainLoop() : _loop(pa_mainloop_new())
{
    if (!_loop)
        throw std::system_error(errno, std::generic_category(), "pa_mainloop_new");
}

void PulseMainLoop::handleEvents(std::uint64_t deadline)
{
    constexpr std::uint64_t kLongestUs = 1'000'000'000;
    int timeoutUs = -1;
    if (deadline != kNever) {
        const std::uint64_t now = PXCurrentHostTime();
        const std::uint64_t wait = deadline > now ? deadline - now : 0;
        timeoutUs = static_cast<int>(std::min((wait + 999) / 1000, kLongestUs));
    }
    if (pa_mainloop_prepare(_loop.get(), timeoutUs) < 0)
        return;
    // Preparing forgets the wake-ups of before.
    if (_isWoken.exchange(false))
        pa_mainloop_wakeup(_loop.get());
    if (pa_mainloop_poll(_loop.get()) >= 0)
        pa_mainloop_dispatch(_loop.get());
}

void PulseMainLoop::wake()
{
    _isWoken = true;
    pa_mainloop_wakeup(_loop.get());
}
