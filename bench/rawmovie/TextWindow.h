#pragma once

#include "foundation/PXGeometry.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QRect>
#include <QString>

#include <cstdint>
#include <random>

/// A window full of text, painted on a canvas: a terminal, an editor. What changed is answered in
/// pixels of the canvas, y down.
class TextWindow final {
public:
    struct Look {
        QColor paper, ink;
        int pixelSize;
    };

    /// Fills the window with text; the canvas outlives it.
    TextWindow(QImage &canvas, const QRect &place, const Look &look, std::uint32_t seed);

    /// Types one more character, as if into an editor; scrolls where the last line is full.
    PXPixelRect typeCharacter();
    /// Prints a whole line below the others, as a terminal does.
    PXPixelRect printLine();

private:
    QString _makeLine();
    void _scroll();
    void _paintCharacter(int column, QChar character, const QColor &paper);
    [[nodiscard]] PXPixelRect _cells(int column, int count) const;

    QImage &_canvas;
    const QRect _place;
    const Look _look;
    QFont _font;
    int _cellWidth;
    int _lineHeight;
    int _ascent;
    int _columns;
    int _lines;
    std::mt19937 _random;
    QString _line; ///< That is typed; the last of the window.
    int _typed = 0; ///< Characters of it.
};
