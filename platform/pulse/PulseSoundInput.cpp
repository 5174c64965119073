#include "platform/pulse/PulseSoundInput.h"

#include "platform/pulse/PulseConnection.h"
#include "platform/pulse/PulseError.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
/// After a stream's end nothing may happen at the server that would tell to look again.
constexpr std::uint64_t kLookAgainAfter = 1'000'000'000;
/// A source that is refused again and again makes news each time.
constexpr std::uint64_t kBetweenLooks = 100'000'000;
} // namespace

PulseSoundInput::PulseSoundInput(const QString &serverName, const PulseSource &source,
                                 const PulseSoundFormat &format)
    : _serverName(serverName), _uid(source.uid()), _description(source.description), _format(format)
{
}

PulseSoundInput::~PulseSoundInput()
{
    stop();
}

PXExpected<void> PulseSoundInput::start(PXSoundInputDelegate &delegate)
{
    if (_thread)
        throw std::logic_error("PulseSoundInput: started twice");
    _delegate = &delegate;
    PXExpected<void> answer = PXFail(PulseError::noAnswer());
    {
        const PXLock lock(_lock);
        _firstAnswer.reset();
    }
    _isStopping = false;
    PulseEventThread::Delegate &events = *this;
    _thread = std::make_unique<PulseEventThread>("tolvane-sound", _serverName,
                                                 PA_SUBSCRIPTION_MASK_SOURCE, events);
    {
        PXLock lock(_lock);
        const auto isAnswered = [this]() PX_REQUIRES(_lock) { return _firstAnswer.has_value(); };
        if (_answered.wait_for(lock, std::chrono::nanoseconds(PulseConnection::kPatience),
                               isAnswered))
            answer = *_firstAnswer;
    }
    if (!answer)
        stop();
    return answer;
}

void PulseSoundInput::stop()
{
    _isStopping = true;
    _thread.reset();
    _isFlowing = false;
}

bool PulseSoundInput::_answer(const PXExpected<void> &answer)
{
    const PXLock lock(_lock);
    if (_firstAnswer)
        return false;
    // First: whoever waits may ask at once.
    _isFlowing = answer.has_value();
    _firstAnswer = answer;
    _answered.notify_all();
    return true;
}

void PulseSoundInput::_interrupt(const PXError &error)
{
    if (_answer(PXFail(error)) || !_isFlowing.exchange(false))
        return;
    BRLog(BRLogWarning, error.description);
    _delegate->soundInputWasInterrupted(error);
}

void PulseSoundInput::serverDidCome(pa_context &context)
{
    _context = &context;
    _look();
}

void PulseSoundInput::serverDidTell(pa_subscription_event_type_t)
{
    if (!_stream)
        _lookAt = std::min(_lookAt, PXCurrentHostTime() + kBetweenLooks);
}

std::uint64_t PulseSoundInput::eventsWereHandled()
{
    if (std::exchange(_streamHasEnded, false)) {
        _stream.reset();
        _lookAt = PXCurrentHostTime() + kLookAgainAfter;
    }
    if (!_stream && !_question && PXCurrentHostTime() >= _lookAt)
        _look();
    return _question ? PulseMainLoop::kNever : _lookAt;
}

void PulseSoundInput::contextWillEnd()
{
    _question.reset();
    _stream.reset();
    _streamHasEnded = false;
    _lookAt = PulseMainLoop::kNever;
    _context = nullptr;
}

void PulseSoundInput::serverDidGo(const PXError &error)
{
    _interrupt(error);
}

void PulseSoundInput::_look()
{
    _lookAt = PulseMainLoop::kNever;
    _found.reset();
    _question.reset(pa_context_get_source_info_list(
        _context,
        [](pa_context *, const pa_source_info *info, int end, void *self) noexcept {
            auto &input = *static_cast<PulseSoundInput *>(self);
            if (end != 0)
                input._didLook();
            else if (PulseSource source(*info); source.uid() == input._uid)
                input._found = std::move(source);
        },
        this));
}

void PulseSoundInput::_didLook()
{
    PulseForget(_question);
    if (!_found) {
        _interrupt(PulseError::noDevice(u"input"_s, _uid));
        return;
    }
    auto stream = PulseRecordStream::open(*_context, *_found, _format, *this);
    if (stream)
        _stream = *std::move(stream);
    else
        streamDidEnd(stream.error());
}

void PulseSoundInput::streamDidBegin()
{
    // Later ones say nothing: what goes on, goes on with the first samples.
    _answer({});
}

void PulseSoundInput::streamDidOutputBuffer(const PXSoundBuffer &buffer)
{
    // What is left of a longer fragment, or came after a move.
    if (_isStopping || _streamHasEnded)
        return;
    if (!_isFlowing.exchange(true))
        BRLog(BRLogInfo, u"Recording from \"%1\" goes on"_s.arg(_description));
    _delegate->soundInputDidOutputBuffer(buffer);
}

void PulseSoundInput::streamWasSuspended()
{
    _interrupt(PulseError::suspended(_description));
}

void PulseSoundInput::streamDidLoseSamples()
{
    if (_isStopping || !_isFlowing)
        return;
    BRLog(BRLogInfo, u"Samples from \"%1\" were lost"_s.arg(_description));
    _delegate->soundInputDidLoseSamples();
}

void PulseSoundInput::streamDidEnd(const PXError &error)
{
    _streamHasEnded = true;
    _interrupt(error);
}
