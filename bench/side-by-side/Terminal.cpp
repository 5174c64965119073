#include "bench/side-by-side/Terminal.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

Terminal::Terminal(const BenchScreen &screen, int x, int y, int columns, int rows, int points)
    : _screen(screen),
      _columns(columns),
      _rows(rows),
      _frame(screen.mapWindow({x, y, screen.width(), screen.height()}, XCB_NONE))
{
    _open();
    _start(points);
    _fitFrame();
}

Terminal::~Terminal()
{
    if (_xterm <= 0)
        return;
    kill(_xterm, SIGTERM);
    waitpid(_xterm, nullptr, 0);
}

void Terminal::_open()
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

void Terminal::_start(int points)
{
    const std::string into = std::to_string(_frame);
    const std::string far
        = "-S" + _name.substr(_name.rfind('/') + 1) + "/" + std::to_string(_master);
    const std::string size = std::to_string(points);
    const std::string geometry = std::to_string(_columns) + "x" + std::to_string(_rows);
    _xterm = fork();
    if (_xterm == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        execlp("xterm", "xterm", "-into", into.c_str(), "-geometry", geometry.c_str(), "-b", "0",
               "-bw", "0", "+sb", "-fa", "DejaVu Sans Mono", "-fs", size.c_str(), "-bg", "white",
               "-fg", "black", far.c_str(), nullptr);
        _exit(127);
    }
    close(_master);
    _readUntil('\n'); // The window's id, which xterm says of itself before it is mapped.
    wait();
}

void Terminal::_fitFrame()
{
    auto *connection = _screen.connection();
    const PXHandle<xcb_query_tree_reply_t, std::free> tree(
        xcb_query_tree_reply(connection, xcb_query_tree(connection, _frame), nullptr));
    if (!tree || xcb_query_tree_children_length(tree.get()) != 1)
        failBench("xterm is not where it was put");
    const PXHandle<xcb_get_geometry_reply_t, std::free> terminal(xcb_get_geometry_reply(
        connection, xcb_get_geometry(connection, *xcb_query_tree_children(tree.get())), nullptr));
    _width = terminal->width;
    _height = terminal->height;
    const std::uint32_t size[] = {terminal->width, terminal->height};
    xcb_configure_window(connection, _frame, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         size);
    _screen.sync();
}

void Terminal::send(const std::string &text) const
{
    if (write(_slave, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        failBench("xterm has gone");
}

void Terminal::wait() const
{
    // The answer to "where is the cursor" comes when all before it has been worked off.
    send("\033[6n");
    _readUntil('R');
}

void Terminal::_readUntil(char last) const
{
    for (char byte = 0; byte != last;) {
        if (read(_slave, &byte, 1) != 1)
            failBench("xterm does not answer");
    }
}
