#include "foundation/PXGeometry.h"

#include <gtest/gtest.h>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

struct ConversionCase {
    const char *name;
    PXPixelRect display;
    PXPixelRect pixels;
    PXRect rect;
};

const ConversionCase kConversionCases[] = {
    {"topLeftOfTheOnlyDisplay", {0, 0, 1920, 1080}, {0, 0, 10, 20}, {0, 1060, 10, 20}},
    {"lowestRow", {0, 0, 1920, 1080}, {5, 1079, 1, 1}, {5, 0, 1, 1}},
    {"displayRightOfAnother", {1280, 100, 800, 600}, {1290, 650, 20, 30}, {10, 20, 20, 30}},
    {"pixelsOnAnotherDisplay", {1280, 0, 800, 600}, {0, 0, 10, 10}, {-1280, 590, 10, 10}},
};

TEST(PXGeometry, PixelsAndGlobalCoordinatesAreEachOthersInverse)
{
    for (const ConversionCase &c : kConversionCases) {
        EXPECT_EQ(PXRectFromPixels(c.pixels, c.display), c.rect) << c.name;
        EXPECT_EQ(PXPixelsFromRect(c.rect, c.display), c.pixels) << c.name;
    }
}

TEST(PXGeometry, FractionsGrowToWholePixels)
{
    EXPECT_EQ(PXPixelsFromRect({0.5F, 0.5F, 1, 1}, {0, 0, 10, 10}), (PXPixelRect{0, 8, 2, 2}));
}

TEST(PXGeometry, TouchingRectanglesDoNotIntersect)
{
    EXPECT_FALSE(PXIntersectsRect({0, 0, 4, 4}, {4, 0, 4, 4}));
    EXPECT_EQ(PXIntersectionRect({0, 0, 4, 4}, {4, 0, 4, 4}), PXRect{});
    EXPECT_EQ(PXUnionRect({}, {4, 0, 4, 4}), (PXRect{4, 0, 4, 4}));
    EXPECT_EQ(PXIntersection({-5, -5, std::numeric_limits<int>::max(), 10}, {0, 0, 3, 3}),
              (PXPixelRect{0, 0, 3, 3}));
}

TEST(PXGeometry, RectanglesAsStrings)
{
    EXPECT_EQ(PXStringFromRect({100, 50.5F, 640, 480}), u"{{100, 50.5}, {640, 480}}"_s);
    EXPECT_EQ(PXRectFromString(u" { {100 ,50.5},\n{640,480} } "), (PXRect{100, 50.5F, 640, 480}));
    EXPECT_EQ(PXRectFromString(u"{{-3, 1e2}, {1, 2}}"), (PXRect{-3, 100, 1, 2}));
    for (const QString &bad :
         {u""_s, u"{{1,2},{3}}"_s, u"{{1,2},{3,4}} x"_s, u"{{a,b},{c,d}}"_s, u"{{1e99,0},{1,1}}"_s})
        EXPECT_EQ(PXRectFromString(bad), PXRect{}) << bad.toStdString();
}

TEST(PXGeometry, NumbersOutsideTheTypeAreClamped)
{
    EXPECT_EQ(PXClampToUInt32(-1), 0U);
    EXPECT_EQ(PXClampToUInt32(4294967296.0), 0xFFFFFFFFU);
    EXPECT_EQ(PXClampToUInt32(12.9), 12U);
    EXPECT_EQ(PXClampToInt(std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(PXClampToInt64(1e300), std::numeric_limits<std::int64_t>::max());
}

} // namespace
