#include "overlays/KPKeystrokeStyle.h"

#include "foundation/PXDefaults.h"
#include "widgets/PXPixelPainter.h"

#include <QFontMetrics>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSmallestText = 12;
constexpr int kLargestText = 200;
constexpr int kSmallestTextThatFits = 8; ///< In a recorded rectangle that is too low for any other.
constexpr double kLeastContrast = 3; ///< What the web's guidelines ask of large text.
constexpr float kBorderOpacity = 0.2F;

/// `top` over the opaque `below`.
QColor over(const QColor &top, const QColor &below)
{
    const float alpha = top.alphaF();
    const auto channel = [&](float a, float b) { return a * alpha + b * (1 - alpha); };
    return QColor::fromRgbF(channel(top.redF(), below.redF()),
                            channel(top.greenF(), below.greenF()),
                            channel(top.blueF(), below.blueF()));
}

/// How light a colour looks, 0 to 1: sRGB's relative luminance.
double luminance(const QColor &color)
{
    const auto linear = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF())
        + 0.0722 * linear(color.blueF());
}

/// 1 of equal ones to 21 of black and white.
double contrast(const QColor &one, const QColor &other)
{
    const double a = luminance(one);
    const double b = luminance(other);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

/// Whatever is on the desktop lies between these two.
bool isLegible(const QColor &text, const QColor &background)
{
    for (const QColor &desktop : {QColor(Qt::black), QColor(Qt::white)}) {
        const QColor seen = over(background, desktop);
        if (contrast(over(text, seen), seen) < kLeastContrast)
            return false;
    }
    return true;
}

bool isDark(const QColor &color)
{
    return contrast(color, Qt::white) > contrast(color, Qt::black);
}

QColor opaque(QColor color)
{
    color.setAlpha(255);
    return color;
}

QFont fontOf(int textSize)
{
    QFont font; // The toolkit's, in the size of our choice.
    font.setPixelSize(textSize);
    font.setWeight(QFont::DemiBold);
    return font;
}

int sizeThatFits(int textSize, float height)
{
    const int needed = QFontMetrics(fontOf(textSize)).height();
    if (static_cast<float>(needed) <= height)
        return textSize;
    return std::max(
        static_cast<int>(static_cast<float>(textSize) * height / static_cast<float>(needed)),
        kSmallestTextThatFits);
}

} // namespace

KPKeystrokeStyle KPKeystrokeStyle::currentStyle(const PXSize &room, Blending blending)
{
    const PXDefaults &defaults = PXDefaults::standardUserDefaults();
    const auto color = [&](const QString &key, const PXColor &otherwise) {
        return PXColorForPainting(defaults.colorValue(key).value_or(otherwise));
    };
    KPKeystrokeStyle style;
    const int textSize = defaults.intValue(u"keyboardEventTextSize"_s);
    style.textSize = sizeThatFits(std::clamp(textSize, kSmallestText, kLargestText), room.height);
    style.maximumWidth = PXClampToInt(static_cast<double>(room.width));
    style.textColor = color(u"keyboardEventTextColor"_s, PXColor::calibratedWhite(1, 1));
    style.backgroundColor
        = color(u"keyboardEventBackgroundColor"_s, PXColor::calibratedWhite(0, 0.8F));
    if (blending == Blending::Opaque)
        style.backgroundColor = opaque(style.backgroundColor);
    if (!isLegible(style.textColor, style.backgroundColor))
        style.textColor = opaque(style.textColor);
    if (!isLegible(style.textColor, style.backgroundColor))
        style.outlineColor = isDark(style.textColor) ? Qt::white : Qt::black;
    return style;
}

QFont KPKeystrokeStyle::font() const
{
    return fontOf(textSize);
}

double KPKeystrokeStyle::outlineWidth() const
{
    return 1 + textSize / 24.0;
}

int KPKeystrokeStyle::cornerRadius() const
{
    return 6 + textSize / 5;
}

QColor KPKeystrokeStyle::borderColor() const
{
    QColor color = isDark(opaque(backgroundColor)) ? Qt::white : Qt::black;
    color.setAlphaF(kBorderOpacity * backgroundColor.alphaF());
    return color;
}
