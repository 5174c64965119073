#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/PaintedWindow.h"
#include "widgets/BROverlayWindow.h"
#include "widgets/PXGradient.h"
#include "widgets/PXShadow.h"
#include "widgets/PXViewAnimation.h"

#include <QPainter>

namespace {

class BROverlayWindowTest : public OverlayTest { };

INSTANTIATE_TEST_SUITE_P(, BROverlayWindowTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

TEST_P(BROverlayWindowTest, StandsToThePixelWithoutABorderWhateverIsAskedFor)
{
    const PaintedWindow paper(theDesktop(), {0, 0, kWidth, kHeight}, 0x80FF60);
    const PXPixelRect frames[] = {{0, 0, kWidth, kHeight}, {101, 55, 333, 77}, {0, 1, 5, 3}};
    for (const PXPixelRect &frame : frames) {
        BROverlayWindow window(*windowServer, frame, Qt::Window | Qt::WindowTitleHint);
        window.setBackgroundColor(Qt::blue);
        window.setCanBecomeKeyWindow(false);
        window.setSticky(false);
        window.orderFront();
        const QRect covered(frame.x, frame.y, frame.width, frame.height);
        const auto isExact = [&] {
            const QImage screen = screenshot();
            for (int y = 0; y < kHeight; ++y)
                for (int x = 0; x < kWidth; ++x)
                    if (screen.pixel(x, y) != (covered.contains(x, y) ? 0xFF0000FF : 0xFF80FF60))
                        return false;
            return true;
        };
        EXPECT_TRUE(waitUntil(isExact)) << frame.x << ' ' << frame.y;
        window.orderOut();
        EXPECT_TRUE(waitUntil([] { return screenshot().pixel(102, 56) == 0xFF80FF60; }));
    }
}

TEST_P(BROverlayWindowTest, IsCutToItsShape)
{
    const PaintedWindow paper(theDesktop(), {0, 0, kWidth, kHeight}, 0x80FF60);
    BROverlayWindow window(*windowServer, {0, 0, kWidth, kHeight});
    window.setBackgroundColor(Qt::blue);
    window.setShape(QRegion(11, 21, 31, 41));
    window.orderFront();
    EXPECT_TRUE(waitUntil([] { return screenshot().pixel(11, 21) == 0xFF0000FF; }));
    EXPECT_EQ(screenshot().pixel(10, 21), 0xFF80FF60);
    EXPECT_EQ(screenshot().pixel(42, 21), 0xFF80FF60);
    EXPECT_EQ(screenshot().pixel(41, 61), 0xFF0000FF);
    window.setShape(std::nullopt);
    EXPECT_TRUE(
        waitUntil([] { return screenshot().pixel(kWidth - 1, kHeight - 1) == 0xFF0000FF; }));
}

TEST(PXGradient, RunsAgainstTheClock)
{
    const auto gradient = PXGradient::gradientWithBeginningColor(Qt::white, Qt::black);
    const struct {
        double angle;
        QPoint brightest, darkest;
    } rows[] = {
        {0, {0, 10}, {20, 10}},
        {90, {10, 20}, {10, 0}},
        {270, {10, 0}, {10, 20}},
        {45, {0, 20}, {20, 0}},
    };
    for (const auto &row : rows) {
        QImage image(21, 21, QImage::Format_RGB32);
        QPainter painter(&image);
        gradient.fillRect(painter, image.rect(), row.angle);
        painter.end();
        EXPECT_GT(qGray(image.pixel(row.brightest)), 240) << row.angle;
        EXPECT_LT(qGray(image.pixel(row.darkest)), 15) << row.angle;
        EXPECT_NEAR(qGray(image.pixel(10, 10)), 128, 8) << row.angle;
    }
}

/// A square's shadow is what the integral of the Gaussian says, and lies where the offset puts it.
TEST(PXShadow, IsTheShapeBlurredAndMoved)
{
    QImage image(100, 100, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    const PXShadow shadow(Qt::black, 10, {6, -8});
    QPainter painter(&image);
    shadow.draw(painter, {40, 40, 20, 20},
                [](QPainter &to) { to.fillRect(40, 40, 20, 20, Qt::red); });
    painter.end();
    for (int y = 0; y < 100; ++y) {
        for (int x = 0; x < 100; ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (QRect(40, 40, 20, 20).contains(x, y)) {
                ASSERT_EQ(pixel, 0xFFFF0000) << x << ' ' << y;
                continue;
            }
            const auto part = [&](double place) {
                return shadow.coverageAt(40 - place) - shadow.coverageAt(60 - place);
            };
            // 6 to the right, 8 down.
            ASSERT_NEAR(qAlpha(pixel), 255 * part(x + 0.5 - 6) * part(y + 0.5 - 8), 4)
                << x << ' ' << y;
        }
    }
}

TEST(PXViewAnimation, MovesAndFadesTogether)
{
    QWidget window;
    auto *moved = new QWidget(&window);
    auto *going = new QWidget(&window);
    auto *coming = new QWidget(&window);
    auto *gone = new QWidget(&window);
    coming->hide();
    moved->setGeometry(0, 0, 10, 20);
    PXViewAnimation animation(1, PXAnimationCurve::Linear,
                              {{moved, {}, QRect(100, 50, 20, 20)},
                               {going, {}, {}, PXViewChange::Effect::FadeOut},
                               {coming, {}, {}, PXViewChange::Effect::FadeIn},
                               {gone, {}, QRect(1, 2, 3, 4)}});
    delete gone;
    animation.setCurrentProgress(0.5F);
    EXPECT_EQ(moved->geometry(), QRect(50, 25, 15, 20));
    EXPECT_FALSE(going->isHidden());
    EXPECT_FALSE(coming->isHidden());
    EXPECT_NE(coming->graphicsEffect(), nullptr);
    animation.setCurrentProgress(1);
    EXPECT_EQ(moved->geometry(), QRect(100, 50, 20, 20));
    EXPECT_TRUE(going->isHidden());
    EXPECT_FALSE(coming->isHidden());
    EXPECT_EQ(coming->graphicsEffect(), nullptr) << "nothing is left behind";
    EXPECT_EQ(going->graphicsEffect(), nullptr);
}

} // namespace
