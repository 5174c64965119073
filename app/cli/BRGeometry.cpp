#include "app/cli/BRGeometry.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

/// Enough for any desktop, and small enough that sums of two fit an int.
constexpr int kLargestCoordinate = 1'000'000;

std::optional<int> intFromText(QStringView digits)
{
    bool isNumber = false;
    const int number = digits.toInt(&isNumber);
    if (!isNumber || number > kLargestCoordinate || number < -kLargestCoordinate)
        return std::nullopt;
    return number;
}

} // namespace

std::optional<PXPixelRect> BRPixelRectFromGeometry(QStringView text, const PXPixelRect &display)
{
    static const QRegularExpression form(u"^=?(\\d+)[xX](\\d+)([+-])(-?\\d+)([+-])(-?\\d+)$"_s);
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const auto width = intFromText(match.capturedView(1));
    const auto height = intFromText(match.capturedView(2));
    const auto x = intFromText(match.capturedView(4));
    const auto y = intFromText(match.capturedView(6));
    if (!width || !height || !x || !y || *width == 0 || *height == 0)
        return std::nullopt;
    const bool fromRight = match.capturedView(3) == u"-";
    const bool fromBottom = match.capturedView(5) == u"-";
    return PXPixelRect{fromRight ? display.x + display.width - *width - *x : *x,
                       fromBottom ? display.y + display.height - *height - *y : *y, *width,
                       *height};
}

std::optional<PXSize> BRSizeFromText(QStringView text)
{
    static const QRegularExpression form(u"^(\\d+)[xX](\\d+)$"_s);
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const auto width = intFromText(match.capturedView(1));
    const auto height = intFromText(match.capturedView(2));
    if (!width || !height || *width == 0 || *height == 0)
        return std::nullopt;
    return PXSize{static_cast<float>(*width), static_cast<float>(*height)};
}
