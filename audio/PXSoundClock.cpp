#include "audio/PXSoundClock.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double kUpdateInterval = 0.02; ///< Seconds of samples; more often tells nothing new.
// The loop's bandwidth in Hz. At first a running mean, so that the offset is found within a second;
// then narrow: a server's estimates wander by 10 ms in a few seconds.
constexpr double kBandwidth = 0.02;
constexpr double kFirstBandwidth = 0.25; ///< Over the seconds since the beginning.
constexpr double kTimeUntilRate = 4; ///< Seconds; before, the wander would pass for a wrong rate.
constexpr double kLargestDrift = 0.002; ///< No quartz is that bad.

constexpr double kJump = 0.2; ///< Seconds off what is expected: no wander any more,
constexpr double kTimeUntilJump = 0.5; ///< once it has lasted for so long.

} // namespace

PXSoundClock::PXSoundClock(int sampleRate)
    : _nominalPeriod(1.0 / sampleRate), _period(_nominalPeriod)
{
}

double PXSoundClock::drift() const
{
    return _period / _nominalPeriod - 1;
}

PXSoundClock::Place PXSoundClock::advance(int frames, std::uint64_t hostTime)
{
    const double time = static_cast<double>(hostTime) * 1e-9;
    Place place;
    if (!_hasBegun)
        _begin(time);
    const double error = time - _next;
    const double seconds = frames * _nominalPeriod;
    _sinceJump = std::abs(error) > kJump ? _sinceJump + seconds : 0;
    if (_isInterrupted || _sinceJump > kTimeUntilJump) {
        // What lies behind us was never recorded; samples that come early are all there.
        place.gap = std::max(0.0, error);
        _begin(time);
    } else if (_sinceJump == 0) {
        _update(error, seconds);
    }
    place.hostTime = _next;
    _next += frames * _period;
    return place;
}

void PXSoundClock::_begin(double hostTime)
{
    _next = hostTime;
    _sinceUpdate = 0;
    _sinceBegin = 0;
    _sinceJump = 0;
    _hasBegun = true;
    _isInterrupted = false;
}

void PXSoundClock::_update(double error, double seconds)
{
    _sinceBegin += seconds;
    _sinceUpdate += seconds;
    if (_sinceUpdate < kUpdateInterval)
        return;
    const double bandwidth = std::max(kBandwidth, kFirstBandwidth / _sinceBegin);
    const double omega = std::min(0.5, 2 * std::numbers::pi * bandwidth * _sinceUpdate);
    _next += std::numbers::sqrt2 * omega * error;
    if (_sinceBegin > kTimeUntilRate) {
        _period += omega * omega * error * _nominalPeriod / _sinceUpdate;
        _period = std::clamp(_period, _nominalPeriod * (1 - kLargestDrift),
                             _nominalPeriod * (1 + kLargestDrift));
    }
    _sinceUpdate = 0;
}
