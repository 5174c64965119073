#pragma once

#include <cstddef>
#include <span>

/// Keeps sound within full scale. Where it is louder it is turned down for a moment, all channels
/// alike, instead of having its tops cut off, which rattles. It looks one block ahead, so that it
/// is down when the loud place comes, and is turned up again slowly, so that the ear does not
/// notice. What stays within full scale is not touched. One thread.
class SoundLimiter final {
public:
    explicit SoundLimiter(int channels) : _channels(static_cast<std::size_t>(channels)) { }

    /// How long a block is to be, which is how fast it turns down.
    [[nodiscard]] static int framesOfBlock(int sampleRate);

    /// Interleaved samples of a block, changed in place, and of the block that will be given next:
    /// both may be empty, at the beginning the first, at the end the second.
    void limit(std::span<double> block, std::span<const double> next);

private:
    std::size_t _channels;
    double _gain = 1; ///< At the beginning of the next block; never too much for that one.
};
