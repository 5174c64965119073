#include "bench/side-by-side/Content.h"

#include <array>

namespace {

class StillContent final : public Content {
public:
    void update(std::uint32_t) override { }
    [[nodiscard]] std::int64_t interval(std::uint32_t) const override { return 0; }
};

class ClockContent final : public Content {
public:
    explicit ClockContent(const BenchScreen &screen)
        : _screen(screen),
          _picture(screen, kPlace.width, kPlace.height),
          _context(screen.copyingContext())
    {
        _picture.stampCounter(CounterPlace{}, 0);
        _window = screen.mapWindow(kPlace, _picture.pixmap());
    }
    void update(std::uint32_t number) override
    {
        _picture.stampCounter(CounterPlace{}, number);
        xcb_copy_area(_screen.connection(), _picture.pixmap(), _window, _context, 0, 0, 0, 0,
                      kPlace.width, kPlace.height);
        _screen.sync();
    }
    [[nodiscard]] std::int64_t interval(std::uint32_t) const override { return 4'000'000; }
    [[nodiscard]] std::optional<CounterPlace> counter() const override
    {
        return CounterPlace{kPlace.x, kPlace.y};
    }

private:
    static constexpr PXPixelRect kPlace{1600, 1000, kCounterCells * 8, 8};
    const BenchScreen &_screen;
    SharedPicture _picture;
    xcb_gcontext_t _context;
    xcb_window_t _window = XCB_NONE;
};

} // namespace

std::int64_t Content::interval(std::uint32_t) const
{
    return 33'333'333;
}

std::unique_ptr<Content> contentNamed(std::string_view name, const BenchScreen &screen,
                                      std::uint32_t seed)
{
    if (name == "still")
        return std::make_unique<StillContent>();
    if (name == "clock")
        return std::make_unique<ClockContent>(screen);
    if (name == "text")
        return makeTextContent(screen, seed);
    if (name == "animation")
        return makeAnimationContent(screen);
    if (name == "motion")
        return makeMotionContent(screen, seed);
    if (name == "drag")
        return makeDragContent(screen, seed);
    if (name == "pointer")
        return makePointerContent(screen);
    return nullptr;
}

std::string benchTextLine(BenchRandom &random)
{
    static constexpr std::array kWords
        = {"[CXX]",     "capture/",  "Building",     "object",   "Linking", "libwidgets.so",
           "warning:",  "-O2",       "src/main.cpp", "0x7ffe12", "ok",      "installed",
           "in",        "function",  "'update'",     "note:",    "->",      "static",
           "unpacking", "(1.4.2-3)", "Setting",      "up",       "done.",   "cache",
           "42%",       "reading"};
    const auto length = std::size_t{20} + static_cast<std::size_t>(random.below(58));
    std::string line;
    while (line.size() < length) {
        line += kWords[static_cast<std::size_t>(random.below(kWords.size()))];
        line += ' ';
    }
    line.resize(length);
    return line;
}
