#include "overlays/BRSelectionGeometry.h"

#include <gtest/gtest.h>

#include <random>

using namespace BRSelectionGeometry;

static void PrintTo(const PXRect &rect, std::ostream *out)
{
    *out << '{' << rect.x << ", " << rect.y << ", " << rect.width << ", " << rect.height << '}';
}

namespace {

constexpr PXSize kDisplay = {1440, 900};
constexpr PXSize kFourToThree = {4, 3};

TEST(BRSelectionGeometry, IsMovedInsideAndCutOnlyToTheDisplaysSize)
{
    const struct {
        const char *name;
        PXRect rect;
        std::optional<PXSize> aspect;
        PXRect expected;
    } rows[] = {
        {"inside", {10, 20, 30, 40}, {}, {10, 20, 30, 40}},
        {"left", {-10, 20, 30, 40}, {}, {0, 20, 30, 40}},
        {"below", {10, -20, 30, 40}, {}, {10, 0, 30, 40}},
        {"right", {1430, 20, 30, 40}, {}, {1410, 20, 30, 40}},
        {"above", {10, 880, 30, 40}, {}, {10, 860, 30, 40}},
        {"tooWide", {100, 20, 2000, 40}, {}, {0, 20, 1440, 40}},
        {"tooHigh", {100, 20, 40, 901}, {}, {100, 0, 40, 900}},
        {"tooWideForItsAspect", {100, 20, 2000, 300}, kFourToThree, {100, 20, 400, 300}},
        {"tooHighWithAspect", {100, 20, 400, 1000}, kFourToThree, {100, 20, 400, 300}},
        {"notOfTheAspect", {100, 20, 400, 400}, kFourToThree, {100, 20, 400, 400}},
        {"tooLargeWithAspect", {100, 20, 2000, 2000}, kFourToThree, {100, 0, 1200, 900}},
        {"nothing", {50, 60, 0, 0}, kFourToThree, {50, 60, 0, 0}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(constrained(row.rect, kDisplay, row.aspect), row.expected) << row.name;
}

TEST(BRSelectionGeometry, StaysInsideWhateverIsAsked)
{
    std::mt19937 random(7); // NOLINT: the same numbers in each run
    const auto number = [&](int low, int high) {
        return static_cast<float>(std::uniform_int_distribution<int>(low, high)(random));
    };
    for (int i = 0; i < 20'000; ++i) {
        const std::optional<PXSize> aspect
            = i % 2 == 0 ? std::nullopt : std::optional(PXSize{number(1, 30), number(1, 30)});
        const PXRect rect
            = {number(-3000, 3000), number(-3000, 3000), number(0, 3000), number(0, 3000)};
        const PXRect inside = constrained(rect, kDisplay, aspect);
        ASSERT_GE(inside.x, 0) << i;
        ASSERT_GE(inside.y, 0) << i;
        ASSERT_LE(inside.maxX(), kDisplay.width) << i;
        ASSERT_LE(inside.maxY(), kDisplay.height) << i;
        ASSERT_EQ(constrained(inside, kDisplay, {}), inside) << i;
        const PXPoint anchor = {number(0, 1440), number(0, 900)};
        const PXPoint pointer = {number(0, 1440), number(0, 900)};
        const PXRect spanned = spanning(anchor, pointer, aspect);
        ASSERT_TRUE(spanned.x == anchor.x || spanned.maxX() == anchor.x) << i;
        ASSERT_TRUE(spanned.y == anchor.y || spanned.maxY() == anchor.y) << i;
        ASSERT_LE(spanned.width, std::abs(pointer.x - anchor.x)) << i;
        ASSERT_LE(spanned.height, std::abs(pointer.y - anchor.y)) << i;
    }
}

TEST(BRSelectionGeometry, AnEdgeFollowsTheHandThroughTheOppositeOne)
{
    constexpr PXRect kStart = {100, 200, 40, 30};
    const struct {
        const char *name;
        int handle;
        PXPoint by;
        std::optional<PXSize> aspect;
        PXRect expected;
        int handleAfter;
    } rows[] = {
        {"right", kRight, {10, 99}, {}, {100, 200, 50, 30}, kRight},
        {"left", kLeft, {10, 99}, {}, {110, 200, 30, 30}, kLeft},
        {"top", kTop, {99, 10}, {}, {100, 200, 40, 40}, kTop},
        {"bottom", kBottom, {99, 10}, {}, {100, 210, 40, 20}, kBottom},
        {"toNothing", kRight, {-40, 0}, {}, {100, 200, 0, 30}, kRight},
        {"rightThrough", kRight, {-55, 0}, {}, {85, 200, 15, 30}, kLeft},
        {"leftThrough", kLeft, {55, 0}, {}, {140, 200, 15, 30}, kRight},
        {"topThrough", kTop, {0, -50}, {}, {100, 180, 40, 20}, kBottom},
        {"bottomThrough", kBottom, {0, 50}, {}, {100, 230, 40, 20}, kTop},
        {"rightWithAspect", kRight, {10, 0}, kFourToThree, {100, 200, 50, 38}, kRight},
        {"topWithAspect", kTop, {0, 10}, kFourToThree, {100, 200, 53, 40}, kTop},
    };
    for (const auto &row : rows) {
        const EdgeDrag drag = draggingEdge(kStart, row.handle, row.by, row.aspect);
        EXPECT_EQ(drag.rect, row.expected) << row.name;
        EXPECT_EQ(drag.handle, row.handleAfter) << row.name;
    }
}

TEST(BRSelectionGeometry, PresetsAndAspectsAreWholePixels)
{
    EXPECT_EQ(preset(34, kDisplay), (PXRect{180, 112, 1080, 675}));
    EXPECT_EQ(preset(12, kDisplay), (PXRect{360, 225, 720, 450}));
    EXPECT_EQ(preset(14, kDisplay), (PXRect{540, 337, 360, 225}));
    EXPECT_EQ(preset(18, kDisplay), (PXRect{630, 394, 180, 112}));
    EXPECT_EQ(preset(11, kDisplay), (PXRect{0, 0, 1440, 900}));
    EXPECT_EQ(withHeightOfAspect({10, 20, 400, 400}, kFourToThree), (PXRect{10, 120, 400, 300}));
}

TEST(BRSelectionGeometry, HandlesStandOnTheEdge)
{
    constexpr PXRect kSelection = {100, 200, 50, 31};
    const struct {
        int handle;
        PXPoint drawn;
    } rows[] = {
        {kTop | kLeft, {95, 224}},    {kTop | kRight, {143, 224}},
        {kBottom | kLeft, {95, 195}}, {kBottom | kRight, {143, 195}},
        {kLeft, {95, 208.5}},         {kRight, {143, 208.5}},
        {kTop, {120, 224}},           {kBottom, {118, 195}},
    };
    for (const auto &row : rows) {
        const PXRect expected = {row.drawn.x, row.drawn.y, 12, 12};
        EXPECT_EQ(placeOfHandle(row.handle, kSelection), expected) << row.handle;
        PXRect grabbed = expected;
        grabbed.y += row.handle == kTop ? 2 : 0;
        EXPECT_EQ(rectForGrabHandle(row.handle, kSelection), grabbed) << row.handle;
    }
    for (const int none : {0, 5, 7, 10, 15, 16})
        EXPECT_EQ(placeOfHandle(none, kSelection), PXRect{}) << none;
}

} // namespace
