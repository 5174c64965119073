#include "app/cli/BRGeometry.h"

#include <QRegularExpression>

#include <optional>

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

PXPixelRect BRGeometry::onDisplay(const PXPixelRect &display) const
{
    return {isFromRight ? display.x + display.width - width - x : x,
            isFromBottom ? display.y + display.height - height - y : y, width, height};
}

BRUsageExpected<BRGeometry> BRGeometryFromText(QStringView text)
{
    static const QRegularExpression form(u"^=?(\\d+)[xX](\\d+)([+-])(-?\\d+)([+-])(-?\\d+)$"_s);
    const QRegularExpressionMatch match = form.match(text);
    const auto width = intFromText(match.capturedView(1));
    const auto height = intFromText(match.capturedView(2));
    const auto x = intFromText(match.capturedView(4));
    const auto y = intFromText(match.capturedView(6));
    if (!width || !height || !x || !y || *width == 0 || *height == 0)
        return BRWrongUsage(u"\"%1\" is no area"_s.arg(text),
                            u"Give it as WIDTHxHEIGHT+X+Y, 640x480+100+50."_s);
    return BRGeometry{
        *width, *height, *x, *y, match.capturedView(3) == u"-", match.capturedView(5) == u"-"};
}

BRUsageExpected<PXSize> BRSizeFromText(QStringView text)
{
    static const QRegularExpression form(u"^(\\d+)[xX](\\d+)$"_s);
    const QRegularExpressionMatch match = form.match(text);
    const auto width = intFromText(match.capturedView(1));
    const auto height = intFromText(match.capturedView(2));
    if (!width || !height || *width == 0 || *height == 0)
        return BRWrongUsage(u"\"%1\" is no size"_s.arg(text),
                            u"Give it as WIDTHxHEIGHT, 640x480."_s);
    return PXSize{static_cast<float>(*width), static_cast<float>(*height)};
}
