#include "bench/side-by-side/Content.h"
#include "bench/side-by-side/Terminal.h"

#include <xcb/xtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <optional>

namespace {

constexpr double kTurn = 2 * 3.14159265358979;

/// A gradient from corner to corner through four colours, as desktops ship them.
void paintWallpaper(const SharedPicture &picture)
{
    constexpr std::array<std::array<int, 3>, 4> kStops
        = {{{24, 16, 88}, {220, 40, 120}, {255, 176, 60}, {40, 200, 210}}};
    const int longest = picture.width() + picture.height();
    for (int y = 0; y < picture.height(); ++y) {
        std::uint32_t *pixels = picture.row(y);
        for (int x = 0; x < picture.width(); ++x) {
            const int way = (x + y) * static_cast<int>(kStops.size() - 1);
            const auto stop = static_cast<std::size_t>(way / longest);
            std::uint32_t pixel = 0;
            for (std::size_t channel = 0; channel < 3; ++channel) {
                const int from = kStops.at(stop).at(channel);
                const int to = kStops.at(stop + 1).at(channel);
                pixel = pixel << 8U
                    | static_cast<std::uint32_t>(from + (to - from) * (way % longest) / longest);
            }
            pixels[x] = pixel;
        }
    }
}

/// A terminal full of text that is dragged in loops over a wallpaper; its number is beside it, in
/// the same breath: nobody else is served between the two.
class DragContent final : public Content {
public:
    DragContent(const BenchScreen &screen, std::uint32_t seed)
        : _screen(screen),
          _wallpaper(screen, screen.width(), screen.height()),
          _cells(screen, kPlace.width, kPlace.height),
          _context(screen.copyingContext())
    {
        paintWallpaper(_wallpaper);
        static_cast<void>(
            screen.mapWindow({0, 0, screen.width(), screen.height()}, _wallpaper.pixmap()));
        _dragged.emplace(screen, _left(0), _top(0), 80, 24, 10);
        BenchRandom random(seed);
        for (int row = 0; row < _dragged->rows(); ++row)
            _dragged->send(benchTextLine(random) + (row + 1 < _dragged->rows() ? "\r\n" : ""));
        _dragged->wait();
        _cells.stampCounter(CounterPlace{}, 0);
        _counterWindow = screen.mapWindow(kPlace, _cells.pixmap());
    }
    void update(std::uint32_t number) override
    {
        auto *connection = _screen.connection();
        _cells.stampCounter(CounterPlace{}, number);
        const std::array<std::uint32_t, 2> place
            = {static_cast<std::uint32_t>(_left(number)), static_cast<std::uint32_t>(_top(number))};
        xcb_grab_server(connection);
        xcb_configure_window(connection, _dragged->window(),
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place.data());
        xcb_copy_area(connection, _cells.pixmap(), _counterWindow, _context, 0, 0, 0, 0,
                      kPlace.width, kPlace.height);
        xcb_ungrab_server(connection);
        _screen.sync();
    }
    [[nodiscard]] std::optional<CounterPlace> counter() const override
    {
        return CounterPlace{kPlace.x, kPlace.y};
    }

private:
    static constexpr PXPixelRect kPlace{1700, 1050, kCounterCells * 8, 8};

    static int _left(std::uint32_t number)
    {
        return 600 + static_cast<int>(420 * std::sin(kTurn * number / 180));
    }
    static int _top(std::uint32_t number)
    {
        return 300 + static_cast<int>(220 * std::sin(kTurn * number / 120));
    }

    const BenchScreen &_screen;
    SharedPicture _wallpaper;
    SharedPicture _cells;
    xcb_gcontext_t _context;
    std::optional<Terminal> _dragged; ///< Above the wallpaper, so it comes later.
    xcb_window_t _counterWindow = XCB_NONE;
};

/// Nothing but the pointer moves, as a hand moves it: by relative motion, which makes the raw
/// motion that a warp would not. Lines of 300 steps to and fro over a flat window.
class PointerContent final : public Content {
public:
    explicit PointerContent(const BenchScreen &screen) : _screen(screen)
    {
        auto *connection = screen.connection();
        const xcb_pixmap_t flat = xcb_generate_id(connection);
        xcb_create_pixmap(connection, screen.depth(), flat, screen.root(), 1, 1);
        const xcb_gcontext_t pen = xcb_generate_id(connection);
        const std::uint32_t colour = 0xe0e0e0;
        xcb_create_gc(connection, pen, flat, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t dot = {0, 0, 1, 1};
        xcb_poly_fill_rectangle(connection, flat, pen, 1, &dot);
        static_cast<void>(screen.mapWindow(kArea, flat));
        // Without acceleration a step is what was asked for.
        xcb_change_pointer_control(connection, 1, 1, 0, 1, 1);
        xcb_warp_pointer(connection, XCB_NONE, screen.root(), 0, 0, 0, 0, kArea.x + kMargin,
                         kArea.y + kMargin);
        screen.sync();
    }
    void update(std::uint32_t number) override
    {
        const bool startsLine = number % kLine == 0;
        const int direction = number / kLine % 2 == 0 ? 1 : -1;
        xcb_test_fake_input(_screen.connection(), XCB_MOTION_NOTIFY, 1, XCB_CURRENT_TIME, XCB_NONE,
                            static_cast<std::int16_t>(startsLine ? 0 : direction * kStep),
                            static_cast<std::int16_t>(startsLine ? kLineHeight : 0), 0);
        const PXHandle<xcb_query_pointer_reply_t, std::free> pointer(xcb_query_pointer_reply(
            _screen.connection(), xcb_query_pointer(_screen.connection(), _screen.root()),
            nullptr));
        if (pointer)
            _place = std::to_string(pointer->root_x - kArea.x - kMargin) + " "
                + std::to_string(pointer->root_y - kArea.y - kMargin);
    }
    [[nodiscard]] std::optional<PXPixelRect> pointerArea() const override { return kArea; }
    [[nodiscard]] std::string logText() const override { return _place; }

private:
    static constexpr PXPixelRect kArea{160, 300, 1600, 500};
    static constexpr int kMargin = 40;
    static constexpr std::uint32_t kLine = 300;
    static constexpr int kStep = 5;
    static constexpr int kLineHeight = 12;

    const BenchScreen &_screen;
    std::string _place = "0 0";
};

} // namespace

std::unique_ptr<Content> makeDragContent(const BenchScreen &screen, std::uint32_t seed)
{
    return std::make_unique<DragContent>(screen, seed);
}

std::unique_ptr<Content> makePointerContent(const BenchScreen &screen)
{
    return std::make_unique<PointerContent>(screen);
}
