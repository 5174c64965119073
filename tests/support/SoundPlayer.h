#pragma once

#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

/// Plays a signal to an output without end, over a connection of its own, and knows when each of
/// its frames is heard. 48 kHz unless said otherwise, 32-bit floats.
class SoundPlayer final {
public:
    /// What a channel's sample is; on the player's thread.
    using Signal = std::function<float(std::int64_t frame, int channel)>;
    struct Format {
        int sampleRate = 48000;
        int channels = 1;
        QString channelMap = {}; ///< "front-left,front-right"; the usual one where empty.
        /// From here to the ear. With little, PipeWire works in short steps, and by as much as one
        /// of them its account is early; a busy machine wants more.
        int latencyMs = 100;
    };

    /// Returns when it plays. Throws std::runtime_error where it cannot. Without a sink it is the
    /// default one, and moves with it.
    SoundPlayer(const QString &server, const QString &sink, Signal signal);
    SoundPlayer(const QString &server, const QString &sink, Signal signal, const Format &format);
    ~SoundPlayer();

    /// By the server's own account: CLOCK_MONOTONIC, nanoseconds. To be asked about frames that
    /// have been heard a while ago, so that it has settled.
    [[nodiscard]] std::int64_t hostTimeOfFrame(std::int64_t frame) const;

private:
    struct Stream;

    const Format _format;
    std::atomic<std::int64_t> _start = 0; ///< Host time of frame 0.
    std::jthread _thread;
};

/// A tone of amplitude 0.5 on all channels.
SoundPlayer::Signal toneOf(double frequency, int sampleRate = 48000);
/// Clicks of a millisecond, one each half second, the first at frame 0.
SoundPlayer::Signal clicks(int sampleRate = 48000);
