#include "platform/ffmpeg/FFmpegSoundCodecs.h"

#include "platform/PXCodec.h"
#include "platform/ffmpeg/InstalledCodec.h"
#include "platform/ffmpeg/SoundConverter.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <span>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMostChannels = 64; // What the library converts.
constexpr int kHighestRate = 768000;
constexpr double kHighQuality = 768;
constexpr double kBestQuality = 1024;

struct Kind {
    const char (&code)[5];
    const char *name;
    const char *encoder;
    bool isLossless;
    bool hasBitRate;
    /// The layouts that players agree about, by their channels; all where there are none.
    std::span<const std::uint64_t> layouts;
};

constexpr std::uint64_t kAACLayouts[]
    = {AV_CH_LAYOUT_MONO,    AV_CH_LAYOUT_STEREO,       AV_CH_LAYOUT_SURROUND,
       AV_CH_LAYOUT_4POINT0, AV_CH_LAYOUT_5POINT0_BACK, AV_CH_LAYOUT_5POINT1_BACK,
       AV_CH_LAYOUT_7POINT1};
constexpr std::uint64_t kLosslessLayouts[]
    = {AV_CH_LAYOUT_MONO,         AV_CH_LAYOUT_STEREO,           AV_CH_LAYOUT_SURROUND,
       AV_CH_LAYOUT_4POINT0,      AV_CH_LAYOUT_5POINT0_BACK,     AV_CH_LAYOUT_5POINT1_BACK,
       AV_CH_LAYOUT_6POINT1_BACK, AV_CH_LAYOUT_7POINT1_WIDE_BACK};
constexpr std::uint64_t kIMALayouts[] = {AV_CH_LAYOUT_MONO, AV_CH_LAYOUT_STEREO};

const Kind kKinds[] = {
    {"aac ", "AAC", "aac", false, true, kAACLayouts},
    {"alac", "Apple Lossless", "alac", true, false, kLosslessLayouts},
    {"sowt", "Linear PCM", "pcm_s16le", true, false, {}},
    {"ima4", "IMA 4:1", "adpcm_ima_qt", false, false, kIMALayouts},
    {"ulaw", "µ-law 2:1", "pcm_mulaw", false, false, {}},
};

const Kind *kindOf(std::uint32_t code)
{
    const auto *found = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind &kind) {
        return PXFourCharCode(kind.code) == code;
    });
    return found == std::end(kKinds) ? nullptr : found;
}

/// The wanted one, else the nearest that the encoder knows.
int sampleRateFor(const AVCodec &encoder, int wanted)
{
    int nearest = 0;
    for (const int *rate = encoder.supported_samplerates; rate && *rate != 0; ++rate) {
        if (nearest == 0 || std::abs(*rate - wanted) < std::abs(nearest - wanted))
            nearest = *rate;
    }
    return nearest != 0 ? nearest : wanted;
}

/// The wanted one; else with as many channels; else with the most that are fewer.
AVChannelLayout layoutFor(const Kind &kind, const AVChannelLayout &wanted)
{
    const std::uint64_t mask = SoundConverter::maskOf(wanted);
    std::uint64_t best = 0;
    for (const std::uint64_t layout : kind.layouts) {
        if (layout == mask)
            return wanted;
        if (std::popcount(layout) <= wanted.nb_channels)
            best = layout;
    }
    return best != 0 ? SoundConverter::layoutOf(std::popcount(best), best) : wanted;
}

AVSampleFormat typeFor(const AVCodec &encoder, PXSampleType source)
{
    // Only the lossless encoder has a choice: 16 bits, or 24 for whatever is deeper.
    const bool isDeep = source != PXSampleType::Int16;
    for (const AVSampleFormat *type = encoder.sample_fmts; isDeep && *type != AV_SAMPLE_FMT_NONE;
         ++type) {
        if (*type == AV_SAMPLE_FMT_S32P)
            return *type;
    }
    return encoder.id == AV_CODEC_ID_ALAC ? AV_SAMPLE_FMT_S16P : encoder.sample_fmts[0];
}

// At "high" 192 kbit/s for stereo at 48 kHz, which nobody has been shown to tell from the
// original, at the best 256. The channels behind the first two need less.
std::int64_t bitRateFor(const AVCodecContext &context, double quality)
{
    constexpr double kBitRate = 96000; // Of a channel, at "high".
    const bool hasLowFrequencies
        = av_channel_layout_index_from_channel(&context.ch_layout, AV_CHAN_LOW_FREQUENCY) >= 0;
    const int full = context.ch_layout.nb_channels - (hasLowFrequencies ? 1 : 0);
    const double channels
        = std::min(full, 2) + 0.8 * std::max(0, full - 2) + (hasLowFrequencies ? 0.2 : 0.0);
    const double rate = std::min(1.0, context.sample_rate / 44100.0);
    const double least = 24000 * channels * rate;
    return std::llround(std::max(least, kBitRate * channels * rate * quality / kHighQuality));
}

void setQuality(AVCodecContext &context, const PXSoundEncoding &encoding, PXSoundFileKind kind)
{
    const double quality = std::clamp<double>(encoding.quality, 0, kBestQuality);
    const bool isLive = kind == PXSoundFileKind::Fragmented;
    if (isLive) {
        av_opt_set(context.priv_data, "aac_coder", "fast", 0);
        // What puts noise, or one side's sound, in the place of what was there: at such bit rates
        // it spares nothing.
        av_opt_set_int(context.priv_data, "aac_pns", 0, 0);
        av_opt_set_int(context.priv_data, "aac_is", 0, 0);
        av_opt_set_int(context.priv_data, "aac_tns", 0, 0);
    }
    if (encoding.bitRate > 0) {
        context.bit_rate = encoding.bitRate;
    } else if (isLive) {
        // With a fixed quality the encoder does not try a packet again and again until its size
        // fits: a quarter of the work for speech. The scale gives about the bit rates of the
        // other way on music.
        constexpr double kScaleAtHigh = 1.6;
        constexpr double kLeastScale = 0.1;
        constexpr int kAudible = 18000; // Hz, for whoever is past childhood.
        const double scale
            = std::max(kLeastScale, kScaleAtHigh * std::pow(quality / kHighQuality, 1.25));
        context.flags |= AV_CODEC_FLAG_QSCALE;
        context.global_quality = static_cast<int>(std::lround(FF_QP2LAMBDA * scale));
        context.cutoff = std::min(kAudible, context.sample_rate / 2);
    } else {
        context.bit_rate = bitRateFor(context, quality);
    }
}

std::vector<PXSoundCodec> makeCodecs()
{
    std::vector<PXSoundCodec> codecs;
    for (const Kind &kind : kKinds) {
        codecs.push_back({PXFourCharCode(kind.code), QString::fromUtf8(kind.name),
                          QString::fromLatin1(kind.encoder),
                          avcodec_find_encoder_by_name(kind.encoder) != nullptr, kind.isLossless,
                          kind.hasBitRate});
    }
    return codecs;
}

} // namespace

const std::vector<PXSoundCodec> &ffmpeg::soundCodecs()
{
    static const std::vector<PXSoundCodec> codecs = makeCodecs();
    return codecs;
}

PXExpected<PXSoundCodec> ffmpeg::installedSoundCodec(std::uint32_t code)
{
    return findInstalledCodec(soundCodecs(), code, u" for sound"_s);
}

PXExpected<ffmpeg::CodecContext> ffmpeg::openSoundEncoder(const PXSoundFormat &source,
                                                          const PXSoundEncoding &encoding,
                                                          PXSoundFileKind kind)
{
    const auto codec = installedSoundCodec(encoding.codec);
    if (!codec)
        return PXFail(codec.error());
    const int rate = encoding.sampleRate != 0 ? encoding.sampleRate : source.sampleRate;
    const int channels = encoding.channels != 0 ? encoding.channels : source.channels;
    const QString sound = u"sound of %1 channels at %2 Hz"_s.arg(channels).arg(rate);
    if (rate <= 0 || rate > kHighestRate || channels <= 0 || channels > kMostChannels
        || source.sampleRate <= 0 || source.channels <= 0 || source.channels > kMostChannels)
        return PXFail(PXPOSIXError(EINVAL, u"Could not encode "_s + sound));

    const AVCodec *encoder
        = avcodec_find_encoder_by_name(codec->encoderName.toLatin1().constData());
    CodecContext context(avcodec_alloc_context3(encoder));
    if (!context)
        return PXFail(PXPOSIXError(ENOMEM, u"Could not make an encoder"_s));
    const bool keepsPlaces = channels == source.channels;
    context->sample_fmt = typeFor(*encoder, source.sampleType);
    context->bits_per_raw_sample = context->sample_fmt == AV_SAMPLE_FMT_S32P ? 24 : 0;
    context->sample_rate = sampleRateFor(*encoder, rate);
    context->ch_layout
        = layoutFor(*kindOf(encoding.codec),
                    SoundConverter::layoutOf(channels, keepsPlaces ? source.channelMask : 0));
    context->time_base = {1, context->sample_rate};
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER; // A movie keeps them in front.
    context->thread_count = 1;
    if (codec->hasBitRate)
        setQuality(*context, encoding, kind);
    if (const int status = avcodec_open2(context.get(), encoder, nullptr); status < 0) {
        return PXFail(error(
            status, u"Could not open the encoder \"%1\" for "_s.arg(codec->encoderName) + sound));
    }
    return context;
}
