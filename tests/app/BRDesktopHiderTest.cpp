#include "app/BRDesktopHider.h"
#include "foundation/PXColor.h"
#include "foundation/PXDefaults.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/support/PaintedWindow.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QRgb kRed = 0xFFFF0000;
constexpr QRgb kGreen = 0xFF00FF00;
constexpr QRgb kWhite = 0xFFFFFFFF;

class BRDesktopHiderTest : public OverlayTest {
protected:
    ~BRDesktopHiderTest() override
    {
        for (const char *key : {"hideDesktopWith", "desktopHidingColor", "desktopHidingImage"})
            EXPECT_TRUE(defaults.removeValue(QString::fromLatin1(key)));
    }

    void set(const char *key, const QVariant &value)
    {
        EXPECT_TRUE(defaults.setValue(QString::fromLatin1(key), value));
    }
    /// Left half of one colour, right half of the other.
    [[nodiscard]] QString picture(const QString &name, QRgb left, QRgb right) const
    {
        QImage image(200, 100, QImage::Format_RGB32);
        image.fill(left);
        for (int y = 0; y < 100; ++y)
            std::fill_n(reinterpret_cast<QRgb *>(image.scanLine(y)) + 100, 100, right);
        QString path = folder.filePath(name);
        EXPECT_TRUE(image.save(path));
        return path;
    }
    [[nodiscard]] static bool shows(QRgb left, QRgb right, const QRect &where)
    {
        const QImage screen = screenshot();
        return screen.pixel(where.topLeft()) == left && screen.pixel(where.bottomLeft()) == left
            && screen.pixel(where.topRight()) == right && screen.pixel(where.bottomRight()) == right
            && screen.pixel(where.left() + where.width() * 45 / 100, 300) == left
            && screen.pixel(where.left() + where.width() * 55 / 100, 300) == right;
    }
    [[nodiscard]] static bool showsSoon(QRgb left, QRgb right,
                                        const QRect &where = {0, 0, kWidth, kHeight})
    {
        return waitUntil([&] { return shows(left, right, where); });
    }

    const QTemporaryDir folder;
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    BRDesktopHider hider{*windowServer, platform->mainDisplay()};
};

INSTANTIATE_TEST_SUITE_P(Desktops, BRDesktopHiderTest,
                         testing::Values(VirtualDisplay::Compositor::None,
                                         VirtualDisplay::Compositor::XRender),
                         nameOfCompositor);

TEST_P(BRDesktopHiderTest, ShowsWhatTheSettingsSayAtAnyTime)
{
    const QByteArray red = PXColor::calibratedRGB(1, 0, 0, 1).archivedData();
    const QString twoColors = picture(u"two.png"_s, kRed, kGreen);
    QFile text(folder.filePath(u"text.png"_s));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly) && text.write("no picture") > 0);
    text.close();
    const struct {
        const char *name;
        int with;
        QByteArray color;
        QString image;
        QRgb left;
        QRgb right;
    } rows[] = {
        {"color", 1, red, twoColors, kRed, kRed},
        {"image", 0, red, twoColors, kRed, kGreen},
        {"colorAgain", 1, red, twoColors, kRed, kRed},
        {"noImage", 0, red, u""_s, kRed, kRed},
        {"anotherImage", 0, red, picture(u"other.png"_s, kGreen, kWhite), kGreen, kWhite},
        {"unreadableImage", 0, red, text.fileName(), kRed, kRed},
        {"imageThatIsNotThere", 0, red, folder.filePath(u"gone.png"_s), kRed, kRed},
        {"noColor", 1, "no color", twoColors, kWhite, kWhite},
    };
    // Each shown anew, and then each after the other while it is shown.
    for (const bool isLive : {false, true}) {
        for (const auto &row : rows) {
            set("hideDesktopWith", row.with);
            set("desktopHidingColor", row.color);
            set("desktopHidingImage", row.image);
            hider.hideDesktop();
            EXPECT_TRUE(showsSoon(row.left, row.right)) << row.name << (isLive ? ", live" : "");
            if (!isLive)
                hider.unhideDesktop();
        }
    }
    hider.unhideDesktop();
    hider.unhideDesktop();
    EXPECT_TRUE(waitUntil([] { return screenshot().pixel(500, 300) != kWhite; }));
}

TEST_P(BRDesktopHiderTest, StaysBelowOrdinaryWindows)
{
    set("desktopHidingColor", PXColor::calibratedRGB(1, 0, 0, 1).archivedData());
    set("hideDesktopWith", 1);
    // Where the window manager puts them.
    const auto greenPixels = [] {
        const QImage screen = screenshot();
        int count = 0;
        for (int y = 0; y < screen.height(); ++y) {
            const auto *row = reinterpret_cast<const QRgb *>(screen.constScanLine(y));
            count += static_cast<int>(std::count(row, row + screen.width(), kGreen));
        }
        return count;
    };
    const PaintedWindow before(theDesktop(), {0, 0, 100, 100}, 0x00FF00,
                               PaintedWindow::Kind::Managed);
    ASSERT_TRUE(waitUntil([&] { return greenPixels() == 100 * 100; }));
    hider.hideDesktop();
    ASSERT_TRUE(waitUntil([] { return screenshot().pixel(900, 600) == kRed; }));
    EXPECT_EQ(greenPixels(), 100 * 100);
    const PaintedWindow after(theDesktop(), {0, 0, 100, 100}, 0x00FF00,
                              PaintedWindow::Kind::Managed);
    EXPECT_TRUE(waitUntil([&] { return greenPixels() == 2 * 100 * 100; }));
    // A click on it raises nothing over the windows.
    hand.click({900, 600});
    hider.hideDesktop();
    EXPECT_EQ(greenPixels(), 2 * 100 * 100);
}

TEST_P(BRDesktopHiderTest, FollowsTheDisplay)
{
    set("desktopHidingImage", picture(u"two.png"_s, kRed, kGreen));
    set("hideDesktopWith", 0);
    hider.hideDesktop();
    ASSERT_TRUE(showsSoon(kRed, kGreen));
    theDesktop().moveMainDisplay({100, 0, 600, 500});
    EXPECT_TRUE(showsSoon(kRed, kGreen, {100, 0, 600, 500}));
    theDesktop().moveMainDisplay({0, 0, kWidth, kHeight});
    EXPECT_TRUE(showsSoon(kRed, kGreen));
}

} // namespace
