#include "bench/rawmovie/TextWindow.h"

#include <QFontMetrics>
#include <QPainter>

#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

// What a build or a source file is made of: the same words again and again.
constexpr std::array kWords{u"const",  u"auto",     u"return",  u"if",    u"(frame",   u"->",
                            u"index;", u"{",        u"}",       u"std::", u"[128/512", u"Building",
                            u"CXX",    u"object",   u"capture", u"0x3F2", u"== 0)",    u"//",
                            u"pixels", u"warning:", u"while",   u"rect.", u"width,",   u"height);"};

} // namespace

TextWindow::TextWindow(QImage &canvas, const QRect &place, const Look &look, std::uint32_t seed)
    : _canvas(canvas), _place(place), _look(look), _font(u"DejaVu Sans Mono"_s), _random(seed)
{
    _font.setPixelSize(look.pixelSize);
    const QFontMetrics metrics(_font);
    _cellWidth = metrics.horizontalAdvance(u'0');
    _lineHeight = metrics.lineSpacing();
    _ascent = metrics.ascent();
    _columns = place.width() / _cellWidth;
    _lines = place.height() / _lineHeight;
    QPainter(&_canvas).fillRect(place, look.paper);
    for (int i = 0; i < _lines; ++i)
        printLine();
}

PXPixelRect TextWindow::typeCharacter()
{
    if (_typed >= _line.size()) {
        _paintCharacter(_typed, u' ', _look.paper);
        _scroll();
        _line = _makeLine();
        _typed = 0;
        return {_place.x(), _place.y(), _place.width(), _place.height()};
    }
    _paintCharacter(_typed, _line[_typed], _look.paper);
    ++_typed;
    _paintCharacter(_typed, u' ', _look.ink); // The cursor.
    return _cells(_typed - 1, 2);
}

PXPixelRect TextWindow::printLine()
{
    _scroll();
    QPainter painter(&_canvas);
    painter.setFont(_font);
    painter.setPen(_random() % 6 == 0 ? QColor(90, 160, 90) : _look.ink);
    const PXPixelRect cells = _cells(0, _columns);
    painter.drawText(cells.x, cells.y + _ascent, _makeLine());
    return {_place.x(), _place.y(), _place.width(), _place.height()};
}

QString TextWindow::_makeLine()
{
    QString line(static_cast<qsizetype>(_random() % 4 * 4), u' ');
    const auto length = static_cast<qsizetype>(_random() % static_cast<unsigned>(_columns * 2 / 3));
    while (line.size() < length) {
        line += QStringView(kWords[_random() % kWords.size()]);
        line += u' ';
    }
    return line.left(_columns - 1); // The cursor stands behind it.
}

void TextWindow::_scroll()
{
    const auto rowBytes = static_cast<std::size_t>(_place.width()) * 4;
    const auto pixels
        = [&](int y) { return _canvas.scanLine(y) + static_cast<std::ptrdiff_t>(_place.x()) * 4; };
    for (int y = _place.y(); y < _place.y() + (_lines - 1) * _lineHeight; ++y)
        std::memcpy(pixels(y), pixels(y + _lineHeight), rowBytes);
    const PXPixelRect last = _cells(0, _columns);
    QPainter(&_canvas).fillRect(_place.x(), last.y, _place.width(), last.height, _look.paper);
}

void TextWindow::_paintCharacter(int column, QChar character, const QColor &paper)
{
    const PXPixelRect cell = _cells(column, 1);
    QPainter painter(&_canvas);
    painter.setFont(_font);
    painter.setPen(_look.ink);
    painter.fillRect(cell.x, cell.y, cell.width, cell.height, paper);
    painter.drawText(cell.x, cell.y + _ascent, character);
}

PXPixelRect TextWindow::_cells(int column, int count) const
{
    return {_place.x() + column * _cellWidth, _place.y() + (_lines - 1) * _lineHeight,
            count * _cellWidth, _lineHeight};
}
