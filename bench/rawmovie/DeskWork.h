#pragma once

#include "bench/rawmovie/TextWindow.h"
#include "foundation/PXGeometry.h"

#include <QImage>

#include <optional>
#include <vector>

/// Somebody's work at a screen, painted and not recorded so that each run has the same. Something
/// changes in every frame. Each minute has 24 seconds of typing, 14 of text that scrolls, 8 of a
/// window that is dragged and 14 of a film in a window. Needs a QGuiApplication, for its fonts.
class DeskWork final {
public:
    static constexpr int kWidth = 1920;
    static constexpr int kHeight = 1080;
    static constexpr int kFramesPerSecond = 30;
    static constexpr int kFramesPerMinute = 60 * kFramesPerSecond;

    DeskWork();

    /// Paints one more frame over the one before; answers what changed, y down. The first has no
    /// frame before it.
    std::vector<PXPixelRect> paintNextFrame();
    [[nodiscard]] QImage &canvas() { return _canvas; }

private:
    void _dragTo(double progress, std::vector<PXPixelRect> &changed);
    void _drop(std::vector<PXPixelRect> &changed);
    void _makeFilm();

    QImage _canvas;
    TextWindow _editor;
    TextWindow _terminal;
    QImage _dragged; ///< A whole window.
    QImage _below; ///< The screen without it, while it is dragged.
    std::optional<QPoint> _place; ///< Of it, while it is dragged.
    std::vector<QImage> _film;
    int _frame = 0;
};
