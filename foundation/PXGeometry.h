#pragma once

#include <QString>
#include <QStringView>

#include <cstdint>

/// Points, sizes and rectangles of the global screen coordinates: 32-bit floats, the origin at
/// the main display's lower-left corner, y up. One unit is one pixel.
struct PXPoint {
    float x = 0;
    float y = 0;

    friend bool operator==(const PXPoint &, const PXPoint &) = default;
};

struct PXSize {
    float width = 0;
    float height = 0;

    friend bool operator==(const PXSize &, const PXSize &) = default;
};

struct PXRect {
    float x = 0;
    float y = 0;
    float width = 0;
    float height = 0;

    [[nodiscard]] PXPoint origin() const { return {x, y}; }
    [[nodiscard]] PXSize size() const { return {width, height}; }
    [[nodiscard]] float maxX() const { return x + width; }
    [[nodiscard]] float maxY() const { return y + height; }
    /// No width or no height (or a negative one).
    [[nodiscard]] bool isEmpty() const { return !(width > 0 && height > 0); }

    friend bool operator==(const PXRect &, const PXRect &) = default;
};

/// A rectangle in whole pixels of the desktop as X counts them: origin top-left, y down.
struct PXPixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }
    [[nodiscard]] std::int64_t area() const { return isEmpty() ? 0 : std::int64_t{width} * height; }

    friend bool operator==(const PXPixelRect &, const PXPixelRect &) = default;
};

/// Two rectangles intersect when they share an area; empty ones intersect nothing.
bool PXIntersectsRect(const PXRect &a, const PXRect &b);
/// What both cover; the zero rectangle when they do not intersect.
PXRect PXIntersectionRect(const PXRect &a, const PXRect &b);
/// The smallest rectangle around both; an empty one adds nothing.
PXRect PXUnionRect(const PXRect &a, const PXRect &b);

PXPixelRect PXIntersection(const PXPixelRect &a, const PXPixelRect &b);
PXPixelRect PXUnion(const PXPixelRect &a, const PXPixelRect &b);

/// From the desktop's pixels to global coordinates; `mainDisplay` is its place on the desktop.
PXRect PXRectFromPixels(const PXPixelRect &pixels, const PXPixelRect &mainDisplay);
/// The way back, to the smallest whole pixels that cover `rect`.
PXPixelRect PXPixelsFromRect(const PXRect &rect, const PXPixelRect &mainDisplay);
PXPoint PXPointFromPixels(int x, int y, const PXPixelRect &mainDisplay);

/// "{{x, y}, {width, height}}", numbers as `%g`.
QString PXStringFromRect(const PXRect &rect);
/// Any white space is accepted; the zero rectangle for what does not read.
PXRect PXRectFromString(QStringView text);

/// Truncates toward zero; what lies outside the type is clamped to its ends, NaN gives 0.
std::uint32_t PXClampToUInt32(double value);
int PXClampToInt(double value);
std::int64_t PXClampToInt64(double value);
