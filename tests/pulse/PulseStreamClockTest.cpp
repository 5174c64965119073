#include "platform/pulse/PulseStreamClock.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr std::int64_t kMs = 1'000'000;

struct ClockCase {
    const char *name;
    std::vector<std::int64_t> reportsMs;
    std::int64_t startMs;
};

const ClockCase kClockCases[] = {
    {"oneReport", {70}, 70},
    {"beforeTheClocksBeginning", {-5}, -5},
    {"staleReportsDoNotCount", {70, 91, 85, 70, 80}, 70},
    {"anEarlierOneDoesAtOnce", {80, 91, 70, 91}, 70},
    {"lostSamplesMoveItAtOnce", {70, 71, 1500, 1521}, 1500},
};

TEST(PulseStreamClock, TakesTheEarliestReport)
{
    for (const ClockCase &c : kClockCases) {
        SCOPED_TRACE(c.name);
        PulseStreamClock clock;
        for (const std::int64_t report : c.reportsMs)
            clock.note(report * kMs);
        EXPECT_EQ(clock.start(), c.startMs * kMs);
    }
}

TEST(PulseStreamClock, TellsOnceThatSamplesWereLost)
{
    const struct {
        const char *name;
        std::int64_t lostMs;
        int lateReports; ///< In between, because the machine is busy.
        int timesTold;
    } rows[] = {
        {"nothing", 0, 0, 0}, {"lateForAMoment", 0, 5, 0}, {"lessThanAReportIsOff", 20, 0, 0},
        {"some", 45, 0, 1},   {"many", 190, 0, 1},         {"someWhileItIsBusy", 45, 5, 1},
    };
    for (const auto &row : rows) {
        PulseStreamClock clock;
        int told = 0;
        for (int report = 0; report < 200; ++report) {
            const bool isLate = report >= 100 && report < 100 + row.lateReports;
            const std::int64_t lost = report >= 100 ? row.lostMs : 0;
            told += clock.note((1000 + lost + (isLate ? 60 : report % 3 * 7)) * kMs) ? 1 : 0;
        }
        EXPECT_EQ(told, row.timesTold) << row.name;
        EXPECT_EQ(clock.start(), (1000 + row.lostMs) * kMs) << row.name;
    }
}

TEST(PulseStreamClock, FollowsASourceThatIsSlow)
{
    // 200 parts in a million later than the clock with each of ten minutes' reports.
    PulseStreamClock clock;
    std::int64_t truth = 0;
    for (int report = 0; report < 30'000; ++report) {
        truth += 20 * kMs / 5000;
        clock.note(truth + (report % 3 == 0 ? 0 : 21 * kMs));
    }
    EXPECT_NEAR(static_cast<double>(clock.start()), static_cast<double>(truth), 0.5 * kMs);
}

} // namespace
