#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>

/// Where a stream lies on the host clock, from the server's repeated reports of how much it has
/// captured. PipeWire's reports are right at the moment in which it hands over samples and grow
/// stale until it does so again: up to a quantum (21 ms and more), always to the same side. So
/// they are asked for when samples arrive, and the earliest of the last second is taken for true;
/// a busy machine makes late ones. PulseAudio's agree to a tenth of a millisecond anyway.
class PulseStreamClock final {
public:
    /// A report that puts the stream's first frame at that host time, in nanoseconds; may lie
    /// before the clock's own beginning. Whether it is now clear that samples were lost a moment
    /// ago: the stream has been later since than any delay of a report explains.
    bool note(std::int64_t start)
    {
        if (isSet() && start > this->start() + kLostSamples)
            clear();
        _reports.push_back(start);
        if (_reports.size() > kReports)
            _reports.pop_front();
        if (_reports.size() <= kReportsToBeSure)
            return false;
        const auto latest = _reports.end() - kReportsToBeSure;
        const bool areLost = *std::min_element(latest, _reports.end())
            > *std::min_element(_reports.begin(), latest) + kLaterThanAnyReport;
        if (areLost)
            _reports.erase(_reports.begin(), latest);
        return areLost;
    }
    /// What was known does not hold any more.
    void clear() { _reports.clear(); }
    [[nodiscard]] bool isSet() const { return !_reports.empty(); }
    /// To be asked when it is set.
    [[nodiscard]] std::int64_t start() const
    {
        return *std::min_element(_reports.begin(), _reports.end());
    }

private:
    /// At ten reports a second, some seconds.
    static constexpr std::size_t kReports = 25;
    /// Later by more than a report can be stale: the server has thrown samples away, because
    /// nobody took them for too long.
    static constexpr std::int64_t kLostSamples = 300'000'000;
    /// So many in a row are not all stale, nor late because the machine is busy.
    static constexpr std::ptrdiff_t kReportsToBeSure = 8;
    static constexpr std::int64_t kLaterThanAnyReport = 25'000'000;

    std::deque<std::int64_t> _reports;
};
