// Plays a click about every second and shows a white flash at the instant at which it is heard:
// what a recording of both is measured by. Usage: tolvane-clicks SECONDS [SINK]. A flash that would
// be late, because the machine had something else to do, is left out.

#include <pulse/pulseaudio.h>
#include <xcb/xcb.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace {

constexpr int kRate = 48000;
// No multiple of a frame's length at any rate, so that flashes fall into every phase of a frame.
constexpr int kPeriodFrames = 48411;
constexpr int kClickFrames = 480; ///< 10 ms of a 1 kHz tone that begins at full strength.
constexpr double kFlashSeconds = 0.2;
constexpr double kLate = 0.003; ///< Seconds.
constexpr std::uint32_t kLatencyUs = 20'000;

double hostTime()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void sleepUntil(double time)
{
    const auto seconds = static_cast<time_t>(time);
    const timespec until
        = {seconds, static_cast<long>((time - static_cast<double>(seconds)) * 1e9)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) { }
}

/// A black window that can turn white.
class Flash {
public:
    Flash()
    {
        if (xcb_connection_has_error(_connection.get()))
            throw std::runtime_error("cannot open the display");
        const xcb_screen_t *screen
            = xcb_setup_roots_iterator(xcb_get_setup(_connection.get())).data;
        _white = screen->white_pixel;
        _black = screen->black_pixel;
        _window = xcb_generate_id(_connection.get());
        const std::uint32_t values[] = {_black, 1};
        xcb_create_window(_connection.get(), XCB_COPY_FROM_PARENT, _window, screen->root, 0, 0, 200,
                          200, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(_connection.get(), _window);
        show(false);
    }

    /// Returns when the server has painted it.
    void show(bool isOn)
    {
        const std::uint32_t value = isOn ? _white : _black;
        xcb_change_window_attributes(_connection.get(), _window, XCB_CW_BACK_PIXEL, &value);
        xcb_clear_area(_connection.get(), 0, _window, 0, 0, 0, 0);
        std::free(xcb_get_input_focus_reply(_connection.get(),
                                            xcb_get_input_focus(_connection.get()), nullptr));
    }

private:
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> _connection{
        xcb_connect(nullptr, nullptr), xcb_disconnect};
    xcb_window_t _window = 0;
    std::uint32_t _white = 0;
    std::uint32_t _black = 0;
};

/// Plays clicks until it is destroyed.
class ClickTrack {
public:
    explicit ClickTrack(const char *sink) : _loop(pa_threaded_mainloop_new())
    {
        pa_threaded_mainloop_lock(_loop);
        pa_threaded_mainloop_start(_loop);
        _context = pa_context_new(pa_threaded_mainloop_get_api(_loop), "clicks");
        pa_context_set_state_callback(
            _context, [](pa_context *, void *loop) { wake(loop); }, _loop);
        pa_context_connect(_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
        while (pa_context_get_state(_context) != PA_CONTEXT_READY) {
            if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(_context)))
                throw std::runtime_error("cannot reach the sound server");
            pa_threaded_mainloop_wait(_loop);
        }
        const pa_sample_spec format = {PA_SAMPLE_FLOAT32NE, kRate, 1};
        const pa_buffer_attr attributes = {UINT32_MAX, kRate / 1000 * kLatencyUs / 1000 * 4,
                                           UINT32_MAX, UINT32_MAX, UINT32_MAX};
        _stream = pa_stream_new(_context, "clicks", &format, nullptr);
        pa_stream_set_write_callback(
            _stream,
            [](pa_stream *, std::size_t bytes, void *self) {
                static_cast<ClickTrack *>(self)->write(bytes);
            },
            this);
        pa_stream_set_latency_update_callback(
            _stream, [](pa_stream *, void *loop) { wake(loop); }, _loop);
        pa_stream_connect_playback(_stream, sink, &attributes,
                                   static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY
                                                                  | PA_STREAM_AUTO_TIMING_UPDATE
                                                                  | PA_STREAM_INTERPOLATE_TIMING),
                                   nullptr, nullptr);
        pa_threaded_mainloop_unlock(_loop);
    }
    ~ClickTrack()
    {
        pa_threaded_mainloop_stop(_loop);
        pa_stream_unref(_stream);
        pa_context_unref(_context);
        pa_threaded_mainloop_free(_loop);
    }
    ClickTrack(const ClickTrack &) = delete;
    ClickTrack &operator=(const ClickTrack &) = delete;

    /// The host time at which the stream plays its second `seconds`, as the server sees it now.
    double whenHeard(double seconds)
    {
        pa_threaded_mainloop_lock(_loop);
        pa_usec_t played = 0;
        while (pa_stream_get_time(_stream, &played) < 0)
            pa_threaded_mainloop_wait(_loop);
        const double now = hostTime();
        pa_threaded_mainloop_unlock(_loop);
        return now + seconds - static_cast<double>(played) * 1e-6;
    }

private:
    static void wake(void *loop)
    {
        pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop *>(loop), 0);
    }
    void write(std::size_t bytes)
    {
        std::vector<float> samples(bytes / sizeof(float));
        for (float &sample : samples) {
            const auto place = static_cast<int>(_frame++ % kPeriodFrames);
            // Cosine: full strength from the first sample on.
            sample = place < kClickFrames
                ? static_cast<float>(0.8 * std::cos(2 * std::numbers::pi * 1000 * place / kRate))
                : 0.0F;
        }
        pa_stream_write(_stream, samples.data(), samples.size() * sizeof(float), nullptr, 0,
                        PA_SEEK_RELATIVE);
    }

    pa_threaded_mainloop *_loop;
    pa_context *_context = nullptr;
    pa_stream *_stream = nullptr;
    std::int64_t _frame = 0;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        (void)std::fputs("usage: tolvane-clicks SECONDS [SINK]\n", stderr);
        return 2;
    }
    try {
        const long seconds = std::strtol(argv[1], nullptr, 10);
        Flash flash;
        ClickTrack clicks(argc > 2 ? argv[2] : nullptr);
        // The first two while the server finds out how late it is.
        for (long click = 2; click < seconds; ++click) {
            const double time = static_cast<double>(click) * kPeriodFrames / kRate;
            sleepUntil(clicks.whenHeard(time - 0.1));
            const double due = clicks.whenHeard(time);
            sleepUntil(due);
            if (hostTime() - due > kLate)
                continue;
            flash.show(true);
            sleepUntil(due + kFlashSeconds);
            flash.show(false);
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "tolvane-clicks: %s\n", error.what());
        return 1;
    }
    return 0;
}
