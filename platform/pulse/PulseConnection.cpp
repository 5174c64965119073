#include "platform/pulse/PulseConnection.h"

#include "platform/pulse/PulseError.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"

PXExpected<std::unique_ptr<PulseConnection>> PulseConnection::open(const QString &serverName)
{
    std::unique_ptr<PulseConnection> result(new PulseConnection(serverName));
    const PulseContext &context = result->_context;
    const std::uint64_t deadline = PXCurrentHostTime() + kPatience;
    while (!context.isReady() && !context.isLost() && PXCurrentHostTime() < deadline)
        result->_loop.handleEvents(deadline);
    if (context.isReady())
        return result;
    const PXError error = context.isLost() ? context.error() : PulseError::noAnswer();
    BRLog(BRLogError, error.description);
    return PXFail(error);
}

bool PulseConnection::isAlive()
{
    _loop.handleEvents(0);
    return _context.isReady();
}

PulseConnection::Answer PulseConnection::waitFor(PulseOperation operation)
{
    const std::uint64_t deadline = PXCurrentHostTime() + kPatience;
    const auto isRunning
        = [&] { return pa_operation_get_state(operation.get()) == PA_OPERATION_RUNNING; };
    while (operation && isRunning() && !_context.isLost()) {
        if (PXCurrentHostTime() >= deadline)
            return Answer::Lost;
        _loop.handleEvents(deadline);
    }
    if (_context.isLost())
        return Answer::Lost;
    return operation && pa_operation_get_state(operation.get()) == PA_OPERATION_DONE
        ? Answer::Given
        : Answer::Refused;
}

PXError PulseConnection::lostError() const
{
    PXError error = _context.isLost() ? _context.error() : PulseError::noAnswer();
    BRLog(BRLogError, error.description);
    return error;
}

void PulseConnection::listenTo(int mask)
{
    _context.subscribe(
        mask,
        [](pa_context *, pa_subscription_event_type_t, std::uint32_t, void *self) noexcept {
            static_cast<PulseConnection *>(self)->_hasEvent = true;
        },
        this);
    _hasEvent = false;
}

void PulseConnection::waitForEvent(std::uint64_t deadline)
{
    while (!_hasEvent && !_context.isLost() && PXCurrentHostTime() < deadline)
        _loop.handleEvents(deadline);
    _hasEvent = false;
}
