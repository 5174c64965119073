#include "capture/BRCameraPlacement.h"

#include <gtest/gtest.h>

namespace {

constexpr PXSize kScreen{1000, 800};

struct PlacementCase {
    const char *name;
    PXPoint mouse;
    PXSize size;
    PXRect camera;
};

const PlacementCase kCenteredCases[] = {
    {"inTheMiddle", {500, 400}, {640, 480}, {180, 160, 640, 480}},
    {"oddSizesRoundDown", {500, 400}, {641, 481}, {180, 160, 641, 481}},
    {"lowerLeftCorner", {0, 0}, {640, 480}, {0, 0, 640, 480}},
    {"upperRightCorner", {999, 799}, {640, 480}, {360, 320, 640, 480}},
    {"largerThanTheScreen", {10, 790}, {2000, 900}, {0, 0, 1000, 800}},
};

TEST(CameraPlacement, CenteredAndInsideTheScreen)
{
    for (const PlacementCase &c : kCenteredCases)
        EXPECT_EQ(BRCenterCameraRectAtMouseLocation(c.mouse, c.size, kScreen), c.camera) << c.name;
}

const PlacementCase kLazyCases[] = {
    {"insideTheMarginsStays", {300, 300}, {200, 100}, {250, 250, 200, 100}},
    {"nearTheLeftEdge", {260, 300}, {200, 100}, {230, 250, 200, 100}},
    {"nearTheRightEdge", {440, 300}, {200, 100}, {270, 250, 200, 100}},
    {"aboveTheTopEdge", {300, 400}, {200, 100}, {250, 315, 200, 100}},
    {"clampedToTheScreen", {0, 0}, {200, 100}, {0, 0, 200, 100}},
};

TEST(CameraPlacement, LazyMovesOnlyNearAnEdge)
{
    for (const PlacementCase &c : kLazyCases) {
        const PXRect current{250, 250, c.size.width, c.size.height};
        EXPECT_EQ(BRLazilySetCameraRectWithMouseLocation(c.mouse, current, kScreen), c.camera)
            << c.name;
    }
}

} // namespace
