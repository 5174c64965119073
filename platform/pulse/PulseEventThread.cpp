#include "platform/pulse/PulseEventThread.h"

#include "foundation/PXClock.h"
#include "foundation/PXThread.h"

namespace {
constexpr std::uint64_t kBetweenTries = 1'000'000'000;
} // namespace

PulseEventThread::PulseEventThread(const char *name, const QString &serverName, int mask,
                                   PulseEventThread::Delegate &delegate)
    : _serverName(serverName),
      _mask(mask),
      _delegate(delegate),
      _thread([this, name] { _run(name); })
{
}

PulseEventThread::~PulseEventThread()
{
    _stop.request_stop();
    _thread.join();
}

void PulseEventThread::_run(const char *name)
{
    PXSetThreadName(name);
    const std::stop_callback wake(_stop.get_token(), [this] { _loop.wake(); });
    while (!isEnding()) {
        PulseContext context(_loop, _serverName);
        _serve(context);
        if (isEnding())
            return;
        _delegate.serverDidGo(context.error());
        const std::uint64_t nextTry = PXCurrentHostTime() + kBetweenTries;
        while (!isEnding() && PXCurrentHostTime() < nextTry)
            _loop.handleEvents(nextTry);
    }
}

void PulseEventThread::_serve(PulseContext &context)
{
    while (!isEnding() && !context.isReady() && !context.isLost())
        _loop.handleEvents(PulseMainLoop::kNever);
    if (isEnding() || context.isLost())
        return;
    context.subscribe(
        _mask,
        [](pa_context *, pa_subscription_event_type_t event, std::uint32_t, void *self) noexcept {
            static_cast<PulseEventThread *>(self)->_delegate.serverDidTell(event);
        },
        this);
    _delegate.serverDidCome(*context.get());
    while (!isEnding() && !context.isLost())
        _loop.handleEvents(_delegate.eventsWereHandled());
    _delegate.contextWillEnd();
}
