#include "platform/x11/X11DisplayLink.h"
#include "foundation/PXClock.h"
#include "platform/x11/X11VerticalBlank.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint64_t kPeriod = 1'000'000'000 / 60;

struct LinkCase {
    const char *name;
    bool hasVerticalBlank;
    bool killsServer; ///< Then the timer must go on.
};

void PrintTo(const LinkCase &c, std::ostream *out)
{
    *out << c.name;
}

class X11DisplayLinkTest : public testing::TestWithParam<LinkCase> {
protected:
    X11DisplayLinkTest()
    {
        if (GetParam().killsServer)
            _display.kill();
    }

    /// Starts the link; each call is noted and answered with the next of `answers`, then with
    /// "when woken".
    void start(std::vector<std::uint64_t> answers)
    {
        valueOf(_link->start([this, answers = std::move(answers)](std::uint64_t time) {
            const std::lock_guard lock(_mutex);
            _times.push_back(time);
            _called.notify_all();
            const std::size_t n = _times.size() - 1;
            return n < answers.size() ? time + answers[n] : PXDisplayLink::kWhenWoken;
        }));
    }

    std::vector<std::uint64_t> waitForCalls(std::size_t count)
    {
        std::unique_lock lock(_mutex);
        _called.wait(lock, [&] { return _times.size() >= count; });
        return _times;
    }

    /// A virtual display has no blanks of its own; its server's clock stands for them.
    std::unique_ptr<PXDisplayLink> makeLink()
    {
        if (!GetParam().hasVerticalBlank)
            return valueOf(_screen->makeDisplayLink());
        PXMainDisplay &display = _screen->mainDisplay();
        auto blank = X11VerticalBlank::onConnection(valueOf(X11Connection::open(_display.name())),
                                                    display.bounds());
        return std::make_unique<X11DisplayLink>(display, std::move(blank));
    }

    VirtualDisplay _display = VirtualDisplay(320, 240);
    std::unique_ptr<PXScreenPlatform> _screen = openScreen(_display);
    std::mutex _mutex;
    std::condition_variable _called;
    std::vector<std::uint64_t> _times;
    std::unique_ptr<PXDisplayLink> _link = makeLink();
};

INSTANTIATE_TEST_SUITE_P(Sources, X11DisplayLinkTest,
                         testing::Values(LinkCase{"VerticalBlank", true, false},
                                         LinkCase{"Timer", false, false},
                                         LinkCase{"ServerThatHasGone", true, true}),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_P(X11DisplayLinkTest, CallsAtTheFirstRefreshThatIsWanted)
{
    const std::vector<std::uint64_t> answers
        = {0, 0, 2 * kPeriod, 2 * kPeriod, 10 * kPeriod, 5 * kPeriod / 2, 0};
    start(answers);
    const std::vector<std::uint64_t> times = waitForCalls(answers.size() + 1);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const std::uint64_t passed = times[i + 1] - times[i];
        // Never before it is wanted, save for the trembling of a blank; never twice a refresh.
        EXPECT_GE(passed + kPeriod / 8, answers[i]) << i;
        EXPECT_GT(passed, kPeriod / 2) << i;
    }
    _link->stop();
}

TEST_P(X11DisplayLinkTest, RestsUntilItIsWoken)
{
    start({});
    ASSERT_EQ(waitForCalls(1).size(), 1U);
    for (std::size_t calls = 2; calls < 6; ++calls) {
        // Calls that nobody asked for would come at a refresh; give them a few.
        std::this_thread::sleep_for(std::chrono::nanoseconds(4 * kPeriod));
        ASSERT_EQ(waitForCalls(0).size(), calls - 1);
        const std::uint64_t now = PXCurrentHostTime();
        _link->wake(now + 100 * kPeriod);
        _link->wake(); // Earlier than that wish.
        for (int i = 0; i < 1000; ++i)
            _link->wake(); // One call all the same.
        EXPECT_GT(waitForCalls(calls)[calls - 1] + kPeriod, now);
    }
    _link->stop();
}

TEST_P(X11DisplayLinkTest, AWakeDuringTheCallCounts)
{
    int calls = 0;
    valueOf(_link->start([&](std::uint64_t) {
        const std::lock_guard lock(_mutex);
        if (++calls == 1)
            _link->wake();
        _called.notify_all();
        return PXDisplayLink::kWhenWoken;
    }));
    std::unique_lock lock(_mutex);
    _called.wait(lock, [&] { return calls == 2; });
    lock.unlock();
    _link->stop();
}

TEST_P(X11DisplayLinkTest, ASlowCallIsNotFollowedByThoseItMissed)
{
    std::vector<std::uint64_t> begins;
    std::vector<std::uint64_t> times;
    valueOf(_link->start([&](std::uint64_t time) {
        begins.push_back(PXCurrentHostTime());
        times.push_back(time);
        if (begins.size() == 2)
            std::this_thread::sleep_for(std::chrono::nanoseconds(10 * kPeriod));
        if (begins.size() < 6)
            return PXDisplayLink::kNextRefresh;
        const std::lock_guard lock(_mutex);
        _times = times;
        _called.notify_all();
        return PXDisplayLink::kWhenWoken;
    }));
    const std::vector<std::uint64_t> all = waitForCalls(6);
    // The refreshes during the slow call are gone: the next is one after its end.
    EXPECT_GT(all[2] - all[1], 9 * kPeriod);
    for (std::size_t i = 3; i < all.size(); ++i)
        EXPECT_GT(all[i] - all[i - 1], kPeriod / 2);
    _link->stop();
}

TEST_P(X11DisplayLinkTest, StopsFromInsideAndFromOutside)
{
    valueOf(_link->start([&](std::uint64_t time) {
        _link->stop();
        _link->wake();
        const std::lock_guard lock(_mutex);
        _times.push_back(time);
        _called.notify_all();
        return PXDisplayLink::kNextRefresh;
    }));
    waitForCalls(1);
    _link->stop();
    _link->wake();
    EXPECT_EQ(waitForCalls(1).size(), 1U);
}

// A server that hangs stands for a display whose blanks do not come: one that sleeps, or was
// unplugged. The timer calls until they come again.
TEST(X11DisplayLink, ATimerStandsInWhileTheBlanksDoNotCome)
{
    const VirtualDisplay display(320, 240);
    const auto screen = openScreen(display);
    X11DisplayLink link(screen->mainDisplay(),
                        X11VerticalBlank::onConnection(valueOf(X11Connection::open(display.name())),
                                                       screen->mainDisplay().bounds()));
    std::mutex mutex;
    std::condition_variable called;
    std::vector<std::uint64_t> times;
    valueOf(link.start([&](std::uint64_t time) {
        const std::lock_guard lock(mutex);
        times.push_back(time);
        called.notify_all();
        return PXDisplayLink::kNextRefresh;
    }));
    // Blanks are told in whole microseconds; of the timer's moments one in a thousand is whole.
    const auto waitForThree = [&](bool areBlanks) {
        std::unique_lock lock(mutex);
        std::size_t seen = times.size();
        int inARow = 0;
        while (inARow < 3) {
            called.wait(lock, [&] { return times.size() > seen; });
            inARow = (times[seen] % 1000 == 0) == areBlanks ? inARow + 1 : 0;
            ++seen;
        }
    };
    const auto server = static_cast<pid_t>(display.serverProcessId());
    for (int round = 0; round < 2; ++round) {
        waitForThree(true);
        ASSERT_EQ(::kill(server, SIGSTOP), 0);
        waitForThree(false);
        ASSERT_EQ(::kill(server, SIGCONT), 0);
    }
    waitForThree(true);
    link.stop();
    for (std::size_t i = 1; i < times.size(); ++i)
        EXPECT_GT(times[i], times[i - 1]) << i;
}

TEST(X11DisplayLink, AtOnceIsNotLostAmongLaterWishes)
{
    const VirtualDisplay display(320, 240);
    const auto screen = openScreen(display);
    const auto link = valueOf(screen->makeDisplayLink());
    std::promise<std::uint64_t> passed;
    std::vector<std::uint64_t> times;
    valueOf(link->start([&](std::uint64_t time) {
        times.push_back(time);
        if (times.size() == 1) {
            link->wake(PXDisplayLink::kAtOnce);
            link->wake();
            return PXDisplayLink::kNextRefresh;
        }
        passed.set_value(times[1] - times[0]);
        return PXDisplayLink::kWhenWoken;
    }));
    // The refreshes of a virtual display are whole periods apart, to the nanosecond.
    EXPECT_NE(passed.get_future().get() % kPeriod, 0U);
    link->stop();
}

} // namespace
