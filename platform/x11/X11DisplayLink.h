#pragma once

#include "platform/PXDisplayLink.h"
#include "platform/x11/X11FileDescriptor.h"
#include "platform/x11/X11VerticalBlank.h"

#include "foundation/PXMutex.h"

#include <memory>
#include <thread>

class PXMainDisplay;

/// Sleeps until one vertical blank, or one moment of a timer where the display gives none. Who
/// wants the next call asks the server for it at once, from whatever thread, so that the link's
/// own thread has a single wake-up for each call.
class X11DisplayLink final : public PXDisplayLink {
public:
    /// Without `verticalBlank` a timer at the refresh rate of `display`, which must outlive it.
    X11DisplayLink(const PXMainDisplay &display, std::unique_ptr<X11VerticalBlank> verticalBlank);
    ~X11DisplayLink() override;

    PXExpected<void> start(std::function<std::uint64_t(std::uint64_t)> refresh) override;
    void wake(std::uint64_t notBefore) override;
    void stop() override;

private:
    enum class Phase { Resting, Waiting, Calling, Stopped };

    void _run();
    void _sleep();
    /// The host time of the refresh that came and is wanted; 0 when it is not yet time.
    std::uint64_t _refreshThatCame() PX_REQUIRES(_lock);
    void _schedule(std::uint64_t notBefore) PX_REQUIRES(_lock);
    [[nodiscard]] std::uint64_t _period() const;

    const PXMainDisplay &_display;
    const X11FileDescriptor _stopped = X11FileDescriptor::event();
    const X11FileDescriptor _timer = X11FileDescriptor::timer();
    const std::uint64_t _firstTick; ///< All ticks of the timer are whole periods after it.

    PXMutex _lock;
    std::function<std::uint64_t(std::uint64_t)> _refresh; // Set once, before the thread starts.
    std::unique_ptr<X11VerticalBlank> _verticalBlank PX_GUARDED_BY(_lock);
    Phase _phase PX_GUARDED_BY(_lock) = Phase::Resting;
    std::uint64_t _wished PX_GUARDED_BY(_lock) = kWhenWoken; ///< No call before it.
    std::uint64_t _tick PX_GUARDED_BY(_lock) = kWhenWoken; ///< What the timer is set to.

    std::uint64_t _lastCall PX_GUARDED_BY(_lock) = 0; ///< The refresh that called last.
    bool _blankIsOverdue PX_GUARDED_BY(_lock) = false; ///< Then the timer calls until one comes.

    std::jthread _thread;
};
