#include "widgets/PXShadow.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

/// Of the Gaussian, up to three standard deviations on each side; the sum is 1.
std::vector<float> gaussianWeights(double deviation)
{
    const int reach = std::max(1, static_cast<int>(std::ceil(3 * deviation)));
    std::vector<float> weights;
    float sum = 0;
    for (int i = -reach; i <= reach; ++i) {
        weights.push_back(static_cast<float>(std::exp(-i * i / (2 * deviation * deviation))));
        sum += weights.back();
    }
    for (float &weight : weights)
        weight /= sum;
    return weights;
}

/// Blurs each line of `count` values, `step` apart, of which there are `lines`, `lineStep` apart.
void blurLines(std::vector<float> &values, int count, int step, int lines, int lineStep,
               const std::vector<float> &weights)
{
    const int reach = static_cast<int>(weights.size() / 2);
    const float *middle = weights.data() + reach;
    std::vector<float> line(static_cast<std::size_t>(count));
    for (int i = 0; i < lines; ++i) {
        float *first = values.data() + std::ptrdiff_t{i} * lineStep;
        for (int j = 0; j < count; ++j) {
            float sum = 0;
            for (int k = std::max(-reach, -j); k <= std::min(reach, count - 1 - j); ++k)
                sum += first[(std::ptrdiff_t{j} + k) * step] * middle[k];
            line[static_cast<std::size_t>(j)] = sum;
        }
        for (int j = 0; j < count; ++j)
            first[std::ptrdiff_t{j} * step] = line[static_cast<std::size_t>(j)];
    }
}

} // namespace

int PXShadow::reach() const
{
    const double offset = std::max(std::abs(_offset.x()), std::abs(_offset.y()));
    return static_cast<int>(std::ceil(1.5 * _blurRadius + offset));
}

double PXShadow::coverageAt(double distance) const
{
    const double deviation = _blurRadius / 2;
    return std::erfc(distance / (deviation * M_SQRT2)) / 2;
}

void PXShadow::draw(QPainter &painter, const QRectF &bounds,
                    const std::function<void(QPainter &)> &draw) const
{
    const int margin = reach();
    const QRect place = bounds.toAlignedRect().adjusted(-margin, -margin, margin, margin);
    QImage shape(place.size(), QImage::Format_ARGB32_Premultiplied);
    shape.fill(Qt::transparent);
    QPainter shapePainter(&shape);
    shapePainter.setRenderHints(painter.renderHints());
    shapePainter.translate(-place.topLeft());
    draw(shapePainter);
    shapePainter.end();
    painter.drawImage(place.topLeft() + QPointF(_offset.x(), -_offset.y()), _shadowOf(shape));
    painter.drawImage(place.topLeft(), shape);
}

QImage PXShadow::_shadowOf(const QImage &shape) const
{
    const int width = shape.width();
    const int height = shape.height();
    std::vector<float> alpha(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    auto value = alpha.begin();
    for (int y = 0; y < height; ++y) {
        const auto *row = reinterpret_cast<const QRgb *>(shape.constScanLine(y));
        value = std::transform(row, row + width, value,
                               [](QRgb pixel) { return static_cast<float>(qAlpha(pixel)); });
    }
    const std::vector<float> weights = gaussianWeights(_blurRadius / 2);
    blurLines(alpha, width, 1, height, width, weights);
    blurLines(alpha, height, width, width, 1, weights);
    QImage shadow(shape.size(), QImage::Format_ARGB32_Premultiplied);
    value = alpha.begin();
    for (int y = 0; y < height; ++y) {
        auto *row = reinterpret_cast<QRgb *>(shadow.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const double part = static_cast<double>(*value++) * _color.alphaF();
            row[x] = qPremultiply(qRgba(_color.red(), _color.green(), _color.blue(),
                                        static_cast<int>(std::lround(std::min(part, 255.0)))));
        }
    }
    return shadow;
}
