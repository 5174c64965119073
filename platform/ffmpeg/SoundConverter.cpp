#include "platform/ffmpeg/SoundConverter.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <new>
#include <vector>

namespace {

constexpr int kFramesAtFirst = 4096; // The queue grows.

/// Frames of that shape in `frame`, with room for at least so many.
int makeRoom(ffmpeg::Frame &frame, const SoundConverter::Shape &shape, int frames)
{
    if (frame && frame->nb_samples >= frames)
        return 0;
    frame.reset(av_frame_alloc());
    if (!frame)
        return AVERROR(ENOMEM);
    frame->format = shape.type;
    frame->nb_samples = frames;
    frame->sample_rate = shape.sampleRate;
    if (const int status = av_channel_layout_copy(&frame->ch_layout, &shape.layout); status < 0)
        return status;
    return av_frame_get_buffer(frame.get(), 0);
}

// One voice is as loud from two loudspeakers as a player makes it, not 3 dB less.
int setMonoToFront(SwrContext &resampler, const SoundConverter::Shape &in,
                   const SoundConverter::Shape &out)
{
    const int left = av_channel_layout_index_from_channel(&out.layout, AV_CHAN_FRONT_LEFT);
    const int right = av_channel_layout_index_from_channel(&out.layout, AV_CHAN_FRONT_RIGHT);
    const bool hasCentre
        = av_channel_layout_index_from_channel(&out.layout, AV_CHAN_FRONT_CENTER) >= 0;
    if (in.layout.nb_channels != 1 || left < 0 || right < 0 || hasCentre)
        return 0;
    std::vector<double> matrix(static_cast<std::size_t>(out.layout.nb_channels), 0.0);
    matrix[static_cast<std::size_t>(left)] = 1.0;
    matrix[static_cast<std::size_t>(right)] = 1.0;
    return swr_set_matrix(&resampler, matrix.data(), 1);
}

} // namespace

std::unique_ptr<SoundConverter> SoundConverter::create(const Shape &in, const Shape &out)
{
    SwrContext *made = nullptr;
    AVChannelLayout inLayout = in.layout; // The library of Debian 12 does not call them constant.
    AVChannelLayout outLayout = out.layout;
    int status = swr_alloc_set_opts2(&made, &outLayout, out.type, out.sampleRate, &inLayout,
                                     in.type, in.sampleRate, 0, nullptr);
    ffmpeg::Resampler resampler(made);
    // Channels that are added up get quieter rather than clipped.
    if (status >= 0)
        status = av_opt_set_double(resampler.get(), "rematrix_maxval", 1.0, 0);
    if (status >= 0)
        status = setMonoToFront(*resampler, in, out);
    if (status >= 0)
        status = swr_init(resampler.get());
    if (status < 0)
        return nullptr;
    Queue queue(av_audio_fifo_alloc(out.type, out.layout.nb_channels, kFramesAtFirst));
    if (!queue)
        throw std::bad_alloc();
    return std::unique_ptr<SoundConverter>(
        new SoundConverter(in, out, std::move(resampler), std::move(queue)));
}

SoundConverter::SoundConverter(const Shape &in, const Shape &out, ffmpeg::Resampler resampler,
                               Queue queue)
    : _in(in), _out(out), _resampler(std::move(resampler)), _queue(std::move(queue))
{
}

int SoundConverter::push(const std::uint8_t *const *planes, int frames)
{
    const int count = av_sample_fmt_is_planar(_in.type) ? _in.layout.nb_channels : 1;
    std::vector<const std::uint8_t *> pointers(planes, planes + count);
    return convert(pointers.data(), frames);
}

int SoundConverter::pushSilence(int frames)
{
    if (const int status = makeRoom(_silence, _in, frames); status < 0)
        return status;
    av_samples_set_silence(_silence->extended_data, 0, frames, _in.layout.nb_channels, _in.type);
    return push(_silence->extended_data, frames);
}

int SoundConverter::finish()
{
    // The library does not say how much the end of a changed rate makes.
    for (int before = -1; before < available();) {
        before = available();
        if (const int status = convert(nullptr, 0); status < 0)
            return status;
    }
    return 0;
}

int SoundConverter::convert(const std::uint8_t **planes, int frames)
{
    const int most = swr_get_out_samples(_resampler.get(), frames);
    if (most <= 0)
        return most;
    if (const int status = makeRoom(_converted, _out, most); status < 0)
        return status;
    const int made = swr_convert(_resampler.get(), _converted->extended_data, most, planes, frames);
    if (made < 0)
        return made;
    auto **out = reinterpret_cast<void **>(_converted->extended_data);
    return std::min(0, av_audio_fifo_write(_queue.get(), out, made));
}

int SoundConverter::pull(std::uint8_t *const *planes, int frames)
{
    const int count = av_sample_fmt_is_planar(_out.type) ? _out.layout.nb_channels : 1;
    std::vector<void *> pointers(planes, planes + count);
    return av_audio_fifo_read(_queue.get(), pointers.data(), frames);
}

AVChannelLayout SoundConverter::layoutOf(int channels, std::uint64_t channelMask)
{
    AVChannelLayout layout = {};
    if (std::popcount(channelMask) == channels)
        av_channel_layout_from_mask(&layout, channelMask);
    else
        av_channel_layout_default(&layout, channels);
    return layout;
}

AVChannelLayout SoundConverter::layoutOf(const AVChannelLayout &layout)
{
    return layoutOf(layout.nb_channels, maskOf(layout));
}

std::uint64_t SoundConverter::maskOf(const AVChannelLayout &layout)
{
    return layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
}

AVSampleFormat SoundConverter::interleaved(PXSampleType type)
{
    switch (type) {
    case PXSampleType::Int16:
        return AV_SAMPLE_FMT_S16;
    case PXSampleType::Int32:
        return AV_SAMPLE_FMT_S32;
    case PXSampleType::Float32:
        return AV_SAMPLE_FMT_FLT;
    case PXSampleType::Float64:
        return AV_SAMPLE_FMT_DBL;
    }
    return AV_SAMPLE_FMT_NONE;
}
