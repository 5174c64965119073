#pragma once

#include "bench/side-by-side/FrameCounter.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXHandle.h"

#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <cstdio>
#include <string>

/// Prints one line to stderr and ends the program with status 1: the benchmark's programs have
/// nothing to save, and a run without one of them is worth nothing.
[[noreturn]] void failBench(const std::string &reason);

/// What a `PXHandle` calls for a file that is read, or whose end nothing depends on.
void closeBenchFile(std::FILE *file);

/// CLOCK_MONOTONIC in nanoseconds, and sleeping until it is `due`; false when a signal came first.
[[nodiscard]] std::int64_t monotonicNs();
bool sleepUntilNs(std::int64_t due);

/// A connection to $DISPLAY; it ends the program where there is none. Windows, pixmaps and the
/// like live as long as it does. One thread.
class BenchScreen final {
public:
    BenchScreen();

    [[nodiscard]] xcb_connection_t *connection() const { return _connection.get(); }
    [[nodiscard]] xcb_window_t root() const { return _screen->root; }
    [[nodiscard]] std::uint8_t depth() const { return _screen->root_depth; }
    [[nodiscard]] int width() const { return _screen->width_in_pixels; }
    [[nodiscard]] int height() const { return _screen->height_in_pixels; }

    /// Maps a window that the window manager leaves alone, on top of the others; the server itself
    /// paints `background` again where something uncovered it. Waits until it is there.
    [[nodiscard]] xcb_window_t mapWindow(const PXPixelRect &place, xcb_pixmap_t background) const;

    /// A graphics context that reads windows with all that lies on them and reports no exposures.
    [[nodiscard]] xcb_gcontext_t copyingContext() const;

    /// Returns when the server has carried out everything sent so far.
    void sync() const;

private:
    PXHandle<xcb_connection_t, xcb_disconnect> _connection;
    const xcb_screen_t *_screen = nullptr;
};

/// A pixmap whose pixels this program and the X server share: B, G, R, unused, top row first, rows
/// without gaps. Never freed; the server drops it with the connection.
class SharedPicture final {
public:
    SharedPicture(const BenchScreen &screen, int width, int height);

    [[nodiscard]] xcb_pixmap_t pixmap() const { return _pixmap; }
    [[nodiscard]] int width() const { return _width; }
    [[nodiscard]] int height() const { return _height; }
    [[nodiscard]] std::uint32_t *row(int y) const
    {
        return _pixels + static_cast<std::ptrdiff_t>(y) * _width;
    }

    /// Paints a number's cells over the picture.
    void stampCounter(const CounterPlace &place, std::uint32_t number) const;

private:
    int _width;
    int _height;
    xcb_pixmap_t _pixmap = XCB_NONE;
    std::uint32_t *_pixels = nullptr;
};
