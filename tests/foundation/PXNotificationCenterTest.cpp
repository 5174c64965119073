#include "foundation/PXNotificationCenter.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <atomic>
#include <optional>
#include <semaphore>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

TEST(PXNotificationCenter, ReachesThoseWhoAskedForNameAndSender)
{
    PXNotificationCenter center;
    const int sender = 0;
    const int other = 0;
    QStringList heard;
    auto ofOne = center.addObserver(u"moved"_s, &sender, [&](auto &&...) { heard << u"one"_s; });
    const auto ofAll = center.addObserver(
        u"moved"_s, nullptr, [&](const QString &name, const void *from, const auto &) {
            heard << (from == &other ? name + u" by other"_s : name);
        });
    center.postNotificationName(u"moved"_s, &sender);
    center.postNotificationName(u"moved"_s, &other);
    center.postNotificationName(u"closed"_s, &sender);
    EXPECT_EQ(heard, (QStringList{u"one"_s, u"moved"_s, u"moved by other"_s}));
    ofOne.end();
    center.postNotificationName(u"moved"_s, &sender);
    EXPECT_EQ(heard.size(), 4);
}

TEST(PXNotificationCenter, AnObserverMayEndItselfAndAddOthersWhenCalled)
{
    PXNotificationCenter center;
    int calls = 0;
    std::optional<PXObservation> second;
    std::optional<PXObservation> first = center.addObserver(u"tick"_s, nullptr, [&](auto &&...) {
        ++calls;
        first.reset();
        second = center.addObserver(u"tick"_s, nullptr, [&](auto &&...) { calls += 10; });
    });
    center.postNotificationName(u"tick"_s, nullptr);
    EXPECT_EQ(calls, 1);
    center.postNotificationName(u"tick"_s, nullptr);
    EXPECT_EQ(calls, 11);
}

TEST(PXNotificationCenter, EndingWaitsForACallOnAnotherThread)
{
    PXNotificationCenter center;
    std::binary_semaphore isInside(0);
    std::binary_semaphore mayLeave(0);
    std::atomic<bool> hasLeft = false;
    std::optional<PXObservation> observation
        = center.addObserver(u"grab"_s, nullptr, [&](auto &&...) {
              isInside.release();
              mayLeave.acquire();
              hasLeft = true;
          });
    const std::jthread poster([&] { center.postNotificationName(u"grab"_s, nullptr); });
    isInside.acquire();
    const std::jthread opener([&] { mayLeave.release(); });
    observation.reset();
    EXPECT_TRUE(hasLeft);
    center.postNotificationName(u"grab"_s, nullptr); // Would wait for ever if it were called.
}

} // namespace
