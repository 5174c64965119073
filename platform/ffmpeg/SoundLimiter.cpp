#include "platform/ffmpeg/SoundLimiter.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kBlocksASecond = 200;
// Of what it was turned down, so much comes back with each block: nearly all within a second. Much
// faster, and it would follow the waves of a low tone and bend them.
constexpr double kRecovery = 1.0 / 60;

/// The highest at which these samples are within full scale.
double gainFor(std::span<const double> samples)
{
    double peak = 1;
    for (const double sample : samples)
        peak = std::max(peak, std::abs(sample));
    return 1 / peak;
}

} // namespace

int SoundLimiter::framesOfBlock(int sampleRate)
{
    return std::max(1, sampleRate / kBlocksASecond);
}

void SoundLimiter::limit(std::span<double> block, std::span<const double> next)
{
    const double recovered = _gain + (1 - _gain) * kRecovery;
    const double end = std::min({recovered, gainFor(block), gainFor(next)});
    // Between two gains that the block bears, in a straight line: every one on it is borne, too.
    if (_gain < 1 || end < 1) {
        const double step
            = (end - _gain) * static_cast<double>(_channels) / static_cast<double>(block.size());
        double gain = _gain;
        for (auto rest = block; !rest.empty(); rest = rest.subspan(_channels)) {
            for (double &sample : rest.first(_channels))
                sample *= gain;
            gain += step;
        }
    }
    _gain = end;
}
