#pragma once

#include "foundation/PXGeometry.h"

#include <cstdint>
#include <memory>
#include <random>

class TestConnection;
class VirtualDisplay;

/// A window that a test paints, on a connection of its own, as another program would. Each call
/// returns when the server has done it; a compositor may show it later.
class PaintedWindow final {
public:
    enum class Kind {
        Unmanaged, ///< Stands where it was put; no window manager touches it.
        Managed,
    };
    enum class Showing { Now, Later };

    /// All of it `color` (0xRRGGBB), over the windows before it.
    PaintedWindow(const VirtualDisplay &display, const PXPixelRect &rect,
                  std::uint32_t color = 0x3060A0, Kind kind = Kind::Unmanaged,
                  Showing showing = Showing::Now);
    ~PaintedWindow();
    PaintedWindow(const PaintedWindow &) = delete;
    PaintedWindow &operator=(const PaintedWindow &) = delete;

    /// `rect` in the window's own pixels.
    void fill(const PXPixelRect &rect, std::uint32_t color);
    /// Some rectangles in places and colours of `random`.
    void fillAtRandom(std::mt19937 &random, int count);
    /// Scrolls up by `rows`, as a terminal does, and fills the last rows.
    void scroll(int rows, std::uint32_t color);
    void moveTo(int x, int y);
    void dragBy(int dx, int dy) { moveTo(_rect.x + dx, _rect.y + dy); }
    void raise();
    void hide();
    void show();

    /// The pointer over this window: a square of `size` pixels, its hot spot at `hotX`, `hotY`;
    /// a size of 0 is an invisible one.
    void setCursor(int size, int hotX, int hotY);

    /// From now on the server keeps what other windows cover: nobody paints it anew. On a display
    /// that was started with "+bs".
    void keepWhatIsCovered();

    [[nodiscard]] const PXPixelRect &rect() const { return _rect; }
    [[nodiscard]] std::uint32_t id() const { return _window; }

private:
    std::unique_ptr<TestConnection> _connection;
    PXPixelRect _rect;
    std::uint32_t _window = 0;
    std::uint32_t _context = 0;
};
