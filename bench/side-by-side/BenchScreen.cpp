#include "bench/side-by-side/BenchScreen.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

} // namespace

void failBench(const std::string &reason)
{
    static_cast<void>(std::fprintf(stderr, "tolvane-bench: %s\n", reason.c_str()));
    std::exit(1);
}

void closeBenchFile(std::FILE *file)
{
    static_cast<void>(std::fclose(file));
}

std::int64_t monotonicNs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

bool sleepUntilNs(std::int64_t due)
{
    const timespec when = {due / kNsPerSecond, due % kNsPerSecond};
    return clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr) != EINTR;
}

BenchScreen::BenchScreen()
{
    int screenNumber = 0;
    _connection.reset(xcb_connect(nullptr, &screenNumber));
    if (xcb_connection_has_error(_connection.get()) != 0)
        failBench("cannot open the display of $DISPLAY");
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(_connection.get()));
    for (; screenNumber > 0; --screenNumber)
        xcb_screen_next(&screens);
    _screen = screens.data;
    if (_screen->root_depth != 24)
        failBench("the display has no depth of 24 bits");
}

xcb_window_t BenchScreen::mapWindow(const PXPixelRect &place, xcb_pixmap_t background) const
{
    const xcb_window_t window = xcb_generate_id(connection());
    const std::array<std::uint32_t, 2> values = {background, 1};
    xcb_create_window(connection(), depth(), window, root(), static_cast<std::int16_t>(place.x),
                      static_cast<std::int16_t>(place.y), static_cast<std::uint16_t>(place.width),
                      static_cast<std::uint16_t>(place.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      _screen->root_visual, XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT,
                      values.data());
    xcb_map_window(connection(), window);
    sync();
    return window;
}

xcb_gcontext_t BenchScreen::copyingContext() const
{
    const xcb_gcontext_t context = xcb_generate_id(connection());
    const std::array<std::uint32_t, 2> values = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_gc(connection(), context, root(), XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES,
                  values.data());
    return context;
}

void BenchScreen::sync() const
{
    std::free(xcb_get_input_focus_reply(connection(), xcb_get_input_focus(connection()), nullptr));
}

SharedPicture::SharedPicture(const BenchScreen &screen, int width, int height)
    : _width(width), _height(height)
{
    const std::size_t bytes
        = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (id < 0)
        failBench("no shared memory for a picture");
    void *address = shmat(id, nullptr, 0);
    const xcb_shm_seg_t segment = xcb_generate_id(screen.connection());
    const auto attached
        = xcb_shm_attach_checked(screen.connection(), segment, static_cast<std::uint32_t>(id), 0);
    const PXHandle<xcb_generic_error_t, std::free> error(
        xcb_request_check(screen.connection(), attached));
    // Both sides are attached or never will be: a crash from here on leaves no segment behind.
    shmctl(id, IPC_RMID, nullptr);
    if (error)
        failBench("the display cannot share memory with this program");
    _pixels = static_cast<std::uint32_t *>(address);
    _pixmap = xcb_generate_id(screen.connection());
    xcb_shm_create_pixmap(screen.connection(), _pixmap, screen.root(),
                          static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height),
                          screen.depth(), segment, 0);
}

void SharedPicture::stampCounter(const CounterPlace &place, std::uint32_t number) const
{
    const auto cells = counterCells(number);
    for (int y = 0; y < place.cellHeight; ++y) {
        std::uint32_t *pixel = row(place.y + y) + place.x;
        for (const bool isWhite : cells)
            pixel = std::fill_n(pixel, place.cellWidth, isWhite ? 0xffffffU : 0U);
    }
}
