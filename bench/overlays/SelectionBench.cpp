#include "tests/support/Hand.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/TestConnection.h"
#include "tests/support/VirtualDisplay.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>

#include <sched.h>
#include <unistd.h>
#include <xcb/damage.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

// How soon the screen is frozen after `tolvane select`, and how smoothly a rectangle follows the
// hand: `tolvane_selection_bench [TOLVANE]`. On private displays, everything on one core for the
// drags.

using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr double kFade = 0.3; ///< Seconds.
constexpr int kOpenings = 9;
constexpr double kDragSeconds = 5;
constexpr std::chrono::milliseconds kHandInterval(8); ///< As a mouse reports.

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// User and system time of a process, seconds.
double cpuOf(qint64 processId)
{
    std::ifstream file("/proc/" + std::to_string(processId) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    const QStringList fields = QString::fromStdString(text.substr(text.rfind(')') + 2)).split(u' ');
    return (fields.at(11).toDouble() + fields.at(12).toDouble())
        / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// `tolvane select` on a display, with settings of its own.
class Selection final {
public:
    Selection(const QString &program, const VirtualDisplay &display, const QString &rect)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DISPLAY"_s, display.name());
        environment.insert(u"XDG_CONFIG_HOME"_s, _settings.path());
        environment.remove(u"WAYLAND_DISPLAY"_s);
        _process.setProcessEnvironment(environment);
        QProcess defaults;
        defaults.setProcessEnvironment(environment);
        defaults.start(program, {u"defaults"_s, u"write"_s, u"screenSelectionRect"_s, rect});
        if (!defaults.waitForFinished() || defaults.exitCode() != 0)
            throw std::runtime_error("tolvane defaults failed");
        start = Clock::now();
        _process.start(program, {u"select"_s});
        _process.waitForStarted();
    }
    ~Selection()
    {
        _process.terminate();
        _process.waitForFinished();
    }
    [[nodiscard]] qint64 processId() const { return _process.processId(); }

    Clock::time_point start;

private:
    QTemporaryDir _settings;
    QProcess _process;
};

/// Of the screen's upper left corner, 0 to 255.
int brightness(const TestConnection &connection)
{
    const TestReply<xcb_get_image_reply_t> reply(
        xcb_get_image_reply(connection.get(),
                            xcb_get_image(connection.get(), XCB_IMAGE_FORMAT_Z_PIXMAP,
                                          connection.root(), 2, 2, 1, 1, ~0U),
                            nullptr));
    return reply ? xcb_get_image_data(reply.get())[1] : -1;
}

double waitFor(const TestConnection &connection, const Selection &selection, bool (*isThere)(int))
{
    while (!isThere(brightness(connection))) {
        if (secondsSince(selection.start) > 20)
            throw std::runtime_error("the selection does not come");
        // The server has other things to do.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return secondsSince(selection.start);
}

struct Opening {
    double firstChange = 0; ///< Seconds from the command on.
    double frozen = 0;
};

Opening measureOpening(const QString &program, const VirtualDisplay &display)
{
    const PaintedWindow white(display, {0, 0, 1920, 1080}, 0xFFFFFF);
    const TestConnection connection(display.name());
    while (brightness(connection) != 255) { }
    const Selection selection(program, display, u"{{400, 300}, {600, 400}}"_s);
    Opening opening;
    opening.firstChange = waitFor(connection, selection, [](int value) { return value < 255; });
    opening.frozen = waitFor(connection, selection, [](int value) { return value <= 128; });
    return opening;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void reportOpenings(const QString &program, VirtualDisplay::Compositor compositor, const char *name)
{
    VirtualDisplay::Options options;
    options.hasWindowManager = true;
    options.compositor = compositor;
    const VirtualDisplay display(1920, 1080, options);
    std::vector<double> first;
    std::vector<double> frozen;
    for (int i = 0; i < kOpenings; ++i) {
        const Opening opening = measureOpening(program, display);
        first.push_back(opening.firstChange * 1000);
        frozen.push_back((opening.frozen - kFade) * 1000);
    }
    std::printf("open, %-13s first change %4.0f ms (worst %4.0f), frozen but for the fade %4.0f ms "
                "(worst %4.0f)\n",
                name, median(first), *std::max_element(first.begin(), first.end()), median(frozen),
                *std::max_element(frozen.begin(), frozen.end()));
}

/// The window that lies on all others.
xcb_window_t topWindow(const TestConnection &connection)
{
    const TestReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(
        connection.get(), xcb_query_tree(connection.get(), connection.root()), nullptr));
    const xcb_window_t *children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    for (int i = count - 1; i >= 0; --i) {
        const TestReply<xcb_get_geometry_reply_t> place(xcb_get_geometry_reply(
            connection.get(), xcb_get_geometry(connection.get(), children[i]), nullptr));
        if (place && place->width > 3000)
            return children[i];
    }
    throw std::runtime_error("no window covers the screen");
}

/// Counts how often a window is painted: each time, until it is asked for the next.
class UpdateCounter final {
public:
    UpdateCounter(const TestConnection &connection, xcb_window_t window) : _connection(connection)
    {
        xcb_connection_t *c = connection.get();
        const TestReply<xcb_damage_query_version_reply_t> version(
            xcb_damage_query_version_reply(c, xcb_damage_query_version(c, 1, 1), nullptr));
        _damage = xcb_generate_id(c);
        xcb_damage_create(c, _damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        xcb_damage_subtract(c, _damage, XCB_NONE, XCB_NONE);
        connection.sync();
        while (const TestReply<xcb_generic_event_t> old{xcb_poll_for_event(c)}) { }
    }
    /// Since the last time: whether it has been painted.
    bool hasUpdate() const
    {
        xcb_connection_t *c = _connection.get();
        bool found = false;
        while (const TestReply<xcb_generic_event_t> event{xcb_poll_for_event(c)})
            found = true;
        if (found) {
            xcb_damage_subtract(c, _damage, XCB_NONE, XCB_NONE);
            xcb_flush(c);
        }
        return found;
    }

private:
    const TestConnection &_connection;
    xcb_damage_damage_t _damage = 0;
};

void reportDrag(const QString &program, const VirtualDisplay &display, const char *name,
                const QString &rect, QPoint grab, double radius)
{
    const TestConnection connection(display.name());
    const Selection selection(program, display, rect);
    (void)waitFor(connection, selection, [](int value) { return value <= 128; });
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const Hand hand(display.name());
    hand.moveTo(grab);
    hand.press(Hand::LeftButton);
    const UpdateCounter counter(connection, topWindow(connection));
    const double tolvaneBefore = cpuOf(selection.processId());
    const double serverBefore = cpuOf(display.serverProcessId());
    const auto start = Clock::now();
    int updates = 0;
    int step = 0;
    for (auto next = start; secondsSince(start) < kDragSeconds; next += kHandInterval) {
        const double angle = ++step * 0.06;
        hand.moveTo(grab
                    + QPointF(radius * std::sin(angle), radius * (1 - std::cos(angle))).toPoint());
        std::this_thread::sleep_until(next);
        updates += counter.hasUpdate() ? 1 : 0;
    }
    const double seconds = secondsSince(start);
    std::printf("drag, %-13s %5.1f updates a second; CPU a second: tolvane %.2f, server %.2f\n",
                name, updates / seconds, (cpuOf(selection.processId()) - tolvaneBefore) / seconds,
                (cpuOf(display.serverProcessId()) - serverBefore) / seconds);
    hand.release(Hand::LeftButton);
}

void useOneCore()
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof one, &one);
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QString program = argc > 1 ? QString::fromLocal8Bit(argv[1])
                                     : QCoreApplication::applicationDirPath() + u"/tolvane"_s;
    reportOpenings(program, VirtualDisplay::Compositor::None, "plain");
    reportOpenings(program, VirtualDisplay::Compositor::XRender, "compositor");
    useOneCore(); // What is started from now on, too.
    const VirtualDisplay display(3840, 2160);
    PaintedWindow background(display, {0, 0, 3840, 2160}, 0xFFFFFF);
    std::mt19937 random(1); // NOLINT: the same picture in each run
    background.fillAtRandom(random, 200);
    background.fill({0, 0, 40, 40}, 0xFFFFFF);
    reportDrag(program, display, "moved", u"{{600, 400}, {1920, 1080}}"_s, {1500, 1000}, 300);
    reportDrag(program, display, "resized", u"{{600, 400}, {1920, 1080}}"_s, {2519, 684}, 300);
    reportDrag(program, display, "nearly all", u"{{100, 100}, {3600, 1900}}"_s, {3699, 164}, 60);
    return 0;
}
