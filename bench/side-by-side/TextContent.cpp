#include "bench/side-by-side/Content.h"
#include "bench/side-by-side/Terminal.h"

#include <vector>

namespace {

/// A terminal that scrolls a line at a time as a build does, nine lines a second on average but
/// never two within 80 ms, so that a recorder of 30 frames a second can catch each. Its first row
/// stays and shows the number in black and white cells.
class TextContent final : public Content {
public:
    TextContent(const BenchScreen &screen, std::uint32_t seed)
        : _random(seed), _terminal(screen, kLeft, kTop, 80, 24, 8)
    {
        std::string screenful = "\033[2;" + std::to_string(_terminal.rows()) + "r\033[2;1H";
        for (int row = 2; row <= _terminal.rows(); ++row)
            screenful += benchTextLine(_random) + (row < _terminal.rows() ? "\r\n" : "");
        _terminal.send(screenful + _counterText(0));
        _terminal.wait();
        for (int i = 0; i < 997; ++i)
            _intervals.push_back(80'000'000LL + 1'000'000LL * _random.below(63));
    }

    void update(std::uint32_t number) override
    {
        const int colour = _random.below(8) == 0 ? 31 + _random.below(6) : 0;
        _terminal.send("\r\n\033[" + std::to_string(colour) + "m" + benchTextLine(_random)
                       + "\033[0m" + _counterText(number));
    }
    [[nodiscard]] std::int64_t interval(std::uint32_t number) const override
    {
        return _intervals[number % _intervals.size()];
    }
    [[nodiscard]] std::optional<CounterPlace> counter() const override
    {
        return CounterPlace{kLeft, kTop, _terminal.cellWidth(), _terminal.cellHeight()};
    }

private:
    static constexpr int kLeft = 420;
    static constexpr int kTop = 260;

    static std::string _counterText(std::uint32_t number)
    {
        std::string text = "\0337\033[1;1H";
        for (const bool isWhite : counterCells(number))
            text += isWhite ? "\033[48;5;231m " : "\033[48;5;16m ";
        return text + "\033[0m\0338";
    }

    BenchRandom _random;
    Terminal _terminal;
    std::vector<std::int64_t> _intervals;
};

} // namespace

std::unique_ptr<Content> makeTextContent(const BenchScreen &screen, std::uint32_t seed)
{
    return std::make_unique<TextContent>(screen, seed);
}
