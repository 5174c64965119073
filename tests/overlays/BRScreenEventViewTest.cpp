#include "overlays/BRScreenEventView.h"
#include "foundation/PXClock.h"
#include "foundation/PXColor.h"
#include "foundation/PXDefaults.h"
#include "overlays/BRCursorHighlight.h"
#include "overlays/BRDisplayOverlayWindow.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/PaintedWindow.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kDesktop = 0x205020;
constexpr double kDuration = 1.5;
constexpr QRgb kLeft = qRgb(200, 0, 0);
constexpr QRgb kRight = qRgb(0, 0, 200);
constexpr QPoint kPlace = {500, 300};

class BRScreenEventViewTest : public OverlayTest {
protected:
    BRScreenEventViewTest()
    {
        PXDefaults &defaults = PXDefaults::standardUserDefaults();
        defaults.registerDefaults({{u"mouseClickDuration"_s, kDuration},
                                   {u"mouseClickFillColor"_s,
                                    PXColor::calibratedRGB(200 / 255.0F, 0, 0, 1).archivedData()},
                                   {u"rightMouseClickFillColor"_s,
                                    PXColor::calibratedRGB(0, 0, 200 / 255.0F, 1).archivedData()}});
        hand.moveTo(kPlace);
        view = new BRScreenEventView(window, platform->mainDisplay());
        window.setContentView(view);
        window.orderFront();
    }

    void show(BRMouseEventType type, QPoint place = kPlace) const
    {
        view->showMouseEventAtPoint(
            type, {static_cast<float>(place.x()), static_cast<float>(kHeight - place.y())});
    }
    /// From the first to the last pixel that is not the desktop's, along the row of the place.
    [[nodiscard]] static QPoint widthAt(QPoint place = kPlace)
    {
        const QImage picture = screenshot();
        QPoint span(INT_MAX, -1);
        for (int x = place.x() - 40; x < place.x() + 40; ++x) {
            const QRgb pixel = picture.pixel(x, place.y());
            // White at least in part: a shadow is darker than the desktop.
            if (qRed(pixel) > 0x40)
                span = {std::min(span.x(), x), x};
        }
        return span;
    }
    [[nodiscard]] static QRgb at(QPoint place) { return screenshot().pixel(place) & RGB_MASK; }

    /// Nothing but that colour; the line around a mark throws its shadow on what is inside.
    [[nodiscard]] static bool isFilled(QRgb pixel, QRgb color)
    {
        const int brightness = std::max(qRed(pixel), qBlue(pixel));
        return brightness > 100 && brightness <= 200 && qGreen(pixel) == 0
            && (color == kLeft ? qBlue(pixel) : qRed(pixel)) == 0;
    }

    const PaintedWindow desktop{theDesktop(), {0, 0, kWidth, kHeight}, kDesktop};
    BRDisplayOverlayWindow window{*windowServer, platform->mainDisplay()};
    BRScreenEventView *view = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Desktops, BRScreenEventViewTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

TEST_P(BRScreenEventViewTest, AHeldButtonHasItsMarkUnderThePointer)
{
    using enum BRMouseEventType;
    const QRgb wanted = kDesktop & RGB_MASK;
    ASSERT_TRUE(waitUntil([&] { return at(kPlace) == wanted; }));
    show(LeftMouseDown);
    EXPECT_TRUE(waitUntil([&] { return isFilled(at(kPlace), kLeft); }));
    EXPECT_TRUE(waitUntil([&] {
        return widthAt() == QPoint(495, 504) || widthAt() == QPoint(494, 505);
    })) << widthAt().x()
        << ' ' << widthAt().y() << ": a circle of 8 with half a line of 3";
    hand.moveTo({200, 600});
    show(LeftMouseDragged, {200, 600});
    EXPECT_TRUE(waitUntil([&] { return isFilled(at({200, 600}), kLeft) && at(kPlace) == wanted; }));
    show(RightMouseDown, {200, 600});
    EXPECT_TRUE(waitUntil([&] { return isFilled(at({200, 600}), kRight); }));
    view->clear();
    EXPECT_TRUE(waitUntil([&] { return at({200, 600}) == wanted; }));
}

TEST_P(BRScreenEventViewTest, ReleasedClicksGrowAndFadeAndNeverFasterThanTheyShould)
{
    using enum BRMouseEventType;
    const QPoint second = kPlace + QPoint(100, 0);
    show(LeftMouseDown);
    show(RightMouseDown);
    const double earliest = PXTimeIntervalSinceReferenceDate();
    show(LeftMouseUp);
    show(RightMouseUp, second);
    int largest = 0;
    bool wasBright = false;
    const double end = earliest + kDuration;
    EXPECT_TRUE(waitUntil([&] {
        const QPoint span = widthAt();
        const double now = PXTimeIntervalSinceReferenceDate();
        const double t = std::min((now - earliest) / kDuration, 1.0);
        const double diameter = 8 + 20 * (1 - std::cos(std::numbers::pi / 2 * t));
        const int width = span.y() - span.x() + 1;
        if (span.y() >= 0) {
            EXPECT_LE(width, diameter + 3 + 2);
            largest = std::max(largest, width);
        }
        wasBright = wasBright || isFilled(at(second), kRight);
        return now > end && span.y() < 0 && at(second) == (kDesktop & RGB_MASK);
    }));
    EXPECT_GE(largest, 16);
    EXPECT_TRUE(wasBright);
}

TEST_P(BRScreenEventViewTest, ACompositorMayComeAndGoMeanwhile)
{
    const bool isBlending = GetParam() != VirtualDisplay::Compositor::None;
    show(BRMouseEventType::LeftMouseDown);
    EXPECT_TRUE(waitUntil([&] { return isFilled(at(kPlace), kLeft); }));
    theDesktop().setCompositor(isBlending ? VirtualDisplay::Compositor::None
                                          : VirtualDisplay::Compositor::XRender);
    EXPECT_TRUE(waitUntil([&] {
        return window.isCompositing() != isBlending && isFilled(at(kPlace), kLeft)
            && at(kPlace + QPoint(0, 20)) == (kDesktop & RGB_MASK);
    }));
}

class BRCursorHighlightTest : public OverlayTest { };

INSTANTIATE_TEST_SUITE_P(Desktops, BRCursorHighlightTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

TEST_P(BRCursorHighlightTest, FollowsThePointerUntilItIsShutDown)
{
    const PaintedWindow desktop(theDesktop(), {0, 0, kWidth, kHeight}, kDesktop);
    hand.moveTo({300, 300});
    auto highlight = valueOf(BRCursorHighlight::onScreen(*platform, *windowServer));
    const auto isAt = [&](QPoint pointer) {
        const QImage picture = screenshot();
        QImage expected(kWidth, kHeight, QImage::Format_RGB32);
        expected.fill(kDesktop);
        for (int y = std::max(pointer.y() - 20, 0); y < std::min(pointer.y() + 20, kHeight); ++y)
            for (int x = std::max(pointer.x() - 20, 0); x < std::min(pointer.x() + 20, kWidth); ++x)
                expected.setPixel(x, y, 0xFFFF0000);
        return picture == expected;
    };
    for (const QPoint place :
         {QPoint(300, 300), QPoint(5, 7), QPoint(1000, 700), QPoint(512, 111)}) {
        hand.moveTo(place);
        EXPECT_TRUE(waitUntil([&] { return isAt(place); })) << place.x();
        EXPECT_TRUE(waitUntil([&] {
            return highlight->cursorWindow().frame()
                == PXPixelRect{place.x() - 20, place.y() - 20, 40, 40};
        }));
    }
    EXPECT_FALSE(highlight->cursorWindow().isVisible());
    const QPoint nowhere(-100, -100);
    highlight->drawNothing();
    EXPECT_TRUE(waitUntil([&] { return isAt(nowhere); }));
    highlight->drawSomething();
    EXPECT_TRUE(waitUntil([&] { return isAt({512, 111}); }));
    highlight.reset();
    EXPECT_TRUE(waitUntil([&] { return isAt(nowhere); }));
}

} // namespace
