#include "capture/BRDirtyRects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

constexpr PXRect kSelection{0, 0, 100, 100};

struct MergeCase {
    const char *name;
    std::vector<PXRect> dirtyRects;
    std::vector<PXRect> merged;
};

const MergeCase kMergeCases[] = {
    {"apartStaysApart", {{0, 0, 4, 4}, {9, 9, 4, 4}}, {{0, 0, 4, 4}, {9, 9, 4, 4}}},
    {"touchingStaysApart", {{0, 0, 4, 4}, {4, 0, 4, 4}}, {{0, 0, 4, 4}, {4, 0, 4, 4}}},
    {"overlapBecomesTheUnion", {{0, 0, 4, 4}, {2, 2, 4, 4}}, {{0, 0, 6, 6}}},
    {"oneThatJoinsTwo", {{0, 0, 4, 4}, {8, 0, 4, 4}, {2, 0, 8, 4}}, {{0, 0, 12, 4}}},
    // The last one meets the first, and only their union meets the second, which has been passed.
    {"passedElementsAreNotLookedAtAgain",
     {{0, 8, 12, 4}, {10, 0, 4, 4}, {0, 2, 2, 7}},
     {{10, 0, 4, 4}, {0, 2, 12, 10}}},
    {"outsideIsSkipped", {{200, 0, 4, 4}, {-4, 0, 4, 4}}, {}},
    {"cutToTheSelection", {{-5, 95, 10, 10}}, {{0, 95, 5, 5}}},
    {"emptyIsSkipped", {{5, 5, 0, 3}}, {}},
};

TEST(MergeDirtyRects, Table)
{
    for (const MergeCase &c : kMergeCases)
        EXPECT_EQ(BRMergeDirtyRects(c.dirtyRects, kSelection), c.merged) << c.name;
}

TEST(MergeDirtyRects, CoversAllDamageAndNothingOutside)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<int> place(-20, 110);
    std::uniform_int_distribution<int> length(0, 30);
    for (int run = 0; run < 200; ++run) {
        std::vector<PXRect> damage;
        damage.reserve(20);
        for (int i = 0; i < 20; ++i) {
            damage.push_back({static_cast<float>(place(random)), static_cast<float>(place(random)),
                              static_cast<float>(length(random)),
                              static_cast<float>(length(random))});
        }
        const std::vector<PXRect> merged = BRMergeDirtyRects(damage, kSelection);
        for (const PXRect &rect : merged)
            EXPECT_EQ(PXIntersectionRect(rect, kSelection), rect);
        for (const PXRect &rect : damage) {
            const PXRect visible = PXIntersectionRect(rect, kSelection);
            if (visible.isEmpty())
                continue;
            // Merging only joins, so one rectangle of the result holds all of it.
            EXPECT_TRUE(std::any_of(merged.begin(), merged.end(), [&](const PXRect &whole) {
                return PXIntersectionRect(whole, visible) == visible;
            }));
        }
    }
}

} // namespace
