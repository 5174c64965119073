#include "app/BRFactoryDefaults.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXNotificationCenter.h"
#include "input/BRApplication.h"
#include "overlays/BRScreenEventController.h"
#include "platform/x11/X11ScreenPlatform.h"
#include "tests/capture/RecordingSession.h"
#include "tests/support/Hand.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/VirtualDisplay.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <numbers>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

// How long a key takes to its glyph in the recording, how close a click's mark keeps to its curve
// there, and what many keys cost: `tolvane_input_bench`. On a private display, without and with a
// compositor; the recorder, what it shows and what is measured are one process.

using namespace Qt::StringLiterals;

namespace {

constexpr int kKeys = 30;
constexpr int kClicks = 10;
constexpr double kClickDuration = 0.6;
constexpr int kFlood = 2000;
constexpr std::chrono::milliseconds kFloodInterval(5);
constexpr QPoint kPlace = {200, 150};
constexpr double kFrame = 1.0 / 30;
constexpr int kF5 = 71;

/// CLOCK_MONOTONIC, seconds, as the recorder's host time.
double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

long residentKilobytes()
{
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * 4;
}

struct Owner final : BRApplicationDelegate {
    [[nodiscard]] bool isRecording() const override { return true; }
    void stopRecording() override { }
    void toggleCameraMode() override { }
    void activateIgnoringOtherApps() override { }
    [[nodiscard]] bool isWindowVisible() const override { return true; }
    void switchToPaneWithIdentifier(const QString &) override { }
    void displayWindow() override { }
};

/// A recording with everything shown, and a hand that works on a thread of its own meanwhile.
class Scene final {
public:
    explicit Scene(const VirtualDisplay &display)
        : _display(display),
          _platform(X11ScreenPlatform::open(display.name()).value()),
          _windowServer(_platform->makeWindowServer().value()),
          _application(*_platform, _owner, nullptr),
          _events(*_windowServer, _platform->mainDisplay(), _application,
                  [this] { return _session.recorder().currentScreenSelectionRect(); })
    {
        _events.setShowMouseClicks(true);
    }

    /// The frames, their times on the monotonic clock.
    std::vector<RecordedFrame> record(const std::function<void(const Hand &)> &work)
    {
        const Hand hand(_display.name());
        hand.moveTo(kPlace);
        auto options = _session.options();
        options.showCursor = false;
        options.screenSelectionRect = {0, 720 - 400, 640, 400};
        options.screenSelectionSize = options.screenSelectionRect.size();
        _events.displayScreenEventView();
        if (const auto started = _session.start(options); !started)
            throw std::runtime_error(PXErrorLine(started.error()).toStdString());
        std::atomic<bool> isDone = false;
        std::jthread worker([&] {
            work(hand);
            std::this_thread::sleep_for(std::chrono::seconds(1));
            isDone = true;
        });
        QTimer look;
        look.start(50);
        while (!isDone)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        _session.stop();
        _events.removeScreenEventView();
        auto frames = _session.frames();
        for (RecordedFrame &frame : frames)
            frame.timestamp += static_cast<double>(_session.hostTimeOfFirstFrame) / 1e9;
        return frames;
    }

private:
    const VirtualDisplay &_display;
    Owner _owner;
    RecordingSession _session{_display};
    const std::unique_ptr<PXScreenPlatform> _platform;
    const std::unique_ptr<PXWindowServer> _windowServer;
    BRApplication _application;
    BRScreenEventController _events;
};

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

void measureKeys(const VirtualDisplay &display, const char *name)
{
    std::vector<double> pressed;
    Scene scene(display);
    const auto frames = scene.record([&](const Hand &hand) {
        std::mt19937 random(3);
        for (int i = 0; i < kKeys; ++i) {
            // At any moment between two frames.
            std::this_thread::sleep_for(std::chrono::microseconds(1'200'000 + random() % 33'000));
            pressed.push_back(now());
            hand.type(kF5);
        }
    });
    std::vector<double> latencies;
    for (const double press : pressed) {
        const auto first
            = std::find_if(frames.begin(), frames.end(), [&](const RecordedFrame &frame) {
                  return frame.timestamp > press && !frame.rects.empty() && !frame.isKeyFrame;
              });
        if (first != frames.end())
            latencies.push_back((first->timestamp - press) * 1000);
    }
    std::printf("%s: key to screen, %zu of %d: median %.1f ms, worst %.1f ms\n", name,
                latencies.size(), kKeys, medianOf(latencies),
                *std::max_element(latencies.begin(), latencies.end()));
}

double diameterAt(double seconds)
{
    const double t = std::clamp(seconds / kClickDuration, 0.0, 1.0);
    return 8 + 20 * (1 - std::cos(std::numbers::pi / 2 * t));
}

/// The mark with its line: along the row and the column of its place, what is not the desktop's.
double diameterIn(const QImage &picture, QRgb desktop)
{
    const int low = qGray(desktop) + 6; // Its shadow is darker than the desktop.
    int first = INT_MAX;
    int last = -1;
    for (int x = kPlace.x() - 40; x < kPlace.x() + 40; ++x)
        if (qGray(picture.pixel(x, kPlace.y())) > low) {
            first = std::min(first, x);
            last = x;
        }
    return last < 0 ? 0 : last - first + 1 - 3;
}

void measureClicks(const VirtualDisplay &display, QRgb desktop, const char *name)
{
    std::vector<double> released;
    Scene scene(display);
    const auto frames = scene.record([&](const Hand &hand) {
        std::mt19937 random(4);
        for (int i = 0; i < kClicks; ++i) {
            std::this_thread::sleep_for(std::chrono::microseconds(1'300'000 + random() % 33'000));
            hand.press(Hand::LeftButton);
            released.push_back(now());
            hand.release(Hand::LeftButton);
        }
    });
    int within = 0;
    int all = 0;
    double worst = 0; // Pixels beyond what a frame's time explains.
    for (const double release : released)
        for (const RecordedFrame &frame : frames) {
            const double age = frame.timestamp - release;
            if (age < 0 || age > kClickDuration * 0.9)
                continue;
            const double diameter = diameterIn(frame.picture, desktop);
            if (diameter <= 0)
                continue; // Not there yet.
            const double beyond = std::max(
                {diameter - diameterAt(age) - 1, diameterAt(age - kFrame) - 1 - diameter, 0.0});
            worst = std::max(worst, beyond);
            within += beyond == 0 ? 1 : 0;
            ++all;
        }
    std::printf("%s: click marks: %d of %d frames within one frame and one pixel of the curve, "
                "the worst %.1f pixels beyond\n",
                name, within, all, worst);
}

void measureFlood(const VirtualDisplay &display, const char *name)
{
    int downs = 0;
    int ups = 0;
    const PXObservation observation = PXNotificationCenter::defaultCenter().addObserver(
        kBRExternalKeyboardEventNotification, nullptr,
        [&](const QString &, const void *, const QVariantMap &userInfo) {
            const auto event = userInfo.value(u"NSEvent"_s).value<PXKeyEvent>();
            downs += event.type == PXKeyEventType::KeyDown && !event.isARepeat ? 1 : 0;
            ups += event.type == PXKeyEventType::KeyUp ? 1 : 0;
        });
    Scene scene(display);
    std::vector<long> resident;
    (void)scene.record([&](const Hand &hand) {
        constexpr int kReport = kFlood / 5;
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < kFlood; ++i) {
            std::this_thread::sleep_until(next += kFloodInterval);
            hand.type(24 + i % 9);
            if (i % kReport == kReport - 1)
                resident.push_back(residentKilobytes());
        }
    });
    std::printf("%s: %d keys at 200 a second: %d downs, %d ups; resident KB each two seconds:",
                name, kFlood, downs, ups);
    for (const long kilobytes : resident)
        std::printf(" %ld", kilobytes);
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    VirtualDisplay::Options options;
    options.hasWindowManager = true;
    VirtualDisplay display(1280, 720, options);
    const QTemporaryDir settings;
    qputenv("XDG_CONFIG_HOME", settings.path().toLocal8Bit());
    qputenv("DISPLAY", display.name().toLatin1());
    qputenv("QT_QPA_PLATFORM", "xcb");
    const QApplication application(argc, argv);
    BRFactoryDefaults::registerFactoryDefaults(PXDefaults::standardUserDefaults());
    for (const auto &[key, value] : {std::pair<QString, QVariant>{u"keyboardEventDuration"_s, 0.3},
                                     {u"mouseClickDuration"_s, kClickDuration},
                                     {u"showKeyboardCharacters"_s, true}})
        PXDefaults::standardUserDefaults().setArgumentValue(key, value);
    constexpr QRgb kDesktop = 0x305070;
    const PaintedWindow desktop(display, {0, 0, 1280, 720}, kDesktop);
    for (const auto &[compositor, name] :
         {std::pair{VirtualDisplay::Compositor::None, "no compositor"},
          std::pair{VirtualDisplay::Compositor::XRender, "compositor"}}) {
        display.setCompositor(compositor);
        if (argc < 2)
            measureKeys(display, name);
        measureClicks(display, kDesktop, name);
        if (argc < 2)
            measureFlood(display, name);
    }
    return 0;
}
