#include "platform/x11/X11PixelBuffer.h"
#include "tests/support/PaintedWindow.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <random>

using namespace Qt::StringLiterals;

namespace {

struct WayCase {
    const char *name;
    X11PixelWay way;
    QStringList serverArguments;
};

void PrintTo(const WayCase &c, std::ostream *out)
{
    *out << c.name;
}

class X11FrameBufferReaderTest : public testing::TestWithParam<WayCase> { };

INSTANTIATE_TEST_SUITE_P(Ways, X11FrameBufferReaderTest,
                         testing::Values(WayCase{"Best", X11PixelWay::Best, {}},
                                         WayCase{"SharedPixmap", X11PixelWay::SharedPixmap, {}},
                                         WayCase{"SharedImage", X11PixelWay::SharedImage, {}},
                                         WayCase{"PlainImage", X11PixelWay::PlainImage, {}},
                                         WayCase{"ServerWithoutSharing",
                                                 X11PixelWay::Best,
                                                 {u"-extension"_s, u"MIT-SHM"_s}}),
                         [](const auto &test) { return std::string(test.param.name); });

/// Rectangles on, across and beside the edges of a 400x300 screen; their union fits `most`.
std::vector<PXPixelRect> randomRects(std::mt19937 &random)
{
    const auto from
        = [&](int first, int last) { return std::uniform_int_distribution(first, last)(random); };
    std::vector<PXPixelRect> rects;
    const int count = from(0, 4) == 0 ? from(17, 40) : from(1, 6);
    const int largest = from(0, 2) == 0 ? 300 : 30;
    rects.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        rects.push_back({from(-50, 420), from(-50, 320), from(1, largest), from(1, largest)});
    return rects;
}

/// What reading `rects` must give: the screen where they are, black beside the screen.
void layInto(QImage &expected, const QImage &screen, std::span<const PXPixelRect> rects)
{
    for (const PXPixelRect &rect : rects)
        for (int y = rect.y; y < rect.y + rect.height; ++y)
            for (int x = rect.x; x < rect.x + rect.width; ++x)
                if (expected.rect().contains(x, y))
                    expected.setPixel(
                        x, y, screen.rect().contains(x, y) ? screen.pixel(x, y) : 0xFF000000);
}

TEST_P(X11FrameBufferReaderTest, GivesWhatAScreenshotShows)
{
    const VirtualDisplay display(400, 300, {.serverArguments = GetParam().serverArguments});
    PaintedWindow back(display, {0, 0, 400, 300}, 0x204060);
    PaintedWindow front(display, {150, 80, 120, 90}, 0x806040);
    const auto screen = openScreen(display, GetParam().way);
    Canvas canvas(*screen, {800, 700}, 0xFF123456);
    QImage expected = canvas.image();

    std::mt19937 random = repeatable(7);
    for (int round = 0; round < 40; ++round) {
        back.fillAtRandom(random, 3);
        front.fillAtRandom(random, 3);
        const std::vector<PXPixelRect> rects = randomRects(random);
        ASSERT_TRUE(canvas.read(rects));
        layInto(expected, display.screenshot(), rects);
        ASSERT_EQ(canvas.image(), expected) << "round " << round;
    }
}

TEST(X11FrameBufferReaderMemory, IsMadeWhenItIsPrepared)
{
    const VirtualDisplay display(64, 64);
    const PaintedWindow window(display, {0, 0, 64, 64}, 0x204060);
    const auto screen = openScreen(display, X11PixelWay::SharedPixmap);
    const auto reader = valueOf(screen->makeFrameBufferReader());
    // Not a multiple of the pages' size, nor a shape that a pixmap of the screen would have.
    constexpr std::size_t kBytes = std::size_t{4} * 1000 * 701;
    const auto pagesThere = [&](PXPixelBuffer &buffer) {
        const PXPixelRect corner{0, 0, 1, 1};
        const auto view = valueOf(reader->read({&corner, 1}, buffer));
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, view.pixel(0, 0), 4);
        EXPECT_EQ(pixel & 0xFFFFFFU, 0x204060U);
        std::vector<unsigned char> pages((kBytes + 4095) / 4096);
        EXPECT_EQ(mincore(view.pixel(0, 0), kBytes, pages.data()), 0);
        return std::count_if(pages.begin(), pages.end(), [](auto page) { return (page & 1) != 0; });
    };
    const auto untouched = valueOf(reader->makeBuffer(1000, 701));
    EXPECT_LE(pagesThere(*untouched), 16);
    const auto prepared = valueOf(reader->makeBuffer(1000, 701));
    reader->prepare(*prepared);
    EXPECT_GE(pagesThere(*prepared), static_cast<std::ptrdiff_t>(kBytes / 4096));
}

TEST_P(X11FrameBufferReaderTest, LeavesTheOtherPixelsOfASparseUnionAlone)
{
    const VirtualDisplay display(400, 300, {.serverArguments = GetParam().serverArguments});
    const PaintedWindow window(display, {0, 0, 400, 300}, 0xFFFFFF);
    const auto screen = openScreen(display, GetParam().way);
    const auto reader = valueOf(screen->makeFrameBufferReader());
    const auto buffer = valueOf(reader->makeBuffer(400, 300));
    const PXPixelRect corners[] = {{0, 0, 2, 2}, {398, 298, 2, 2}};
    const PXPixelView view = valueOf(reader->read(corners, *buffer));
    ASSERT_EQ(view.width, 400);
    ASSERT_EQ(view.height, 300);
    int touched = 0;
    for (int y = 0; y < view.height; ++y)
        for (int x = 0; x < view.width; ++x)
            touched += view.pixel(x, y)[0] != std::byte{0};
    EXPECT_EQ(touched, 8); // Memory that nobody asked for stays untouched, and unused.
}

TEST_P(X11FrameBufferReaderTest, ReportsAServerThatHasGone)
{
    VirtualDisplay display(400, 300, {.serverArguments = GetParam().serverArguments});
    const auto screen = openScreen(display, GetParam().way);
    Canvas canvas(*screen, {400, 300}, 0);
    const PXPixelRect rect = {10, 10, 20, 20};
    ASSERT_TRUE(canvas.read({&rect, 1}));
    display.kill();
    for (int i = 0; i < 2; ++i) {
        const auto result = canvas.read({&rect, 1});
        ASSERT_FALSE(result);
        EXPECT_EQ(result.error().domain, kPXDisplayErrorDomain);
        EXPECT_EQ(result.error().code, PXDisplayLost);
    }
    EXPECT_FALSE(screen->makeFrameBufferReader());
}

TEST_P(X11FrameBufferReaderTest, FollowsAScreenThatChangesItsSize)
{
    const VirtualDisplay display(1024, 768, {.serverArguments = GetParam().serverArguments});
    const auto screen = openScreen(display, GetParam().way);
    Canvas canvas(*screen, {1024, 768}, 0);
    const PXPixelRect all = {0, 0, 1024, 768};
    ASSERT_TRUE(canvas.read({&all, 1}));
    for (const QSize &size : {QSize(640, 480), QSize(1000, 700)}) {
        display.resize(size.width(), size.height());
        const PaintedWindow window(display, {0, 0, 1024, 768}, 0x00FF00);
        QImage expected(1024, 768, QImage::Format_RGB32);
        ASSERT_TRUE(canvas.read({&all, 1}));
        layInto(expected, display.screenshot(), {&all, 1});
        EXPECT_EQ(canvas.image(), expected) << size.width();
    }
}

TEST(X11PixelBuffer, ForgetsAPixmapThatWasRefused)
{
    const VirtualDisplay display(400, 300);
    const auto connection = valueOf(X11Connection::open(display.name()));
    const auto refusals = [&] {
        int count = 0;
        valueOf(connection->reply<xcb_get_geometry_reply>(
            "xcb_get_geometry", xcb_get_geometry(connection->get(), connection->root())));
        while (const X11Event event{xcb_poll_for_queued_event(connection->get())})
            count += event->response_type == 0 ? 1 : 0;
        return count;
    };
    const auto buffer
        = valueOf(X11PixelBuffer::sharedWithBytes(std::size_t{100} * 100 * 4, *connection));
    const xcb_pixmap_t tooLarge = buffer->pixmap(*connection, 1000, 1000);
    EXPECT_EQ(refusals(), 1);
    buffer->forgetPixmap(*connection);
    EXPECT_NE(buffer->pixmap(*connection, 100, 100), tooLarge);
    EXPECT_EQ(refusals(), 0); // Neither for the old one nor for the new one.
}

} // namespace
