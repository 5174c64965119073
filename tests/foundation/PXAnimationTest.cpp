#include "foundation/PXAnimation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>

#include <algorithm>

using testing::ElementsAre;

namespace {

class Watcher final : public PXAnimationDelegate {
public:
    void animationDidReachProgressMark(PXAnimation &animation, float progress) override
    {
        marks.push_back(progress);
        if (progress == stopsAt)
            animation.stopAnimation();
    }
    void animationDidSetCurrentProgress(PXAnimation &, float progress) override
    {
        steps.push_back(progress);
        marksAtStep.push_back(marks.size());
    }
    void animationDidEnd(PXAnimation &) override
    {
        ++ends;
        loop.quit();
    }

    std::vector<float> marks;
    std::vector<float> steps;
    std::vector<std::size_t> marksAtStep; ///< That had been reached.
    float stopsAt = -1;
    int ends = 0;
    QEventLoop loop;
};

class PXAnimationTest : public testing::TestWithParam<PXAnimationBlocking> {
protected:
    void run(double duration)
    {
        PXAnimation animation(duration, PXAnimationCurve::Linear);
        animation.setAnimationBlockingMode(GetParam());
        animation.setDelegate(&watcher);
        animation.setProgressMarks({0, 0.5F, 1, 0.25F, 0.75F});
        animation.startAnimation();
        if (GetParam() == PXAnimationBlocking::Blocking)
            EXPECT_FALSE(animation.isAnimating()) << "returns at the end";
        else if (animation.isAnimating() && watcher.stopsAt < 0)
            watcher.loop.exec();
        while (animation.isAnimating())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        last = animation.currentProgress();
    }

    Watcher watcher;
    float last = 0;
};

INSTANTIATE_TEST_SUITE_P(, PXAnimationTest,
                         testing::Values(PXAnimationBlocking::Blocking,
                                         PXAnimationBlocking::Nonblocking),
                         [](const auto &kind) {
                             return kind.param == PXAnimationBlocking::Blocking ? "Blocking"
                                                                                : "Nonblocking";
                         });

TEST_P(PXAnimationTest, TellsEachMarkOnceAndEachStep)
{
    for (const double duration : {0.1, 0.0}) {
        watcher.marks.clear();
        watcher.steps.clear();
        run(duration);
        EXPECT_THAT(watcher.marks, ElementsAre(0, 0.25F, 0.5F, 0.75F, 1)) << duration;
        EXPECT_TRUE(std::is_sorted(watcher.steps.begin(), watcher.steps.end()));
        EXPECT_EQ(watcher.steps.back(), 1);
        EXPECT_EQ(last, 1);
    }
    EXPECT_EQ(watcher.ends, 2);
    EXPECT_GE(watcher.marksAtStep.front(), 1) << "the mark before the step that passed it";
}

TEST_P(PXAnimationTest, StaysWhereItWasStopped)
{
    watcher.stopsAt = 0.5F;
    run(0.1);
    EXPECT_EQ(watcher.ends, 0);
    EXPECT_EQ(watcher.marks[2], 0.5F);
    EXPECT_GE(last, 0.5F);
}

TEST(PXTimerTarget, EndsWithItsOwnerAndMayScheduleItselfAnew)
{
    int calls = 0;
    QEventLoop loop;
    {
        PXTimerTarget gone;
        gone.scheduleTimerWithTimeInterval(0.001, [&](PXTimerTarget &) { calls += 1000; });
    }
    PXTimerTarget timer;
    timer.fire();
    timer.scheduleTimerWithTimeInterval(
        0.001,
        [&](PXTimerTarget &self) {
            if (++calls == 3) {
                self.scheduleTimerWithTimeInterval(
                    0.001,
                    [&](PXTimerTarget &again) {
                        calls += again.userInfo().toInt();
                        loop.quit();
                    },
                    100, false);
            }
        },
        {}, true);
    loop.exec();
    EXPECT_EQ(calls, 103);
    EXPECT_FALSE(timer.isValid());
}

} // namespace
