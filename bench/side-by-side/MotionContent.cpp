#include "bench/side-by-side/Content.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

namespace {

constexpr int kWidth = 2880;
constexpr int kHeight = 1620;
constexpr int kOctaves = 8;
// Each octave is weaker than the one before by this: as rough as a decoded film, which has no
// grain.
constexpr float kRoughness = 1.8F;
/// Of brightness, from one colour of the map to the next.
constexpr int kStep = 3;

/// One octave of clouds: random heights on a grid of `step` pixels, blended smoothly between.
void addClouds(std::vector<float> &heights, int step, float strength, BenchRandom &random)
{
    const int columns = kWidth / step + 2;
    std::vector<float> grid(static_cast<std::size_t>(columns) * (kHeight / step + 2));
    std::ranges::generate(grid, [&] { return random.below(65536) / 65536.0F - 0.5F; });
    const auto smooth = [](float t) { return t * t * (3 - 2 * t); };
    for (int y = 0; y < kHeight; ++y) {
        const float v = smooth(static_cast<float>(y % step) / step);
        const float *upper = grid.data() + static_cast<std::ptrdiff_t>(y / step) * columns;
        const float *lower = upper + columns;
        float *out = heights.data() + static_cast<std::ptrdiff_t>(y) * kWidth;
        for (int x = 0; x < kWidth; ++x) {
            const float u = smooth(static_cast<float>(x % step) / step);
            const int i = x / step;
            const float above = upper[i] + u * (upper[i + 1] - upper[i]);
            const float below = lower[i] + u * (lower[i + 1] - lower[i]);
            out[x] += strength * (above + v * (below - above));
        }
    }
}

/// Something like a landscape filmed from the air: detail in every size, colours that belong
/// together.
void paintLandscape(const SharedPicture &picture, std::uint32_t seed)
{
    BenchRandom random(seed);
    std::vector<float> heights(static_cast<std::size_t>(kWidth) * kHeight);
    float strength = 1;
    for (int octave = 0; octave < kOctaves; ++octave) {
        addClouds(heights, 512 >> octave, strength, random);
        strength /= kRoughness;
    }
    for (int y = 0; y < kHeight; ++y) {
        std::uint32_t *pixels = picture.row(y);
        for (int x = 0; x < kWidth; ++x) {
            const float height = heights[static_cast<std::size_t>(y) * kWidth + x];
            // In steps, as a relief map is coloured: areas of one colour with winding borders.
            const int light
                = std::clamp(static_cast<int>(128 + 120 * height), 0, 255) / kStep * kStep;
            const int green = std::clamp(light + 12, 0, 255);
            const int blue = std::clamp(light * 3 / 4 + 20, 0, 255);
            pixels[x] = static_cast<std::uint32_t>(light << 16 | green << 8 | blue);
        }
    }
}

/// The whole screen pans over the landscape, back and forth, each update one copy. The counter is
/// painted into the landscape where the next view's corner will be, and wiped off afterwards.
class MotionContent final : public Content {
public:
    MotionContent(const BenchScreen &screen, std::uint32_t seed)
        : _screen(screen), _landscape(screen, kWidth, kHeight), _context(screen.copyingContext())
    {
        if (screen.width() > kWidth || screen.height() > kHeight)
            failBench("the screen is larger than the picture that moves over it");
        paintLandscape(_landscape, seed);
        _window = screen.mapWindow({0, 0, screen.width(), screen.height()}, XCB_NONE);
        update(0);
    }
    void update(std::uint32_t number) override
    {
        const int x = backAndForth(static_cast<int>(number) * 5, kWidth - _screen.width());
        const int y = backAndForth(static_cast<int>(number) * 2, kHeight - _screen.height());
        std::array<std::array<std::uint32_t, kCellsWidth>, kCellsHeight> covered = {};
        for (int row = 0; row < kCellsHeight; ++row)
            std::copy_n(_landscape.row(y + row) + x, kCellsWidth,
                        covered.at(static_cast<std::size_t>(row)).begin());
        _landscape.stampCounter({.x = x, .y = y}, number);
        xcb_copy_area(_screen.connection(), _landscape.pixmap(), _window, _context,
                      static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0, 0,
                      static_cast<std::uint16_t>(_screen.width()),
                      static_cast<std::uint16_t>(_screen.height()));
        _screen.sync();
        for (int row = 0; row < kCellsHeight; ++row)
            std::ranges::copy(covered.at(static_cast<std::size_t>(row)),
                              _landscape.row(y + row) + x);
    }
    [[nodiscard]] std::optional<CounterPlace> counter() const override { return CounterPlace{}; }

private:
    static constexpr std::size_t kCellsWidth = kCounterCells * std::size_t{8};
    static constexpr int kCellsHeight = 8;

    static int backAndForth(int way, int range)
    {
        return range == 0 ? 0 : range - std::abs(way % (2 * range) - range);
    }

    const BenchScreen &_screen;
    SharedPicture _landscape;
    xcb_gcontext_t _context;
    xcb_window_t _window;
};

} // namespace

std::unique_ptr<Content> makeMotionContent(const BenchScreen &screen, std::uint32_t seed)
{
    return std::make_unique<MotionContent>(screen, seed);
}
