#include "bench/side-by-side/Content.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kFrames = 60;
constexpr int kDiscs = 20;
constexpr double kTurn = 2 * 3.14159265358979;

std::uint32_t colour(double red, double green, double blue)
{
    const auto byte
        = [](double value) { return static_cast<std::uint32_t>(std::clamp(value, 0.0, 255.0)); };
    return byte(red) << 16U | byte(green) << 8U | byte(blue);
}

/// `value` in steps of 16, the steps between them as a pattern of dots: what makes a few colours
/// look like many.
double dithered(double value, int x, int y)
{
    constexpr std::array<std::array<int, 4>, 4> kOrder
        = {{{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}}};
    const int threshold
        = kOrder.at(static_cast<std::size_t>(y % 4)).at(static_cast<std::size_t>(x % 4));
    return 16 * std::floor((value + threshold) / 16);
}

/// A film of two seconds that repeats: a dithered sky whose light runs, striped hills that pass
/// by and shaded discs, each about as hard for a lossless codec as drawn animation is.
void paintFrame(const SharedPicture &film, int frame)
{
    const double turn = kTurn * frame / kFrames;
    const int top = frame * kHeight;
    for (int y = 0; y < kHeight; ++y) {
        std::uint32_t *pixels = film.row(top + y);
        for (int x = 0; x < kWidth; ++x) {
            const double light = dithered(40 * std::sin(11 * turn + x * 0.011 + y * 0.007), x, y);
            const double hill
                = 250 + 50 * std::sin(x * 0.012 + turn) + 9 * std::sin(x * 0.07 - turn);
            if (y < hill)
                pixels[x] = colour(100 + light, 150 + light, 210 + light);
            else if ((static_cast<int>(x + frame * 32.0 / 3) / 16 + (y / 16)) % 2 == 0)
                pixels[x] = colour(50, 140, 60);
            else
                pixels[x] = colour(40, 120, 50);
        }
    }
    for (int disc = 0; disc < kDiscs; ++disc) {
        const double angle = turn + disc * kTurn / kDiscs;
        const double x0 = 320 + 250 * std::cos(angle);
        const double y0 = 170 + 110 * std::sin(angle * (1 + disc % 2));
        const int radius = 18 + 27 * disc / kDiscs;
        for (int y = -radius; y <= radius; ++y) {
            for (int x = -radius; x <= radius; ++x) {
                const int px = static_cast<int>(x0) + x;
                const int py = static_cast<int>(y0) + y;
                if (x * x + y * y > radius * radius || px < 0 || py < 0 || px >= kWidth
                    || py >= kHeight)
                    continue;
                const double shade = x + y < -radius / 2 ? 230 : 180;
                film.row(top + py)[px] = colour(shade, shade * disc / kDiscs, 90);
            }
        }
    }
}

class AnimationContent final : public Content {
public:
    explicit AnimationContent(const BenchScreen &screen)
        : _screen(screen),
          _film(screen, kWidth, kHeight * kFrames),
          _context(screen.copyingContext())
    {
        for (int frame = 0; frame < kFrames; ++frame)
            paintFrame(_film, frame);
        _window = screen.mapWindow({700, 400, kWidth, kHeight}, XCB_NONE);
        update(0);
    }
    void update(std::uint32_t number) override
    {
        const int top = static_cast<int>(number % kFrames) * kHeight;
        _film.stampCounter({.x = 0, .y = top}, number);
        xcb_copy_area(_screen.connection(), _film.pixmap(), _window, _context, 0,
                      static_cast<std::int16_t>(top), 0, 0, kWidth, kHeight);
        _screen.sync();
    }
    [[nodiscard]] std::optional<CounterPlace> counter() const override
    {
        return CounterPlace{700, 400};
    }

private:
    const BenchScreen &_screen;
    SharedPicture _film;
    xcb_gcontext_t _context;
    xcb_window_t _window;
};

} // namespace

std::unique_ptr<Content> makeAnimationContent(const BenchScreen &screen)
{
    return std::make_unique<AnimationContent>(screen);
}
