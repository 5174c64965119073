#include "foundation/PXGeometry.h"

#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

bool PXIntersectsRect(const PXRect &a, const PXRect &b)
{
    if (a.isEmpty() || b.isEmpty())
        return false;
    return a.x < b.maxX() && b.x < a.maxX() && a.y < b.maxY() && b.y < a.maxY();
}

PXRect PXIntersectionRect(const PXRect &a, const PXRect &b)
{
    if (!PXIntersectsRect(a, b))
        return {};
    const float left = std::max(a.x, b.x);
    const float bottom = std::max(a.y, b.y);
    return {left, bottom, std::min(a.maxX(), b.maxX()) - left,
            std::min(a.maxY(), b.maxY()) - bottom};
}

PXRect PXUnionRect(const PXRect &a, const PXRect &b)
{
    if (a.isEmpty())
        return b.isEmpty() ? PXRect{} : b;
    if (b.isEmpty())
        return a;
    const float left = std::min(a.x, b.x);
    const float bottom = std::min(a.y, b.y);
    return {left, bottom, std::max(a.maxX(), b.maxX()) - left,
            std::max(a.maxY(), b.maxY()) - bottom};
}

PXPixelRect PXIntersection(const PXPixelRect &a, const PXPixelRect &b)
{
    if (a.isEmpty() || b.isEmpty())
        return {};
    // 64 bits: the sum of two valid ints need not be one.
    const std::int64_t left = std::max(a.x, b.x);
    const std::int64_t top = std::max(a.y, b.y);
    const std::int64_t right = std::min(std::int64_t{a.x} + a.width, std::int64_t{b.x} + b.width);
    const std::int64_t bottom
        = std::min(std::int64_t{a.y} + a.height, std::int64_t{b.y} + b.height);
    if (right <= left || bottom <= top)
        return {};
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
            static_cast<int>(bottom - top)};
}

PXPixelRect PXUnion(const PXPixelRect &a, const PXPixelRect &b)
{
    if (a.isEmpty())
        return b.isEmpty() ? PXPixelRect{} : b;
    if (b.isEmpty())
        return a;
    const int left = std::min(a.x, b.x);
    const int top = std::min(a.y, b.y);
    return {left, top, std::max(a.x + a.width, b.x + b.width) - left,
            std::max(a.y + a.height, b.y + b.height) - top};
}

PXRect PXRectFromPixels(const PXPixelRect &pixels, const PXPixelRect &mainDisplay)
{
    const int yFromTop = pixels.y - mainDisplay.y;
    return {static_cast<float>(pixels.x - mainDisplay.x),
            static_cast<float>(mainDisplay.height - yFromTop - pixels.height),
            static_cast<float>(pixels.width), static_cast<float>(pixels.height)};
}

PXPixelRect PXPixelsFromRect(const PXRect &rect, const PXPixelRect &mainDisplay)
{
    if (rect.isEmpty())
        return {};
    // No desktop is a million pixels wide, and sums of such numbers are still ints.
    const auto pixel = [](float value) {
        constexpr float kFarthest = 1e6F;
        return PXClampToInt(static_cast<double>(std::clamp(value, -kFarthest, kFarthest)));
    };
    const int left = pixel(std::floor(rect.x));
    const int right = pixel(std::ceil(rect.maxX()));
    const int bottom = pixel(std::floor(rect.y));
    const int top = pixel(std::ceil(rect.maxY()));
    return {mainDisplay.x + left, mainDisplay.y + mainDisplay.height - top, right - left,
            top - bottom};
}

PXPoint PXPointFromPixels(int x, int y, const PXPixelRect &mainDisplay)
{
    // The lower edge of the display's last pixel row is 0, so the row y pixels below the top is
    // height - y above it.
    return {static_cast<float>(x - mainDisplay.x),
            static_cast<float>(mainDisplay.height - (y - mainDisplay.y))};
}

QString PXStringFromRect(const PXRect &rect)
{
    return QString::asprintf("{{%g, %g}, {%g, %g}}", static_cast<double>(rect.x),
                             static_cast<double>(rect.y), static_cast<double>(rect.width),
                             static_cast<double>(rect.height));
}

PXRect PXRectFromString(QStringView text)
{
    static const QRegularExpression form(
        u"^\\s*\\{\\s*\\{\\s*(N)\\s*,\\s*(N)\\s*\\}\\s*,\\s*\\{\\s*(N)\\s*,\\s*(N)\\s*\\}\\s*\\}\\s*$"_s
            .replace(u'N', u"[-+0-9.eE]+"_s));
    const QRegularExpressionMatch match = form.match(text);
    float numbers[4] = {};
    for (int i = 0; i < 4; ++i) {
        bool isNumber = false;
        numbers[i] = match.hasMatch() ? match.capturedView(i + 1).toFloat(&isNumber) : 0;
        if (!isNumber || !std::isfinite(numbers[i]))
            return {};
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

namespace {
template <typename T> T clampTo(double value)
{
    if (std::isnan(value))
        return 0;
    // The upper bound as a double may be one above the type's maximum, hence >= and not >.
    if (value >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    if (value <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    return static_cast<T>(value);
}
} // namespace

std::uint32_t PXClampToUInt32(double value)
{
    return clampTo<std::uint32_t>(value);
}
int PXClampToInt(double value)
{
    return clampTo<int>(value);
}
std::int64_t PXClampToInt64(double value)
{
    return clampTo<std::int64_t>(value);
}
