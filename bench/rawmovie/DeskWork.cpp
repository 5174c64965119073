#include "bench/rawmovie/DeskWork.h"

#include <QPainter>

#include <cmath>

namespace {

constexpr int kEndOfTyping = 24 * DeskWork::kFramesPerSecond;
constexpr int kEndOfScrolling = 38 * DeskWork::kFramesPerSecond;
constexpr int kEndOfDragging = 46 * DeskWork::kFramesPerSecond;

constexpr QRect kEditor(1000, 80, 860, 620);
constexpr QRect kTerminal(40, 60, 780, 640);
constexpr QRect kFilm(1400, 760, 400, 225);
constexpr QSize kDragged(640, 440);
constexpr int kFilmFrames = 90;
constexpr double kTurn = 2 * 3.14159265358979;

/// A wallpaper, of which a lossless codec can make as little as of most.
QImage makeWallpaper()
{
    QImage canvas(DeskWork::kWidth, DeskWork::kHeight, QImage::Format_RGB32);
    for (int y = 0; y < DeskWork::kHeight; ++y) {
        auto *row = reinterpret_cast<QRgb *>(canvas.scanLine(y));
        for (int x = 0; x < DeskWork::kWidth; ++x)
            row[x] = qRgb(20 + x / 40, 40 + (x + y) / 60, 90 + y / 20);
    }
    return canvas;
}

PXPixelRect pixelRect(const QRect &rect)
{
    return {rect.x(), rect.y(), rect.width(), rect.height()};
}

} // namespace

DeskWork::DeskWork()
    : _canvas(makeWallpaper()),
      _editor(_canvas, kEditor, {QColor(252, 252, 248), QColor(40, 40, 60), 15}, 1),
      _terminal(_canvas, kTerminal, {QColor(24, 24, 28), QColor(210, 210, 200), 14}, 2),
      _dragged(kDragged, QImage::Format_RGB32)
{
    QPainter(&_dragged).fillRect(0, 0, kDragged.width(), 24, QColor(70, 90, 140));
    const TextWindow text(_dragged, QRect(0, 24, kDragged.width(), kDragged.height() - 24),
                          {QColor(240, 240, 235), QColor(30, 30, 30), 13}, 3);
    _makeFilm();
}

/// Drawn animation: a sky in steps, and shaded discs that go around.
void DeskWork::_makeFilm()
{
    for (int frame = 0; frame < kFilmFrames; ++frame) {
        QImage picture(kFilm.size(), QImage::Format_RGB32);
        const double turn = kTurn * frame / kFilmFrames;
        QPainter painter(&picture);
        for (int y = 0; y < kFilm.height(); ++y) {
            const int light = static_cast<int>(30 * std::sin(turn + y * 0.02)) / 4 * 4;
            painter.fillRect(0, y, kFilm.width(), 1, QColor(110 + light, 150 + light, 200 + light));
        }
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        for (int disc = 0; disc < 14; ++disc) {
            const double angle = turn + disc * kTurn / 14;
            const QPointF centre(200 + 160 * std::cos(angle),
                                 112 + 75 * std::sin(angle * (1 + disc % 2)));
            QRadialGradient shade(centre - QPointF(8, 8), 28);
            shade.setColorAt(0, QColor(250, 240, 200));
            shade.setColorAt(1, QColor(180, 12 * disc, 90));
            painter.setBrush(shade);
            painter.drawEllipse(centre, 24, 24);
        }
        _film.push_back(picture);
    }
}

std::vector<PXPixelRect> DeskWork::paintNextFrame()
{
    std::vector<PXPixelRect> changed;
    const int frame = _frame++ % kFramesPerMinute;
    if (frame == kEndOfDragging)
        _drop(changed);
    if (frame < kEndOfTyping) {
        changed.push_back(_editor.typeCharacter());
    } else if (frame < kEndOfScrolling) {
        changed.push_back(_terminal.printLine());
    } else if (frame < kEndOfDragging) {
        _dragTo(static_cast<double>(frame - kEndOfScrolling) / (kEndOfDragging - kEndOfScrolling),
                changed);
    } else {
        QPainter(&_canvas).drawImage(kFilm.topLeft(),
                                     _film[static_cast<std::size_t>(frame % kFilmFrames)]);
        changed.push_back(pixelRect(kFilm));
    }
    return changed;
}

/// `progress` from 0 to 1: across the screen and back.
void DeskWork::_dragTo(double progress, std::vector<PXPixelRect> &changed)
{
    if (_place)
        _drop(changed);
    else
        _below = _canvas.copy();
    const double angle = kTurn * progress;
    _place = QPoint(650 + static_cast<int>(550 * std::cos(angle)),
                    330 + static_cast<int>(220 * std::sin(3 * angle)));
    QPainter(&_canvas).drawImage(*_place, _dragged);
    changed.push_back(pixelRect(QRect(*_place, kDragged)));
}

void DeskWork::_drop(std::vector<PXPixelRect> &changed)
{
    QPainter(&_canvas).drawImage(*_place, _below, QRect(*_place, kDragged));
    changed.push_back(pixelRect(QRect(*_place, kDragged)));
    _place.reset();
}
