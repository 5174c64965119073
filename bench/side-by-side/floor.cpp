// tolvane-bench-floor FILE: the least that a lossless recorder of changed rectangles has to do.
// It waits for damage, takes it, copies those pixels, compresses each rectangle with LZO1X-1 and
// writes, at most thirty times a second; no cursor, no threads, no safety. What a real recorder
// costs more than this is what its features cost. SIGINT or SIGTERM ends it.

#include "bench/side-by-side/BenchScreen.h"
#include "bench/side-by-side/FloorFile.h"

#include <fcntl.h>
#include <lzo/lzo1x.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

namespace {

constexpr std::int64_t kFrameNs = 33'333'333;
/// What it may be early, so that an update that is not quite on time is not put off.
constexpr std::int64_t kEarlyNs = 3'000'000;

std::atomic<bool> stopWasAsked = false;
static_assert(std::atomic<bool>::is_always_lock_free, "it is set by a signal handler");

class Floor final {
public:
    explicit Floor(const char *path)
        : _picture(_screen, _screen.width(), _screen.height()),
          _context(_screen.copyingContext()),
          _file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)),
          _workMemory(LZO1X_1_MEM_COMPRESS),
          _packed(static_cast<std::size_t>(_screen.width())
                  * static_cast<std::size_t>(_screen.height()) * 4)
          // A frame's rectangles do not overlap, so their pixels are at most the screen's; beyond
          // them each costs its record and what LZO adds to bytes that do not shrink.
          ,
          _output(_packed.size() * 2 + 1024UL * 1024)
    {
        if (_file < 0)
            failBench(std::string("cannot write ") + path);
        _startDamage();
        const FloorHeader header = {kFloorMagic, static_cast<std::uint32_t>(_screen.width()),
                                    static_cast<std::uint32_t>(_screen.height())};
        _append(&header, sizeof header);
        _flush();
    }
    ~Floor() { close(_file); }
    Floor(const Floor &) = delete;
    Floor &operator=(const Floor &) = delete;

    /// Returns when there is an event, or one of the signals came, which `unblocked` lets in.
    void wait(const sigset_t &unblocked)
    {
        _readEvents();
        pollfd socket = {xcb_get_file_descriptor(_screen.connection()), POLLIN, 0};
        if (!_isDamaged)
            static_cast<void>(ppoll(&socket, 1, nullptr, &unblocked));
    }

    void tick()
    {
        _readEvents();
        if (std::exchange(_isDamaged, false))
            _recordFrame();
    }

private:
    void _readEvents()
    {
        while (auto *event = xcb_poll_for_event(_screen.connection())) {
            _isDamaged = true; // Nothing else was asked for.
            std::free(event);
        }
        if (xcb_connection_has_error(_screen.connection()) != 0)
            failBench("the display has gone");
    }

    void _startDamage()
    {
        auto *connection = _screen.connection();
        std::free(xcb_damage_query_version_reply(
            connection, xcb_damage_query_version(connection, 1, 1), nullptr));
        std::free(xcb_xfixes_query_version_reply(
            connection, xcb_xfixes_query_version(connection, 5, 0), nullptr));
        _damage = xcb_generate_id(connection);
        _region = xcb_generate_id(connection);
        xcb_xfixes_create_region(connection, _region, 0, nullptr);
        xcb_damage_create(connection, _damage, _screen.root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        _screen.sync();
    }

    void _recordFrame()
    {
        auto *connection = _screen.connection();
        const FloorFrame unfinished = {monotonicNs(), 0, 0};
        xcb_damage_subtract(connection, _damage, XCB_NONE, _region);
        const PXHandle<xcb_xfixes_fetch_region_reply_t, std::free> reply(
            xcb_xfixes_fetch_region_reply(connection, xcb_xfixes_fetch_region(connection, _region),
                                          nullptr));
        if (!reply)
            return;
        const std::span rects(
            xcb_xfixes_fetch_region_rectangles(reply.get()),
            static_cast<std::size_t>(xcb_xfixes_fetch_region_rectangles_length(reply.get())));
        for (const auto &rect : rects)
            xcb_copy_area(connection, _screen.root(), _picture.pixmap(), _context, rect.x, rect.y,
                          rect.x, rect.y, rect.width, rect.height);
        _screen.sync();
        FloorFrame frame = unfinished;
        frame.rectangleCount = static_cast<std::uint32_t>(rects.size());
        _append(&frame, sizeof frame);
        for (const auto &rect : rects)
            _compress(rect);
        _flush();
    }

    void _compress(const xcb_rectangle_t &rect)
    {
        const std::size_t rowBytes = rect.width * 4UL;
        const auto *source = reinterpret_cast<const unsigned char *>(_picture.row(rect.y) + rect.x);
        if (rect.width != _picture.width()) {
            unsigned char *packed = _packed.data();
            for (int y = 0; y < rect.height; ++y, packed += rowBytes)
                std::memcpy(packed, _picture.row(rect.y + y) + rect.x, rowBytes);
            source = _packed.data();
        }
        lzo_uint compressedBytes = 0;
        lzo1x_1_compress(source, rowBytes * rect.height, _output.data() + _used + sizeof(FloorRect),
                         &compressedBytes, _workMemory.data());
        const FloorRect record = {rect.x, rect.y, rect.width, rect.height,
                                  static_cast<std::uint32_t>(compressedBytes)};
        _append(&record, sizeof record);
        _used += compressedBytes;
    }

    void _append(const void *bytes, std::size_t count)
    {
        std::memcpy(_output.data() + _used, bytes, count);
        _used += count;
    }

    void _flush()
    {
        if (write(_file, _output.data(), _used) != static_cast<ssize_t>(_used))
            failBench("the recording could not be written");
        _used = 0;
    }

    BenchScreen _screen;
    SharedPicture _picture;
    xcb_gcontext_t _context;
    int _file;
    xcb_damage_damage_t _damage = XCB_NONE;
    xcb_xfixes_region_t _region = XCB_NONE;
    std::vector<unsigned char> _workMemory;
    std::vector<unsigned char> _packed;
    std::vector<unsigned char> _output;
    std::size_t _used = 0;
    bool _isDamaged = false;
};

void askToStop(int)
{
    stopWasAsked = true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2)
        failBench("usage: tolvane-bench-floor FILE");
    if (lzo_init() != LZO_E_OK)
        failBench("the LZO library does not start");
    struct sigaction action = {};
    action.sa_handler = askToStop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // They come only where it waits, so none is lost between the question and the wait.
    sigset_t stops;
    sigset_t unblocked;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stops, &unblocked);

    Floor floor(argv[1]);
    while (!stopWasAsked) {
        floor.wait(unblocked);
        const std::int64_t due = monotonicNs() + kFrameNs - kEarlyNs;
        floor.tick();
        sleepUntilNs(due);
    }
    floor.tick();
    return 0;
}
