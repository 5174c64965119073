#include "platform/ffmpeg/FFmpegCodecs.h"

#include "platform/ffmpeg/InstalledCodec.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cerrno>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Encoders without a limit of their own (x264 has 250): a player that seeks decodes this many
// frames at most.
constexpr int kLongestKeyFrameInterval = 300;
constexpr int kLargestSide = 32767;

enum class Family { X264, X265, ProRes, Quantiser, Lossless };

struct Kind {
    const char (&code)[5];
    const char *name;
    const char *encoder;
    Family family;
    AVPixelFormat format;
    AVPixelFormat fullChromaFormat; ///< AV_PIX_FMT_NONE where the codec has no choice.
    bool hasKeyFrames;
    int profile; ///< Of ProRes.
};

// Lossless ones hold red, green and blue as they are, without the alpha that no screen has; only
// uncompressed pictures have it, because readers do not agree on how rows of three bytes a pixel
// are padded.
constexpr Kind kKinds[] = {
    {"avc1", "H.264", "libx264", Family::X264, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV444P, true, 0},
    {"hvc1", "HEVC", "libx265", Family::X265, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV444P, true, 0},
    {"apcn", "Apple ProRes 422", "prores_ks", Family::ProRes, AV_PIX_FMT_YUV422P10, AV_PIX_FMT_NONE,
     false, 2},
    {"apch", "Apple ProRes 422 HQ", "prores_ks", Family::ProRes, AV_PIX_FMT_YUV422P10,
     AV_PIX_FMT_NONE, false, 3},
    {"apcs", "Apple ProRes 422 LT", "prores_ks", Family::ProRes, AV_PIX_FMT_YUV422P10,
     AV_PIX_FMT_NONE, false, 1},
    {"apco", "Apple ProRes 422 Proxy", "prores_ks", Family::ProRes, AV_PIX_FMT_YUV422P10,
     AV_PIX_FMT_NONE, false, 0},
    {"ap4h", "Apple ProRes 4444", "prores_ks", Family::ProRes, AV_PIX_FMT_YUV444P10,
     AV_PIX_FMT_NONE, false, 4},
    {"ap4x", "Apple ProRes 4444 XQ", "prores_ks", Family::ProRes, AV_PIX_FMT_YUV444P10,
     AV_PIX_FMT_NONE, false, 5},
    {"mp4v", "MPEG-4 Video", "mpeg4", Family::Quantiser, AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, true,
     0},
    {"jpeg", "Photo - JPEG", "mjpeg", Family::Quantiser, AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_NONE,
     false, 0},
    {"png ", "PNG", "png", Family::Lossless, AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE, false, 0},
    {"rle ", "Animation", "qtrle", Family::Lossless, AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE, true, 0},
    {"raw ", "None", "rawvideo", Family::Lossless, AV_PIX_FMT_ARGB, AV_PIX_FMT_NONE, false, 0},
};

const Kind *kindOf(std::uint32_t code)
{
    const auto *found = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind &kind) {
        return PXFourCharCode(kind.code) == code;
    });
    return found == std::end(kKinds) ? nullptr : found;
}

void setColours(AVCodecContext &context, const Kind &kind)
{
    if (kind.family == Family::Lossless)
        return;
    // JPEG has one matrix by definition; for everything else BT.709 is what players take a
    // picture of a screen's size for, and the tags say so to those that ask.
    const bool isJPEG = kind.format == AV_PIX_FMT_YUVJ420P;
    context.color_range = isJPEG ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    context.colorspace = isJPEG ? AVCOL_SPC_SMPTE170M : AVCOL_SPC_BT709;
    context.color_primaries = AVCOL_PRI_BT709;
    context.color_trc = AVCOL_TRC_BT709;
    if (context.pix_fmt == AV_PIX_FMT_YUV420P || isJPEG)
        context.chroma_sample_location = AVCHROMA_LOC_CENTER;
}

// The constant rate factor: 18 at "high", where the eye finds no difference on screens, 10.7 at
// the best, 25 at "normal", 40 at the least.
double rateFactor(double quality)
{
    return 40.0 - quality * 88.0 / 3.0;
}

// Quantisers run from 1 to 31; the useful ones lie close together at the low end.
double quantiser(double quality)
{
    return 1.0 + 29.0 * (1.0 - quality) * (1.0 - quality);
}

void setQuality(AVCodecContext &context, const Kind &kind,
                const PXCompressionSessionOptions &options)
{
    const double quality
        = std::clamp(options.quality, 0, kPXBestQuality) / static_cast<double>(kPXBestQuality);
    const bool isFast = options.speed == PXEncoderSpeed::Fast;
    switch (kind.family) {
    case Family::X264:
    case Family::X265:
        av_opt_set(context.priv_data, "preset", isFast ? "veryfast" : "medium", 0);
        if (options.bitRate > 0)
            context.bit_rate = options.bitRate;
        else
            av_opt_set_double(context.priv_data, "crf", rateFactor(quality), 0);
        if (kind.family == Family::X265)
            av_opt_set(context.priv_data, "x265-params", "log-level=error", 0);
        break;
    case Family::ProRes:
        av_opt_set_int(context.priv_data, "profile", kind.profile, 0);
        av_opt_set(context.priv_data, "vendor", "apl0", 0);
        break;
    case Family::Quantiser:
        context.qmin = 1;
        if (options.bitRate > 0) {
            context.bit_rate = options.bitRate;
        } else {
            context.flags |= AV_CODEC_FLAG_QSCALE;
            context.global_quality
                = static_cast<int>(std::lround(FF_QP2LAMBDA * quantiser(quality)));
        }
        break;
    case Family::Lossless:
        break;
    }
}

// Where colours are shared by pixels the size must be a multiple of what shares one.
void setSize(AVCodecContext &context, int width, int height)
{
    const AVPixFmtDescriptor *format = av_pix_fmt_desc_get(context.pix_fmt);
    const int columns = 1 << format->log2_chroma_w;
    const int rows = 1 << format->log2_chroma_h;
    context.width = (width + columns - 1) / columns * columns;
    context.height = (height + rows - 1) / rows * rows;
}

void configure(AVCodecContext &context, const Kind &kind,
               const PXCompressionSessionOptions &options)
{
    const bool isFullChroma = options.fullChroma && kind.fullChromaFormat != AV_PIX_FMT_NONE;
    context.pix_fmt = isFullChroma ? kind.fullChromaFormat : kind.format;
    setSize(context, options.width, options.height);
    context.codec_tag = MKTAG(kind.code[0], kind.code[1], kind.code[2], kind.code[3]);
    context.time_base = {1, kPXCompressionTimeScale};
    const double rate = std::clamp(options.expectedFrameRate, 1.0, 1000.0);
    context.framerate = av_d2q(rate, 1001000);
    context.sample_aspect_ratio = {1, 1};
    context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER; // A movie keeps the parameter sets in front.
    context.thread_count = std::max(0, options.threads);
#ifdef __SANITIZE_THREAD__
    // It does not see the atomic counts inside Debian's library by which a frame that the library's
    // own threads have read becomes ours again.
    if ((context.codec->capabilities & AV_CODEC_CAP_FRAME_THREADS) != 0)
        context.thread_count = 1;
#endif
    context.max_b_frames = 0; // Frames come out in the order in which they went in.
    if (kind.hasKeyFrames && options.keyFrameInterval > 0)
        context.gop_size = options.keyFrameInterval;
    else if (kind.hasKeyFrames && kind.family != Family::X264 && kind.family != Family::X265)
        context.gop_size = kLongestKeyFrameInterval;
    setColours(context, kind);
    setQuality(context, kind, options);
}

std::vector<PXCodec> makeCodecs()
{
    std::vector<PXCodec> codecs;
    for (const Kind &kind : kKinds) {
        PXCodec codec;
        codec.code = PXFourCharCode(kind.code);
        codec.name = QString::fromLatin1(kind.name);
        codec.encoderName = QString::fromLatin1(kind.encoder);
        codec.isInstalled = avcodec_find_encoder_by_name(kind.encoder) != nullptr;
        codec.isLossless = kind.family == Family::Lossless;
        codec.hasQuality = !codec.isLossless && kind.family != Family::ProRes;
        codec.hasBitRate = codec.hasQuality;
        codec.hasKeyFrames = kind.hasKeyFrames;
        codec.hasFullChroma = kind.fullChromaFormat != AV_PIX_FMT_NONE;
        codecs.push_back(codec);
    }
    return codecs;
}

} // namespace

const std::vector<PXCodec> &ffmpeg::codecs()
{
    static const std::vector<PXCodec> codecs = makeCodecs();
    return codecs;
}

PXExpected<PXCodec> ffmpeg::installedCodec(std::uint32_t code)
{
    return findInstalledCodec(codecs(), code, {});
}

PXExpected<ffmpeg::CodecContext> ffmpeg::openEncoder(const PXCompressionSessionOptions &options)
{
    const auto codec = installedCodec(options.codec);
    if (!codec)
        return PXFail(codec.error());
    if (options.width <= 0 || options.height <= 0 || options.width > kLargestSide
        || options.height > kLargestSide) {
        return PXFail(PXPOSIXError(
            EINVAL,
            u"Could not encode pictures of %1 x %2"_s.arg(options.width).arg(options.height)));
    }
    const Kind &kind = *kindOf(options.codec);
    const AVCodec *encoder = avcodec_find_encoder_by_name(kind.encoder);
    CodecContext context(avcodec_alloc_context3(encoder));
    if (!context)
        return PXFail(PXPOSIXError(ENOMEM, u"Could not make an encoder"_s));
    configure(*context, kind, options);
    if (const int status = avcodec_open2(context.get(), encoder, nullptr); status < 0) {
        PXError failure
            = error(status,
                    u"Could not open the encoder \"%1\" for %2 x %3"_s.arg(codec->encoderName)
                        .arg(context->width)
                        .arg(context->height));
        return PXFail(std::move(failure));
    }
    return context;
}
