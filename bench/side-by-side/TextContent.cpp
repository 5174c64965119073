#include "bench/side-by-side/Content.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace {

constexpr int kColumns = 80;
constexpr int kRows = 24;

/// A real xterm that scrolls a line at a time as a build does, eight lines a second on average but
/// never two within 80 ms, so that a recorder of 30 frames a second can catch each. Its first row
/// stays and shows the number in black and white cells; the program here is the terminal's
/// far side.
class TextContent final : public Content {
public:
    TextContent(const BenchScreen &screen, std::uint32_t seed) : _screen(screen), _random(seed)
    {
        _frame = screen.mapWindow({420, 260, 1000, 700}, XCB_NONE);
        _openTerminal();
        _startXterm();
        _placeCounter();
        std::string screenful = "\033[2;" + std::to_string(kRows) + "r\033[2;1H";
        for (int row = 2; row <= kRows; ++row)
            screenful += benchTextLine(_random) + (row < kRows ? "\r\n" : "");
        _send(screenful + _counterText(0));
        _waitForXterm();
        for (int i = 0; i < 997; ++i)
            _intervals.push_back(80'000'000LL + 1'000'000LL * _random.below(91));
    }
    ~TextContent() override
    {
        if (_xterm > 0) {
            kill(_xterm, SIGTERM);
            waitpid(_xterm, nullptr, 0);
        }
    }

    void update(std::uint32_t number) override
    {
        const int colour = _random.below(8) == 0 ? 31 + _random.below(6) : 0;
        _send("\r\n\033[" + std::to_string(colour) + "m" + benchTextLine(_random) + "\033[0m"
              + _counterText(number));
    }
    [[nodiscard]] std::int64_t interval(std::uint32_t number) const override
    {
        return _intervals[number % _intervals.size()];
    }
    [[nodiscard]] std::optional<CounterPlace> counter() const override { return _counter; }

private:
    void _openTerminal()
    {
        _master = posix_openpt(O_RDWR | O_NOCTTY);
        if (_master < 0 || grantpt(_master) != 0 || unlockpt(_master) != 0)
            failBench("no pseudo terminal");
        _name = ptsname(_master);
        _slave = open(_name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings = {};
        tcgetattr(_slave, &settings);
        cfmakeraw(&settings);
        tcsetattr(_slave, TCSANOW, &settings);
    }

    void _startXterm()
    {
        const std::string into = std::to_string(_frame);
        const std::string far
            = "-S" + _name.substr(_name.rfind('/') + 1) + "/" + std::to_string(_master);
        const std::string geometry = std::to_string(kColumns) + "x" + std::to_string(kRows);
        _xterm = fork();
        if (_xterm == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            execlp("xterm", "xterm", "-into", into.c_str(), "-geometry", geometry.c_str(), "-b",
                   "0", "-bw", "0", "+sb", "-fn", "fixed", "-bg", "white", "-fg", "black",
                   far.c_str(), nullptr);
            _exit(127);
        }
        close(_master);
        _readUntil('\n'); // The window's id, which xterm says of itself before it is mapped.
        _waitForXterm();
    }

    void _waitForXterm() const
    {
        // The answer to "where is the cursor" comes when all before it has been worked off.
        _send("\033[6n");
        _readUntil('R');
    }

    void _placeCounter()
    {
        auto *connection = _screen.connection();
        const PXHandle<xcb_query_tree_reply_t, std::free> tree(
            xcb_query_tree_reply(connection, xcb_query_tree(connection, _frame), nullptr));
        if (!tree || xcb_query_tree_children_length(tree.get()) != 1)
            failBench("xterm is not where it was put");
        const PXHandle<xcb_get_geometry_reply_t, std::free> terminal(xcb_get_geometry_reply(
            connection, xcb_get_geometry(connection, *xcb_query_tree_children(tree.get())),
            nullptr));
        const std::uint32_t size[] = {terminal->width, terminal->height};
        xcb_configure_window(connection, _frame, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                             size);
        _screen.sync();
        _counter = {420, 260, terminal->width / kColumns, terminal->height / kRows};
    }

    static std::string _counterText(std::uint32_t number)
    {
        std::string text = "\0337\033[1;1H";
        for (const bool isWhite : counterCells(number))
            text += isWhite ? "\033[48;5;231m " : "\033[48;5;16m ";
        return text + "\033[0m\0338";
    }

    void _send(const std::string &text) const
    {
        // One write of less than a terminal's buffer: xterm reads and paints it in one go.
        if (write(_slave, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            failBench("xterm has gone");
    }

    void _readUntil(char last) const
    {
        for (char byte = 0; byte != last;) {
            if (read(_slave, &byte, 1) != 1)
                failBench("xterm does not answer");
        }
    }

    const BenchScreen &_screen;
    BenchRandom _random;
    xcb_window_t _frame = XCB_NONE;
    std::string _name;
    int _master = -1;
    int _slave = -1;
    pid_t _xterm = -1;
    CounterPlace _counter;
    std::vector<std::int64_t> _intervals;
};

} // namespace

std::unique_ptr<Content> makeTextContent(const BenchScreen &screen, std::uint32_t seed)
{
    return std::make_unique<TextContent>(screen, seed);
}
