#pragma once

#include "platform/PXSound.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include <cstdint>

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
}

/// Turns sound from one type, rate and set of channels into another, bit for bit where they are the
/// same. What comes out waits until it is pulled. Statuses are the library's, negative on failure.
class SoundConverter final {
public:
    struct Shape {
        AVSampleFormat type = AV_SAMPLE_FMT_NONE; ///< Interleaved or in planes.
        int sampleRate = 0;
        AVChannelLayout layout = {}; ///< As `layoutOf` makes it.
    };

    /// Null where the library cannot convert between the two.
    [[nodiscard]] static std::unique_ptr<SoundConverter> create(const Shape &in, const Shape &out);

    /// Takes `frames` frames from the planes; a single one where they are interleaved.
    int push(const std::uint8_t *const *planes, int frames);
    int pushSilence(int frames);
    /// Nothing follows: gives what a change of the rate holds back.
    int finish();
    /// Frames that can be pulled.
    [[nodiscard]] int available() const { return av_audio_fifo_size(_queue.get()); }
    /// Up to `frames` frames; answers how many.
    int pull(std::uint8_t *const *planes, int frames);

    /// The layout with these places, or the usual one of so many channels where there are none.
    [[nodiscard]] static AVChannelLayout layoutOf(int channels, std::uint64_t channelMask);
    [[nodiscard]] static AVChannelLayout layoutOf(const AVChannelLayout &layout);
    /// 0 where the places are not known.
    [[nodiscard]] static std::uint64_t maskOf(const AVChannelLayout &layout);
    [[nodiscard]] static AVSampleFormat interleaved(PXSampleType type);

private:
    using Queue = PXHandle<AVAudioFifo, av_audio_fifo_free>;

    SoundConverter(const Shape &in, const Shape &out, ffmpeg::Resampler resampler, Queue queue);
    int convert(const std::uint8_t **planes, int frames);

    Shape _in;
    Shape _out;
    ffmpeg::Resampler _resampler;
    Queue _queue;
    ffmpeg::Frame _converted; ///< Scratch.
    ffmpeg::Frame _silence; ///< Made when it is needed.
};
