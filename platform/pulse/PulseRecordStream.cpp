#include "platform/pulse/PulseRecordStream.h"

#include "platform/pulse/PulseError.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
/// How often the server sends. Nobody waits for the sound: 50 cost a third more, and 10 would lose
/// more of the end than is gained.
constexpr int kFragmentsPerSecond = 20;
/// What the delegate gets at a time, so that who cuts the sound at an instant cuts it there.
constexpr int kPiecesPerSecond = 500;

int framesPerPiece(const PXSoundFormat &format)
{
    return std::max(format.sampleRate / kPiecesPerSecond, 1);
}

std::size_t bytesPerPiece(const PXSoundFormat &format)
{
    return static_cast<std::size_t>(framesPerPiece(format))
        * static_cast<std::size_t>(format.bytesPerFrame());
}

/// Without the overflow that multiplying first brings after a day.
std::int64_t nanosecondsOf(std::int64_t frames, std::int64_t sampleRate)
{
    return frames / sampleRate * kNanosecondsPerSecond
        + frames % sampleRate * kNanosecondsPerSecond / sampleRate;
}

/// How long ago that was on the wall clock, which somebody may set at any time.
std::int64_t nanosecondsSince(const timeval &time)
{
    return std::clamp<std::int64_t>(static_cast<std::int64_t>(pa_timeval_age(&time)) * 1000, 0,
                                    kNanosecondsPerSecond);
}

} // namespace

PXExpected<std::unique_ptr<PulseRecordStream>>
PulseRecordStream::open(pa_context &context, const PulseSource &source,
                        const PulseSoundFormat &format, Delegate &delegate)
{
    std::unique_ptr<PulseRecordStream> result(
        new PulseRecordStream(context, source, format, delegate));
    if (result->_stream && result->_connect())
        return result;
    const int code = pa_context_errno(&context);
    BRLog(BRLogError, "pa_stream_connect_record() failed with error %i", code);
    return PXFail(
        PulseError::refused(u"Could not record from \"%1\""_s.arg(source.description), code));
}

PulseRecordStream::PulseRecordStream(pa_context &context, const PulseSource &source,
                                     const PulseSoundFormat &format, Delegate &delegate)
    : _sourceName(source.name),
      _description(source.description),
      _format(format.format),
      _delegate(delegate),
      _silence(bytesPerPiece(format.format))
{
    const pa_sample_spec spec = format.sampleSpec();
    // Other recordings tell it by this from what other programs record.
    const PulseProperties properties(pa_proplist_new());
    pa_proplist_sets(properties.get(), kPulseRecordingProperty, "1");
    _stream.reset(pa_stream_new_with_proplist(&context, "Recording", &spec, &format.channelMap,
                                              properties.get()));
}

PulseRecordStream::~PulseRecordStream()
{
    if (!_stream)
        return;
    pa_stream_set_state_callback(_stream.get(), nullptr, nullptr);
    pa_stream_set_read_callback(_stream.get(), nullptr, nullptr);
    pa_stream_set_suspended_callback(_stream.get(), nullptr, nullptr);
    pa_stream_set_moved_callback(_stream.get(), nullptr, nullptr);
    pa_stream_disconnect(_stream.get());
}

void PulseRecordStream::_setCallbacks()
{
    pa_stream_set_state_callback(
        _stream.get(),
        [](pa_stream *, void *self) noexcept {
            static_cast<PulseRecordStream *>(self)->_stateDidChange();
        },
        this);
    pa_stream_set_read_callback(
        _stream.get(),
        [](pa_stream *, std::size_t, void *self) noexcept {
            auto &stream = *static_cast<PulseRecordStream *>(self);
            // Each second time is enough to stay in step, and a question wakes both sides.
            if (++stream._fragments % 2 == 0 || !stream._clock.isSet())
                stream._askForTiming();
            stream._read();
        },
        this);
    pa_stream_set_suspended_callback(
        _stream.get(),
        [](pa_stream *, void *self) noexcept {
            static_cast<PulseRecordStream *>(self)->_suspensionDidChange();
        },
        this);
    pa_stream_set_moved_callback(
        _stream.get(),
        [](pa_stream *, void *self) noexcept {
            auto &stream = *static_cast<PulseRecordStream *>(self);
            stream._delegate.streamDidEnd(
                PulseError::noDevice(u"input"_s, QString::fromUtf8(stream._sourceName)));
        },
        this);
}

bool PulseRecordStream::_connect()
{
    _setCallbacks();
    constexpr auto kServersChoice = static_cast<std::uint32_t>(-1);
    // The server keeps as much as it can for whoever is slow to read.
    const pa_buffer_attr buffer
        = {kServersChoice, kServersChoice, kServersChoice, kServersChoice,
           static_cast<std::uint32_t>(std::max(_format.sampleRate / kFragmentsPerSecond, 1)
                                      * _format.bytesPerFrame())};
    return pa_stream_connect_record(
               _stream.get(), _sourceName.constData(), &buffer,
               static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE))
        == 0;
}

void PulseRecordStream::_stateDidChange()
{
    const pa_stream_state_t state = pa_stream_get_state(_stream.get());
    if (state == PA_STREAM_READY) {
        _delegate.streamDidBegin();
    } else if (!PA_STREAM_IS_GOOD(state)) {
        pa_context *context = pa_stream_get_context(_stream.get());
        _delegate.streamDidEnd(
            PA_CONTEXT_IS_GOOD(pa_context_get_state(context))
                ? PulseError::refused(u"The sound input \"%1\" has stopped"_s.arg(_description),
                                      pa_context_errno(context))
                : PulseError::lost());
    }
}

void PulseRecordStream::_suspensionDidChange()
{
    if (pa_stream_is_suspended(_stream.get()) <= 0)
        return;
    // What comes after it was recorded later than the samples before would tell.
    _clock.clear();
    _delegate.streamWasSuspended();
}

void PulseRecordStream::_read()
{
    // Until it is known when they were heard, libpulse keeps the samples.
    while (_clock.isSet() && pa_stream_readable_size(_stream.get()) > 0) {
        const void *data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(_stream.get(), &data, &bytes) < 0 || bytes == 0)
            return;
        _deliver(static_cast<const std::byte *>(data), bytes);
        pa_stream_drop(_stream.get());
    }
}

void PulseRecordStream::_deliver(const std::byte *data, std::size_t bytes)
{
    const auto frameSize = static_cast<std::size_t>(_format.bytesPerFrame());
    const std::int64_t start = _clock.start();
    bytes -= bytes % frameSize;
    while (bytes > 0) {
        const std::size_t size = std::min(bytes, _silence.size());
        // A hole in the recording has a length but no data.
        const std::byte *samples = data ? data : _silence.data();
        const std::int64_t time = start + nanosecondsOf(_position, _format.sampleRate);
        const auto frames = static_cast<int>(size / frameSize);
        _delegate.streamDidOutputBuffer(
            {{samples, size}, frames, static_cast<std::uint64_t>(std::max<std::int64_t>(time, 1))});
        _position += frames;
        bytes -= size;
        if (data)
            data += size;
    }
}

void PulseRecordStream::_askForTiming()
{
    if (_timing)
        return;
    _timing.reset(pa_stream_update_timing_info(
        _stream.get(),
        [](pa_stream *, int success, void *self) noexcept {
            auto &stream = *static_cast<PulseRecordStream *>(self);
            PulseForget(stream._timing);
            if (success)
                stream._timingDidArrive();
        },
        this));
}

void PulseRecordStream::_timingDidArrive()
{
    const pa_timing_info *info = pa_stream_get_timing_info(_stream.get());
    if (!info)
        return;
    const std::int64_t frameSize = _format.bytesPerFrame();
    const auto now = static_cast<std::int64_t>(PXCurrentHostTime());
    // How much had been heard when the server wrote this: what it has captured, what is still
    // between the microphone and it, less what it has captured of an output in advance.
    const std::int64_t captured = nanosecondsOf(info->write_index / frameSize, _format.sampleRate);
    const std::int64_t delay = (static_cast<std::int64_t>(info->source_usec)
                                - static_cast<std::int64_t>(info->sink_usec))
        * 1000;
    if (_clock.note(now - nanosecondsSince(info->timestamp) - captured - delay))
        _delegate.streamDidLoseSamples();
    _position = info->read_index / frameSize;
    _read();
}
