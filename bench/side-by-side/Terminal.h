#pragma once

#include "bench/side-by-side/BenchScreen.h"

#include <sys/types.h>

#include <string>

/// A real xterm in a window that the window manager leaves alone, black
/// on white, antialiased; this program is what runs in it. It ends with the object.
class Terminal final {
public:
    /// Its upper left corner is at x, y, its letters are `points` high.
    Terminal(const BenchScreen &screen, int x, int y, int columns, int rows, int points);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    [[nodiscard]] xcb_window_t window() const { return _frame; }
    [[nodiscard]] int rows() const { return _rows; }
    /// Of the window and of one character, in pixels.
    [[nodiscard]] int width() const { return _width; }
    [[nodiscard]] int height() const { return _height; }
    [[nodiscard]] int cellWidth() const { return _width / _columns; }
    [[nodiscard]] int cellHeight() const { return _height / _rows; }

    /// One write of less than a terminal's buffer: xterm reads and paints it in one go.
    void send(const std::string &text) const;
    /// Returns when all that was sent has been worked off.
    void wait() const;

private:
    void _open();
    void _start(int points);
    void _fitFrame();
    void _readUntil(char last) const;

    const BenchScreen &_screen;
    int _columns;
    int _rows;
    xcb_window_t _frame;
    std::string _name;
    int _master = -1;
    int _slave = -1;
    pid_t _xterm = -1;
    int _width = 0;
    int _height = 0;
};
