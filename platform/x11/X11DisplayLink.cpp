#include "platform/x11/X11DisplayLink.h"

#include "platform/PXMainDisplay.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "foundation/PXThread.h"

#include <poll.h>

#include <algorithm>
#include <stdexcept>

namespace {

/// A blank that is later than this does not come: the display sleeps, or was unplugged.
constexpr std::uint64_t kPatience = 100'000'000;

/// The next refresh is the smaller number, but at once is the earlier time.
std::uint64_t earlier(std::uint64_t one, std::uint64_t other)
{
    constexpr std::uint64_t kAtOnce = PXDisplayLink::kAtOnce;
    return one == kAtOnce || other == kAtOnce ? kAtOnce : std::min(one, other);
}

} // namespace

X11DisplayLink::X11DisplayLink(const PXMainDisplay &display,
                               std::unique_ptr<X11VerticalBlank> verticalBlank)
    : _display(display), _firstTick(PXCurrentHostTime()), _verticalBlank(std::move(verticalBlank))
{
}

X11DisplayLink::~X11DisplayLink()
{
    stop();
}

PXExpected<void> X11DisplayLink::start(std::function<std::uint64_t(std::uint64_t)> refresh)
{
    if (_thread.joinable())
        throw std::logic_error("X11DisplayLink: started twice");
    _refresh = std::move(refresh);
    // The first call may come, and stop the link, before this thread has noted the other.
    const PXLock lock(_lock);
    _schedule(kNextRefresh);
    _thread = std::jthread([this] { _run(); });
    return {};
}

void X11DisplayLink::wake(std::uint64_t notBefore)
{
    const PXLock lock(_lock);
    switch (_phase) {
    case Phase::Stopped:
        break;
    case Phase::Calling:
        _wished = earlier(_wished, notBefore);
        break;
    case Phase::Resting:
        _schedule(notBefore);
        break;
    case Phase::Waiting:
        if (notBefore == kAtOnce)
            _schedule(notBefore);
        // A wish that has passed means the next refresh, and that is under way.
        if (notBefore < _wished && _wished > PXCurrentHostTime())
            _schedule(notBefore);
        break;
    }
}

void X11DisplayLink::stop()
{
    bool isOutside = false;
    {
        const PXLock lock(_lock);
        _phase = Phase::Stopped;
        isOutside = _thread.joinable() && _thread.get_id() != std::this_thread::get_id();
    }
    _stopped.signal();
    if (isOutside)
        _thread.join();
}

void X11DisplayLink::_run()
{
    PXSetThreadName("tolvane-link");
    for (;;) {
        _sleep();
        std::uint64_t time = 0;
        {
            const PXLock lock(_lock);
            if (_phase == Phase::Stopped)
                return;
            time = _refreshThatCame();
            if (time == 0)
                continue;
            _phase = Phase::Calling;
            _lastCall = time;
            _wished = kWhenWoken;
        }
        const std::uint64_t wish = _refresh(time);
        const PXLock lock(_lock);
        if (_phase == Phase::Stopped)
            return;
        _schedule(earlier(wish, _wished));
    }
}

void X11DisplayLink::_sleep()
{
    pollfd files[] = {{_stopped.get(), POLLIN, 0}, {_timer.get(), POLLIN, 0}, {-1, POLLIN, 0}};
    {
        const PXLock lock(_lock);
        if (_verticalBlank)
            files[2].fd = _verticalBlank->fileDescriptor();
    }
    ppoll(files, 3, nullptr, nullptr);
}

std::uint64_t X11DisplayLink::_refreshThatCame()
{
    std::optional<std::uint64_t> blank;
    if (_verticalBlank) {
        blank = _verticalBlank->takeLatest();
        if (blank)
            _blankIsOverdue = false;
        if (_verticalBlank->isLost()) {
            BRLog(BRLogWarning, "The display's refreshes have stopped; a timer takes their place.");
            _verticalBlank.reset();
        }
    }
    if (_phase != Phase::Waiting)
        return 0;
    const std::uint64_t period = _period();
    if (blank && *blank + X11VerticalBlank::earlyBy(period) >= _wished
        && *blank > _lastCall + period / 2)
        return *blank;
    if (_tick <= PXCurrentHostTime()) {
        if (_wished != kAtOnce)
            _blankIsOverdue = _verticalBlank != nullptr;
        return _tick;
    }
    if (!_verticalBlank || !_verticalBlank->isUnderWay())
        _schedule(_wished);
    return 0;
}

void X11DisplayLink::_schedule(std::uint64_t notBefore)
{
    _wished = notBefore;
    // So late that adding to it would overflow: that is never.
    if (notBefore > kWhenWoken / 2) {
        _phase = Phase::Resting;
        _tick = kWhenWoken;
        _timer.setTime(_tick);
        return;
    }
    _phase = Phase::Waiting;
    const std::uint64_t period = _period();
    if (notBefore == kAtOnce) {
        _tick = PXCurrentHostTime();
    } else if (_verticalBlank && !_blankIsOverdue) {
        _tick = _verticalBlank->request(notBefore, period) + kPatience;
    } else {
        const std::uint64_t early = X11VerticalBlank::earlyBy(period);
        const std::uint64_t next = (PXCurrentHostTime() - _firstTick) / period + 1;
        const std::uint64_t wished = notBefore > _firstTick + early
            ? (notBefore - early - _firstTick + period - 1) / period
            : 0;
        _tick = _firstTick + std::max(next, wished) * period;
    }
    _timer.setTime(_tick);
}

std::uint64_t X11DisplayLink::_period() const
{
    // A rate that no display has would make a busy loop or a link that never calls.
    return static_cast<std::uint64_t>(1e9 / std::clamp(_display.refreshRate(), 1.0, 1000.0));
}
