#include "foundation/WHThreadSafeQueue.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

namespace {

TEST(WHThreadSafeQueue, HandsEverythingOverInOrder)
{
    WHThreadSafeQueue<std::unique_ptr<int>> queue;
    EXPECT_TRUE(queue.empty());
    std::vector<int> taken;
    std::jthread taker([&] {
        for (int i = 0; i < 1000; ++i)
            taken.push_back(*queue.dequeue());
    });
    for (int i = 0; i < 1000; ++i)
        queue.enqueue(std::make_unique<int>(i));
    taker.join();
    ASSERT_EQ(taken.size(), 1000U);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(taken[static_cast<std::size_t>(i)], i);
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.unsafeSize(), 0U);
}

TEST(WHThreadSafeQueue, AStopWakesWhoeverWaits)
{
    WHThreadSafeQueue<int> queue;
    std::jthread waiter([&](const std::stop_token &stop) { EXPECT_FALSE(queue.dequeue(stop)); });
    waiter.request_stop();
    waiter.join();
    queue.enqueue(1);
    EXPECT_EQ(queue.dequeue(std::stop_token()), 1);
}

} // namespace
