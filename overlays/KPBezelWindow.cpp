#include "overlays/KPBezelWindow.h"

#include "widgets/PXPixelPainter.h"

#include <QPaintEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kFadeInStep = 1.0 / 8; ///< The key is to be seen soon.
constexpr double kFadeOutStep = 1.0 / 15;

QSize withInsets(const QSize &interior)
{
    return interior + QSize(2 * KPBezelWindow::kInset, 2 * KPBezelWindow::kInset);
}

int radiusIn(const QRect &rect, int radius)
{
    return std::min({radius, rect.width() / 2, rect.height() / 2});
}

QRegion roundedRegion(const QRect &rect, int wanted)
{
    const int radius = radiusIn(rect, wanted);
    QRegion region(rect.adjusted(0, radius, 0, -radius));
    for (int i = 0; i < radius; ++i) {
        const double y = radius - i - 0.5;
        const int cut = radius - static_cast<int>(std::lround(std::sqrt(radius * radius - y * y)));
        const QRect row(rect.x() + cut, rect.y() + i, rect.width() - 2 * cut, 1);
        region += row;
        region += row.translated(0, rect.height() - 1 - 2 * i);
    }
    return region;
}

} // namespace

KPBezelWindow::KPBezelWindow(PXWindowServer &server, const PXPixelRect &contentRect)
    : BROverlayWindow(server, contentRect),
      mInteriorView(new QWidget),
      _interiorSize(QSize(contentRect.width, contentRect.height) - withInsets({0, 0}))
{
    setLevel(PXWindowLevel::Maximum);
    setIgnoresMouseEvents(true);
    setCanBecomeKeyWindow(false);
    setCanBecomeMainWindow(false);
    setSticky(true);
    setContentView(mInteriorView);
}

QSize KPBezelWindow::shownInteriorSize() const
{
    return _shownInteriorSize.value_or(_interiorSize);
}

QRect KPBezelWindow::_bezelRectIn(const PXPixelRect &frame) const
{
    const QSize size = withInsets(shownInteriorSize());
    const KPKeyboardPosition fixed = fixedPoint();
    const int above = frame.height - size.height();
    return {{KPAnchoredOffset(fixed.x, frame.width, size.width()),
             above - KPAnchoredOffset(fixed.y, frame.height, size.height())},
            size};
}

QRect KPBezelWindow::interiorRect() const
{
    return _bezelRect().adjusted(kInset, kInset, -kInset, -kInset);
}

void KPBezelWindow::setInteriorSize(const QSize &size, bool display)
{
    _interiorSize = size;
    _fitFrame(display);
}

void KPBezelWindow::setShownInteriorSize(const std::optional<QSize> &size)
{
    if (_shownInteriorSize == size)
        return;
    const QSize before = shownInteriorSize();
    _shownInteriorSize = size;
    _fitFrame(before != shownInteriorSize());
}

void KPBezelWindow::_fitFrame(bool display)
{
    const QSize size = withInsets(_interiorSize.expandedTo(shownInteriorSize()));
    resizeFrame(size, display);
    if (display)
        update();
}

void KPBezelWindow::resizeFrame(const QSize &size, bool)
{
    const int bottom = frame().y + frame().height;
    setBezelFrame({frame().x, bottom - size.height(), size.width(), size.height()});
}

void KPBezelWindow::setStyle(const KPKeystrokeStyle &style)
{
    if (_style == style)
        return;
    _style = style;
    setBezelFrame(frame());
    update();
}

void KPBezelWindow::followCompositing()
{
    setBezelFrame(frame());
    update();
}

void KPBezelWindow::setBezelFrame(const PXPixelRect &newFrame)
{
    const QRect shape = isCompositing() ? QRect() : _bezelRectIn(newFrame);
    const int radius = _style.cornerRadius();
    if (newFrame == frame() && shape == _shape && radius == _shapeRadius)
        return;
    _shape = shape;
    _shapeRadius = radius;
    setFrame(newFrame,
             shape.isEmpty() ? std::nullopt : std::optional(roundedRegion(shape, radius)));
}

void KPBezelWindow::paintEvent(QPaintEvent *)
{
    const QRect bezel = _bezelRect();
    const double radius = radiusIn(bezel, _style.cornerRadius());
    PXPixelPainter painter(this);
    if (!isCompositing()) // Edges that blend into nothing would be black.
        painter.fillRect(bezel, _style.backgroundColor);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(_style.backgroundColor);
    painter.drawRoundedRect(bezel, radius, radius);
    painter.setPen(_style.borderColor());
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(bezel).adjusted(0.5, 0.5, -0.5, -0.5), radius - 0.5,
                            radius - 0.5);
}

bool KPBezelWindow::_fadesAtOnce() const
{
    return !isCompositing() || windowServer().prefersReducedMotion();
}

bool KPBezelWindow::fadeIn()
{
    setAlphaValue(_fadesAtOnce() ? 1 : std::min(alphaValue() + kFadeInStep, 1.0));
    return alphaValue() >= 1;
}

bool KPBezelWindow::fadeOut()
{
    setAlphaValue(_fadesAtOnce() ? 0 : std::max(alphaValue() - kFadeOutStep, 0.0));
    return alphaValue() <= 0;
}
