#include "overlays/BRScreenSelectionView.h"
#include "widgets/PXPixelPainter.h"
#include "widgets/PXShadow.h"

#include <QFontDatabase>
#include <QFontMetrics>
#include <QPaintEvent>
#include <QPainterPath>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace Qt::StringLiterals;
using namespace BRSelectionGeometry;

namespace {

constexpr double kDimming = 0.5; ///< Of black, over what is not selected.
constexpr int kFrameWidth = 2; ///< Of the black line around the selection.
constexpr double kFrameShadowBlur = 10;
constexpr int kHandleReach = 16; ///< How far a handle and its shadow lie inside or outside.
constexpr int kInfoFontSize = 18;
constexpr int kInfoRoom = 40; ///< That the box wants around its text.
constexpr int kInfoMargin = 8;
constexpr int kInfoGap = 8; ///< Between labels and values.
const QString kInfoLabels = u"X Loc:\nY Loc:\nWidth:\nHeight:"_s;

PXShadow frameShadow()
{
    return {Qt::black, kFrameShadowBlur, {}};
}

QFont infoFont()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setBold(true);
    font.setPixelSize(kInfoFontSize);
    return font;
}

QSize sizeOf(const QString &text)
{
    return QFontMetrics(infoFont()).size(0, text);
}

QString infoText(const PXRect &selection)
{
    const auto number = [](float value) { return PXClampToInt(static_cast<double>(value)); };
    return QString::asprintf("%d\n%d\n%d\n%d", number(selection.x), number(selection.y),
                             number(selection.width), number(selection.height));
}

/// Its centre: inside the selection, else right, left, above or below it, else inside all the same.
QPointF infoCenter(const PXRect &selection, PXSize frame, int roomWidth, int roomHeight)
{
    const auto across = static_cast<float>(roomWidth);
    const auto up = static_cast<float>(roomHeight);
    const float midX = selection.x + selection.width / 2;
    const float midY = selection.y + selection.height / 2;
    const float halfAcross = std::floor(across / 2);
    const float halfUp = std::floor(up / 2);
    PXPoint center = {midX, midY};
    if (selection.width > across && selection.height > up)
        ;
    else if (frame.width - selection.maxX() > across)
        center.x = selection.maxX() + halfAcross;
    else if (selection.x > across)
        center.x = selection.x - halfAcross;
    else if (frame.height - selection.maxY() > up)
        center.y = selection.maxY() + halfUp;
    else if (selection.y > up)
        center.y = selection.y - halfUp;
    return {static_cast<double>(center.x), static_cast<double>(center.y)};
}

} // namespace

void BRScreenSelectionView::setBackgroundImage(const QImage &image)
{
    _backgroundImage = image;
    _dimmedImage = image.copy();
    if (!image.isNull()) {
        QPainter painter(&_dimmedImage);
        painter.fillRect(_dimmedImage.rect(), QColor::fromRgbF(0, 0, 0, kDimming));
    }
    update();
}

void BRScreenSelectionView::setFading(std::optional<double> black)
{
    _fading = black;
    update();
}

QRect BRScreenSelectionView::_pixelsOf(const PXRect &rect) const
{
    const PXPixelRect pixels
        = PXPixelsFromRect(rect,
                           {0, 0, PXClampToInt(static_cast<double>(_frame.width)),
                            PXClampToInt(static_cast<double>(_frame.height))});
    return {pixels.x, pixels.y, pixels.width, pixels.height};
}

/// The frame, its shadow and the handles: a ring around the selection's edge.
QRegion BRScreenSelectionView::_looksOf(const PXRect &selection) const
{
    const int outside = std::max(kHandleReach, kFrameWidth + frameShadow().reach());
    // A selection without width or height has its handles, too.
    const QRect pixels
        = QRectF(static_cast<double>(selection.x),
                 static_cast<double>(_frame.height - selection.maxY()),
                 static_cast<double>(selection.width), static_cast<double>(selection.height))
              .toAlignedRect();
    return QRegion(pixels.adjusted(-outside, -outside, outside, outside))
        - pixels.adjusted(kHandleReach, kHandleReach, -kHandleReach, -kHandleReach);
}

BRScreenSelectionView::InfoBox BRScreenSelectionView::_infoBox() const
{
    InfoBox info;
    info.text = infoText(_chosenRect);
    const QSize labels = sizeOf(kInfoLabels);
    const QSize values = sizeOf(info.text);
    const int textWidth = labels.width() + kInfoGap + values.width();
    const int boxWidth = 2 * std::max(labels.width(), values.width()) + kInfoGap;
    const QPointF center
        = infoCenter(_chosenRect, _frame, boxWidth + kInfoRoom, labels.height() + kInfoRoom);
    const int x = static_cast<int>(std::lround(center.x()));
    // The text's lower edge, y up; its upper edge, y down.
    const double lower = center.y() - labels.height() / 2.0;
    const int top = static_cast<int>(
        std::lround(static_cast<double>(_frame.height) - lower - labels.height()));
    info.box = QRect(x - boxWidth / 2 - kInfoMargin, top - kInfoMargin, boxWidth + 2 * kInfoMargin,
                     labels.height() + 2 * kInfoMargin);
    const int split = x - textWidth / 2 + labels.width() + kInfoGap / 2;
    info.labels = QRect(QPoint(split - kInfoGap / 2 - labels.width(), top), labels);
    info.values = QRect(QPoint(split + kInfoGap / 2, top), values);
    return info;
}

void BRScreenSelectionView::paintEvent(QPaintEvent *event)
{
    PXPixelPainter painter(this);
    QRegion dirty;
    for (const QRect &rect : event->region())
        dirty += PXPixels::pixelRect(rect, *this);
    if (_backgroundImage.isNull()) {
        painter.fillRect(dirty.boundingRect(), Qt::white);
        return;
    }
    _drawPicture(painter, dirty, _fading.value_or(kDimming));
    if (_fading)
        return;
    _drawShadow(painter, dirty);
    _drawSelection(painter, dirty);
    if (dirty.intersects(_infoBox().box))
        drawSelectionInfo(painter);
    drawGrabHandles(painter, dirty);
}

void BRScreenSelectionView::_drawPicture(QPainter &painter, const QRegion &dirty,
                                         double black) const
{
    const bool isUsual = black == kDimming;
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    for (const QRect &rect : dirty)
        painter.drawImage(rect.topLeft(), isUsual ? _dimmedImage : _backgroundImage, rect);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    if (!isUsual && black > 0)
        painter.fillRect(dirty.boundingRect(),
                         QColor::fromRgbF(0, 0, 0, static_cast<float>(black)));
}

/// The shadow of a rectangle is the product of two edges' shadows, across and down: nothing needs
/// to be blurred, however large it is.
void BRScreenSelectionView::_drawShadow(QPainter &painter, const QRegion &dirty) const
{
    const PXShadow shadow = frameShadow();
    const QRect caster = _pixelsOf(_chosenRect).adjusted(-1, -1, 1, 1);
    const int reach = shadow.reach();
    const QRect all = caster.adjusted(-reach, -reach, reach, reach);
    const auto coverages = [&](int from, int to, int first, int last) {
        std::vector<double> result;
        for (int i = from; i <= to; ++i)
            result.push_back(shadow.coverageAt(first - (i + 0.5))
                             - shadow.coverageAt(last + 1 - (i + 0.5)));
        return result;
    };
    const QRegion ring = (QRegion(all) - _pixelsOf(_chosenRect)) & dirty;
    for (const QRect &part : ring) {
        const auto across = coverages(part.left(), part.right(), caster.left(), caster.right());
        const auto down = coverages(part.top(), part.bottom(), caster.top(), caster.bottom());
        QImage image(part.size(), QImage::Format_ARGB32_Premultiplied);
        for (int y = 0; y < part.height(); ++y) {
            auto *row = reinterpret_cast<QRgb *>(image.scanLine(y));
            const double ofRow = down[static_cast<std::size_t>(y)] * kDimming * 255;
            std::transform(across.begin(), across.end(), row, [ofRow](double ofColumn) {
                return qRgba(0, 0, 0, qRound(ofRow * ofColumn));
            });
        }
        painter.drawImage(part.topLeft(), image);
    }
}

void BRScreenSelectionView::_drawSelection(QPainter &painter, const QRegion &dirty) const
{
    const QRect selection = _pixelsOf(_chosenRect);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    for (const QRect &rect : dirty &selection)
        painter.drawImage(rect.topLeft(), _backgroundImage, rect);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const QRegion frame
        = QRegion(selection.adjusted(-kFrameWidth, -kFrameWidth, kFrameWidth, kFrameWidth))
        - selection;
    for (const QRect &side : frame)
        painter.fillRect(side, Qt::black);
}

void BRScreenSelectionView::drawSelectionInfo(QPainter &painter) const
{
    const InfoBox info = _infoBox();
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath box;
    box.addRoundedRect(info.box, 4, 4);
    painter.fillPath(box, QColor::fromRgbF(0, 0, 0, 0.7F));
    PXShadow(Qt::black, 5, {}).draw(painter, info.labels | info.values, [&](QPainter &text) {
        text.setFont(infoFont());
        text.setPen(Qt::white);
        text.drawText(info.labels, Qt::AlignRight | Qt::AlignTop | Qt::TextDontClip, kInfoLabels);
        text.drawText(info.values, Qt::AlignLeft | Qt::AlignTop | Qt::TextDontClip, info.text);
    });
}

void BRScreenSelectionView::drawGrabHandles(QPainter &painter, const QRegion &dirty)
{
    // Corners first, so that the edges' handles lie above them on a small selection.
    for (const int handle : {kTop | kLeft, kTop | kRight, kBottom | kLeft, kBottom | kRight,
                             int{kLeft}, int{kRight}, int{kTop}, int{kBottom}}) {
        const PXRect place = placeOfHandle(handle, _chosenRect);
        const QRect reach = _pixelsOf(place).adjusted(-5, -5, 5, 5);
        if (dirty.intersects(reach))
            drawGrabHandleInRect(painter, place);
    }
}

void BRScreenSelectionView::drawGrabHandleInRect(QPainter &painter, const PXRect &rect)
{
    const double x = static_cast<double>(rect.x);
    const double y = static_cast<double>(_frame.height - rect.maxY());
    const QPoint pixel(static_cast<int>(std::floor(x)), static_cast<int>(std::floor(y)));
    const QPointF fraction(x - pixel.x(), y - pixel.y());
    QImage &picture = _handlePictures[{fraction.x(), fraction.y()}];
    if (picture.isNull())
        picture = _pictureOfHandle(fraction);
    painter.drawImage(pixel - QPoint(kHandleReach, kHandleReach), picture);
}

/// Its square's corner stands `kHandleReach` pixels and a fraction from the picture's.
QImage BRScreenSelectionView::_pictureOfHandle(QPointF fraction) const
{
    const int side = static_cast<int>(kHandleSize) + 2 * kHandleReach;
    QImage picture(side, side, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    const QRectF square(QPointF(kHandleReach, kHandleReach) + fraction,
                        QSizeF(static_cast<double>(kHandleSize), static_cast<double>(kHandleSize)));
    QPainterPath circle;
    circle.addEllipse(square);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    const auto stroke = [&](QPainter &to) { to.strokePath(circle, QPen(Qt::white, 1.5)); };
    PXShadow(Qt::black, 2, {2, -2}).draw(painter, square.adjusted(-1, -1, 1, 1), stroke);
    mHandleGradient.fillPath(painter, circle, 290);
    stroke(painter);
    return picture;
}
