#pragma once

#include "platform/PXSoundInput.h"
#include "tests/support/SoundPlayer.h"
#include "tests/support/ValueOf.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <vector>

/// Keeps everything that an input tells. To be made before the input, which must end first.
class Listener final : public PXSoundInputDelegate {
public:
    struct Piece {
        std::size_t firstSample; ///< Its place in `samples`.
        int frames;
        std::int64_t hostTime;
        std::int64_t playerStart; ///< Of `player`, as it was known then.
    };
    struct Recording {
        std::vector<float> samples;
        std::vector<Piece> pieces;
        std::vector<PXError> interruptions;
        std::vector<std::size_t> piecesBeforeInterruption;
    };

    /// Whose clicks are heard; starts later after each time that it could not keep up.
    const SoundPlayer *player = nullptr;
    /// Called with each piece, before it is kept.
    std::function<void(const PXSoundBuffer &)> onBuffer;

    /// Waits until `isTrue` of what was heard; throws after a minute.
    Recording waitUntil(const std::function<bool(const Recording &)> &isTrue, const char *what)
    {
        std::unique_lock lock(_lock);
        if (!_heard.wait_for(lock, std::chrono::minutes(1), [&] { return isTrue(_recording); }))
            throw std::runtime_error(std::string("waited in vain for ") + what);
        return _recording;
    }
    Recording waitForSamples(std::size_t count)
    {
        return waitUntil([=](const Recording &r) { return r.samples.size() >= count; }, "samples");
    }
    Recording recording()
    {
        const std::lock_guard lock(_lock);
        return _recording;
    }

    void soundInputDidOutputBuffer(const PXSoundBuffer &buffer) override
    {
        if (onBuffer)
            onBuffer(buffer);
        const std::lock_guard lock(_lock);
        const std::size_t first = _recording.samples.size();
        _recording.samples.resize(first + buffer.samples.size() / sizeof(float));
        std::memcpy(_recording.samples.data() + first, buffer.samples.data(),
                    buffer.samples.size());
        _recording.pieces.push_back({first, buffer.frames,
                                     static_cast<std::int64_t>(buffer.hostTime),
                                     player ? player->hostTimeOfFrame(0) : 0});
        _heard.notify_all();
    }
    void soundInputWasInterrupted(const PXError &error) override
    {
        const std::lock_guard lock(_lock);
        _recording.interruptions.push_back(error);
        _recording.piecesBeforeInterruption.push_back(_recording.pieces.size());
        _heard.notify_all();
    }

private:
    std::mutex _lock;
    std::condition_variable _heard;
    Recording _recording;
};

/// How much later than its player says each click was heard, in milliseconds, smallest first. They
/// come each half second, so that it lies between minus and plus a quarter.
inline std::vector<double> lateness(const Listener::Recording &recording,
                                    const PXSoundFormat &format, float threshold)
{
    std::vector<double> result;
    double previous = 0;
    for (const Listener::Piece &piece : recording.pieces) {
        for (int frame = 0; frame < piece.frames; ++frame) {
            const std::size_t sample
                = static_cast<std::size_t>(frame) * static_cast<std::size_t>(format.channels);
            if (recording.samples[piece.firstSample + sample] < threshold)
                continue;
            const double time = static_cast<double>(piece.hostTime - piece.playerStart) / 1e6
                + 1e3 * frame / format.sampleRate;
            if (result.empty() || std::abs(time - previous) > 100)
                result.push_back(time - 500 * std::round(time / 500));
            previous = time;
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}
