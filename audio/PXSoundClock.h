#pragma once

#include <cstdint>

/// Tells when each sample of a source was really heard. A source says it with every buffer, but
/// what it says wanders by milliseconds, and its clock is not ours: a delay-locked loop smooths the
/// one and follows the other (F. Adriaensen, "Using a DLL to filter time", Linux Audio Conference
/// 2005). One thread.
class PXSoundClock final {
public:
    /// Where a buffer stands.
    struct Place {
        double hostTime = 0; ///< Seconds of CLOCK_MONOTONIC, of its first frame.
        double gap = 0; ///< Seconds in front of it that were never delivered.
    };

    explicit PXSoundClock(int sampleRate);

    /// The next `frames` begin at `hostTime` (nanoseconds), as the source says.
    Place advance(int frames, std::uint64_t hostTime);
    /// The source has stopped: it may begin again at any time, and what lies between is a gap.
    void interrupt() { _isInterrupted = true; }

    /// Host seconds that pass while the source counts one, less 1: above 0 where it is slow.
    [[nodiscard]] double drift() const;

private:
    void _begin(double hostTime);
    void _update(double error, double seconds);

    const double _nominalPeriod; ///< Seconds a frame.
    double _period; ///< The same, by the source's own clock.
    double _next = 0; ///< When the next frame is expected.
    double _sinceUpdate = 0; ///< Seconds of samples since the loop was last closed,
    double _sinceBegin = 0; ///< and since it was begun.
    double _sinceJump = 0; ///< For so long the source has been far from what is expected.
    bool _hasBegun = false;
    bool _isInterrupted = false;
};
