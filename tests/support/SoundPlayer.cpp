#include "tests/support/SoundPlayer.h"

#include "foundation/PXClock.h"

#include <pulse/pulseaudio.h>

#include <cmath>
#include <future>
#include <numbers>
#include <stdexcept>
#include <vector>

/// All of libpulse that plays; the player's thread's.
struct SoundPlayer::Stream {
    Stream(const QString &server, const QString &sink, Signal samples, const Format &wanted,
           std::atomic<std::int64_t> &startTime)
        : sinkName(sink.toUtf8()),
          signal(std::move(samples)),
          format(wanted),
          start(startTime),
          loop(pa_mainloop_new()),
          context(pa_context_new(pa_mainloop_get_api(loop), "SoundPlayer"))
    {
        pa_context_set_state_callback(
            context,
            [](pa_context *, void *self) { static_cast<Stream *>(self)->contextChanged(); }, this);
        pa_context_connect(context, server.toUtf8().constData(), PA_CONTEXT_NOAUTOSPAWN, nullptr);
    }
    ~Stream()
    {
        if (stream) {
            pa_stream_set_state_callback(stream, nullptr, nullptr);
            pa_stream_set_write_callback(stream, nullptr, nullptr);
            pa_stream_disconnect(stream);
            pa_stream_unref(stream);
        }
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
        pa_mainloop_free(loop);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    void contextChanged()
    {
        hasFailed = hasFailed || !PA_CONTEXT_IS_GOOD(pa_context_get_state(context));
        if (pa_context_get_state(context) != PA_CONTEXT_READY)
            return;
        const pa_sample_spec spec = {PA_SAMPLE_FLOAT32NE, static_cast<unsigned>(format.sampleRate),
                                     static_cast<std::uint8_t>(format.channels)};
        pa_channel_map map;
        pa_channel_map_init_extend(&map, spec.channels, PA_CHANNEL_MAP_DEFAULT);
        if (!format.channelMap.isEmpty())
            pa_channel_map_parse(&map, format.channelMap.toLatin1().constData());
        stream = pa_stream_new(context, "signal", &spec, &map);
        pa_stream_set_state_callback(
            stream,
            [](pa_stream *s, void *self) {
                if (!PA_STREAM_IS_GOOD(pa_stream_get_state(s)))
                    static_cast<Stream *>(self)->hasFailed = true;
            },
            this);
        pa_stream_set_write_callback(
            stream,
            [](pa_stream *, std::size_t bytes, void *self) {
                static_cast<Stream *>(self)->write(bytes);
            },
            this);
        const auto any = static_cast<std::uint32_t>(-1);
        const pa_buffer_attr buffer = {any,
                                       static_cast<std::uint32_t>(pa_usec_to_bytes(
                                           static_cast<pa_usec_t>(format.latencyMs) * 1000, &spec)),
                                       any, any, any};
        const bool isToDefault = sinkName.isEmpty();
        pa_stream_connect_playback(
            stream, isToDefault ? nullptr : sinkName.constData(), &buffer,
            static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_START_UNMUTED
                                           | (isToDefault ? 0 : PA_STREAM_DONT_MOVE)),
            nullptr, nullptr);
    }

    void write(std::size_t bytes)
    {
        std::vector<float> samples;
        for (std::size_t n = bytes / 4 / static_cast<std::size_t>(format.channels); n > 0; --n) {
            for (int channel = 0; channel < format.channels; ++channel)
                samples.push_back(signal(written, channel));
            ++written;
        }
        pa_stream_write(stream, samples.data(), samples.size() * 4, nullptr, 0, PA_SEEK_RELATIVE);
        // Just when it takes samples, PipeWire's account is exact.
        if (auto *timing = pa_stream_update_timing_info(
                stream,
                [](pa_stream *, int success, void *self) {
                    if (success)
                        static_cast<Stream *>(self)->noteTiming();
                },
                this))
            pa_operation_unref(timing);
    }

    void noteTiming()
    {
        const pa_timing_info *info = pa_stream_get_timing_info(stream);
        if (!info || !info->playing)
            return;
        const std::int64_t heard
            = info->read_index / 4 / format.channels * 1'000'000'000 / format.sampleRate
            - static_cast<std::int64_t>(info->sink_usec) * 1000;
        start = static_cast<std::int64_t>(PXCurrentHostTime())
            - static_cast<std::int64_t>(pa_timeval_age(&info->timestamp)) * 1000 - heard;
    }

    QByteArray sinkName;
    Signal signal;
    Format format;
    std::atomic<std::int64_t> &start;
    pa_mainloop *loop;
    pa_context *context;
    pa_stream *stream = nullptr;
    std::int64_t written = 0;
    bool hasFailed = false;
};

SoundPlayer::SoundPlayer(const QString &server, const QString &sink, Signal signal)
    : SoundPlayer(server, sink, std::move(signal), Format())
{
}

SoundPlayer::SoundPlayer(const QString &server, const QString &sink, Signal signal,
                         const Format &format)
    : _format(format)
{
    std::promise<bool> plays;
    auto doesPlay = plays.get_future();
    _thread = std::jthread([&, plays = std::move(plays)](const std::stop_token &stop) mutable {
        Stream stream(server, sink, std::move(signal), _format, _start);
        const std::stop_callback wake(stop, [&] { pa_mainloop_wakeup(stream.loop); });
        while (_start == 0 && !stream.hasFailed)
            pa_mainloop_iterate(stream.loop, 1, nullptr);
        plays.set_value(!stream.hasFailed);
        while (!stop.stop_requested() && !stream.hasFailed)
            pa_mainloop_iterate(stream.loop, 1, nullptr);
    });
    if (!doesPlay.get())
        throw std::runtime_error("cannot play to " + sink.toStdString());
}

SoundPlayer::~SoundPlayer() = default;

std::int64_t SoundPlayer::hostTimeOfFrame(std::int64_t frame) const
{
    return _start + frame * 1'000'000'000 / _format.sampleRate;
}

SoundPlayer::Signal toneOf(double frequency, int sampleRate)
{
    return [step = 2 * std::numbers::pi * frequency / sampleRate](std::int64_t frame, int) {
        return static_cast<float>(0.5 * std::sin(step * static_cast<double>(frame)));
    };
}

SoundPlayer::Signal clicks(int sampleRate)
{
    return [sampleRate](std::int64_t frame, int) {
        return frame % (sampleRate / 2) < sampleRate / 1000 ? 0.8F : 0.0F;
    };
}
