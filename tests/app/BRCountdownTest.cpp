#include "app/BRCountdownController.h"
#include "app/BRCountdownView.h"
#include "app/PXTranslations.h"
#include "foundation/PXClock.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/PaintedWindow.h"
#include "widgets/BROverlayWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QMouseEvent>
#include <QPaintEvent>

#include <cstdlib>

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

constexpr QRgb kBelow = 0xFF3060A0;
constexpr QPointF kCentre(500.5, 350.5);

/// What was asked for, and when.
class SoundLog final : public PXSoundPlayer {
public:
    void prepare() override { }
    void play(const QString &name) override
    {
        names.push_back(name);
        times.push_back(PXTimeIntervalSinceReferenceDate());
    }
    void setOutputDevice(const QString &) override { }

    std::vector<QString> names;
    std::vector<double> times;
};

class Listener final : public BRCountdownDelegate {
public:
    void countdownDidEnd() override { times.push_back(PXTimeIntervalSinceReferenceDate()); }

    std::vector<double> times;
};

/// An ordinary window of the desktop that counts clicks.
class ClickedWindow final : public QWidget {
public:
    int clicks = 0;

protected:
    void mousePressEvent(QMouseEvent *) override { ++clicks; }
};

/// Adds up what a widget is asked to paint.
class PaintWatch final : public QObject {
public:
    explicit PaintWatch(QWidget &widget) { widget.installEventFilter(this); }
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            double area = 0;
            for (const QRect &rect : static_cast<QPaintEvent *>(event)->region())
                area += double(rect.width()) * rect.height();
            areas.push_back(area);
        }
        return false;
    }

    std::vector<double> areas;
};

class BRCountdownTest : public OverlayTest {
protected:
    [[nodiscard]] static bool isBlending()
    {
        return GetParam() != VirtualDisplay::Compositor::None;
    }
    [[nodiscard]] static int visibleWindows()
    {
        const auto windows = QApplication::topLevelWidgets();
        return static_cast<int>(std::count_if(windows.begin(), windows.end(), [](QWidget *widget) {
            return widget->isVisible() && dynamic_cast<BROverlayWindow *>(widget) != nullptr;
        }));
    }
    void showWindow(int count)
    {
        window.setBackgroundColor(QColor::fromRgbF(0, 0, 0, 0.8F));
        window.setAlphaValue(0.8);
        window.setCanBecomeKeyWindow(false);
        view = new BRCountdownView(window);
        window.setContentView(view);
        view->setTimerCount(count);
        window.orderFront();
    }

    const PXTranslations translations{{u"en"_s}};
    const PaintedWindow below{theDesktop(), {0, 0, kWidth, kHeight}, kBelow & 0xFFFFFF};
    BROverlayWindow window{*windowServer, {0, 0, kWidth, kHeight}};
    BRCountdownView *view = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Desktops, BRCountdownTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

/// `light` of that opacity on the window, which is black to 80 %, all of it at 80 %.
QRgb blended(double light, double opacity)
{
    const double white = light * opacity * 0.8;
    const double shining = 1 - 0.8 * (opacity + (1 - opacity) * 0.8);
    const auto channel = [&](int below) { return int(255 * white + shining * below); };
    return qRgb(channel(qRed(kBelow)), channel(qGreen(kBelow)), channel(qBlue(kBelow)));
}

bool isNear(QRgb one, QRgb other)
{
    return std::abs(qRed(one) - qRed(other)) <= 3 && std::abs(qGreen(one) - qGreen(other)) <= 3
        && std::abs(qBlue(one) - qBlue(other)) <= 3;
}

/// The first place where the screen differs from what a blending, or a cut, dial with its hand at
/// twelve o'clock looks like; empty when none does.
std::string faultOfDial(const QImage &screen, bool isBlending)
{
    const auto onEllipse = [](double size, double degrees) {
        const double angle = degrees * 3.14159265 / 180;
        return (kCentre
                + QPointF(std::cos(angle) * size * 1001 / 2, -std::sin(angle) * size * 701 / 2))
            .toPoint();
    };
    const QRgb line = isBlending ? blended(1, 0.4) : qRgb(204, 204, 204);
    const QRgb background = isBlending ? blended(0, 0) : kBelow;
    const QRgb black = qRgb(0, 0, 0);
    const struct {
        const char *name;
        QPoint place;
        QRgb color;
    } rows[] = {
        {"corner", {2, 2}, background},
        {"between the ellipses", onEllipse(0.5, 30), background},
        {"outside", onEllipse(0.8, 30), background},
        {"horizontal line's left end", {0, 350}, line},
        {"horizontal line's right end", {1000, 350}, line},
        {"its upper row", {50, 348}, line},
        {"above it", {50, 346}, isBlending ? background : black},
        {"higher above it", {50, 344}, background},
        {"between the ellipses, left", {250, 350}, line},
        {"in the inner ellipse, right", {650, 350}, line},
        {"vertical line in the ellipses", {500, 450}, line},
        {"vertical line's lower end", {500, 700}, line},
        {"outer ellipse", onEllipse(0.6, 30), line},
        {"outer ellipse, left", onEllipse(0.6, 160), line},
        {"outer ellipse, below", onEllipse(0.6, 250), line},
        {"inner ellipse", onEllipse(0.4, 45), line},
        {"inner ellipse, left", onEllipse(0.4, 200), line},
        {"hand", {505, 5}, isBlending ? blended(0.9, 0.2) : qRgb(127, 127, 127)},
        {"hand, left of the line",
         {495, 200},
         isBlending ? blended(0.9, 0.2) : qRgb(127, 127, 127)},
        {"beside the hand", {510, 5}, background},
        {"below the centre, where no hand is", {505, 600}, isBlending ? background : black},
    };
    for (const auto &row : rows) {
        const QRgb seen = screen.pixel(row.place);
        if (!isNear(seen, row.color))
            return std::string(row.name) + ": " + QString::number(seen, 16).toStdString()
                + " and not " + QString::number(row.color, 16).toStdString();
    }
    // The number is as high as three quarters of a fifth of the display, and in the centre.
    const QRgb number = isBlending ? blended(1, 1) : qRgb(255, 255, 255);
    QRect bright;
    for (int y = 0; y < screen.height(); ++y)
        for (int x = 0; x < screen.width(); ++x)
            if (isNear(screen.pixel(x, y), number))
                bright |= QRect(x, y, 1, 1);
    if (bright.height() < 90 || bright.height() > 130 || bright.width() < 50
        || std::abs(bright.center().x() - 500) > 6 || std::abs(bright.center().y() - 350) > 20)
        return "the number is at " + std::to_string(bright.x()) + " " + std::to_string(bright.y())
            + ", " + std::to_string(bright.width()) + " x " + std::to_string(bright.height());
    return {};
}

TEST_P(BRCountdownTest, TheDialIsToThePixelAndFollowsTheCompositor)
{
    showWindow(0);
    const bool order[] = {isBlending(), !isBlending(), isBlending()};
    for (const bool blends : order) {
        if (windowServer->isCompositing() != blends)
            theDesktop().setCompositor(blends ? VirtualDisplay::Compositor::XRender
                                              : VirtualDisplay::Compositor::None);
        std::string fault;
        EXPECT_TRUE(waitUntil([&] { return (fault = faultOfDial(screenshot(), blends)).empty(); }))
            << (blends ? "blended: " : "cut: ") << fault;
    }
}

TEST_P(BRCountdownTest, TheHandPaintsAgainOnlyWhatItLeavesAndEnters)
{
    showWindow(3);
    EXPECT_EQ(view->accessibleName(), u"Recording starts in 3"_s);
    ASSERT_TRUE(waitUntil([&] { return screenshot().pixel(0, 350) != kBelow; }));
    PaintWatch watch(*view);
    const double begin = PXTimeIntervalSinceReferenceDate();
    view->setTimerCount(2);
    // One more turn than the hand makes.
    ASSERT_TRUE(waitUntil([&] { return PXTimeIntervalSinceReferenceDate() > begin + 1.2; }));
    const auto paintings = watch.areas.size();
    EXPECT_GE(paintings, 2U);
    EXPECT_LE(paintings, 38U) << "30 a second, and the number's own";
    const double whole = double(view->width()) * view->height();
    EXPECT_EQ(watch.areas.front(), whole);
    double sum = 0;
    for (std::size_t i = 1; i < paintings; ++i)
        sum += watch.areas[i];
    EXPECT_LT(sum / double(paintings - 1), whole / 8);

    const QImage turned = screenshot();
    view->update();
    ASSERT_TRUE(waitUntil([&] { return watch.areas.size() > paintings; }));
    EXPECT_EQ(watch.areas.size(), paintings + 1) << "the hand stands still";
    // The compositor may need a moment to show what is the same.
    EXPECT_TRUE(waitUntil([&] { return screenshot() == turned; }));
}

TEST_P(BRCountdownTest, CountsInFourStepsAndTellsASecondLater)
{
    SoundLog sounds;
    Listener listener;
    BRCountdownController countdown(*windowServer, platform->mainDisplay(), sounds);
    countdown.startCountdown(listener);
    EXPECT_EQ(visibleWindows(), 1);
    countdown.cancel();
    countdown.cancel();
    EXPECT_EQ(visibleWindows(), 0);
    EXPECT_FALSE(countdown.isCounting());
    EXPECT_THAT(sounds.names, ElementsAre(u"Morse"_s));
    sounds = {};

    const double begin = PXTimeIntervalSinceReferenceDate();
    countdown.startCountdown(listener);
    for (std::size_t step = 1; step <= 4; ++step) {
        ASSERT_TRUE(waitUntil([&] { return sounds.names.size() >= step; })) << step;
        EXPECT_EQ(visibleWindows(), step < 4 ? 1 : 0) << step;
        EXPECT_GE(sounds.times.back(), begin + double(step - 1) - 0.005);
        EXPECT_TRUE(countdown.isCounting());
        EXPECT_THAT(listener.times, ElementsAre());
    }
    ASSERT_TRUE(waitUntil([&] { return !listener.times.empty(); }));
    EXPECT_GE(listener.times.front(), sounds.times.back() + 0.995);
    EXPECT_GE(listener.times.front(), begin + 3.98);
    EXPECT_THAT(sounds.names, ElementsAre(u"Morse"_s, u"Morse"_s, u"Morse"_s, u"Blow"_s));
    EXPECT_EQ(listener.times.size(), 1U) << "and none for the one that was cancelled";
    EXPECT_FALSE(countdown.isCounting());
    const QImage screen = screenshot();
    for (const QPoint &place : {QPoint(0, 350), QPoint(500, 350), QPoint(900, 100)})
        EXPECT_EQ(screen.pixel(place), kBelow);
}

TEST_P(BRCountdownTest, ClicksReachWhatIsBelowWhereItIsCut)
{
    ClickedWindow target;
    target.setWindowFlag(Qt::X11BypassWindowManagerHint);
    target.resize(150, 100);
    target.show();
    // A compositor paints what is there a little later.
    ASSERT_TRUE(waitUntil([&] {
        const QImage screen = screenshot();
        return screen.pixel(0, 350) == kBelow && screen.pixel(60, 60) != kBelow;
    }));
    SoundLog sounds;
    Listener listener;
    BRCountdownController countdown(*windowServer, platform->mainDisplay(), sounds);
    countdown.startCountdown(listener);
    ASSERT_TRUE(waitUntil([&] { return screenshot().pixel(0, 350) != kBelow; }));
    hand.click({60, 60});
    EXPECT_TRUE(isBlending() || waitUntil([&] { return target.clicks == 1; }));
    countdown.cancel();
    ASSERT_TRUE(waitUntil([&] { return screenshot().pixel(0, 350) == kBelow; }));
    hand.click({60, 60});
    EXPECT_TRUE(waitUntil([&] { return target.clicks == (isBlending() ? 1 : 2); }));
}

} // namespace
