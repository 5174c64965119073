#include "platform/ffmpeg/FFmpegCompressionSession.h"

#include "platform/ffmpeg/FFmpegCodecs.h"

#include "foundation/PXThread.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <cerrno>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

// Two frames that change everything weigh 16 MB at 1920x1080; one is filled while the other is
// converted. The encoder has threads and a look-ahead of its own, so it never waits for a third.
constexpr std::size_t kUpdates = 2;
constexpr std::size_t kPictures = 2;

// A movie's sample lasts 32 bits of ticks at most; 198 hours.
constexpr std::int64_t kLastDisplayTime = std::numeric_limits<std::int32_t>::max();

} // namespace

PXExpected<std::unique_ptr<FFmpegCompressionSession>>
FFmpegCompressionSession::create(const PXCompressionSessionOptions &options, Output output)
{
    auto encoder = ffmpeg::openEncoder(options);
    if (!encoder)
        return PXFail(std::move(encoder).error());
    return std::unique_ptr<FFmpegCompressionSession>(
        new FFmpegCompressionSession(options, std::move(output), *std::move(encoder)));
}

FFmpegCompressionSession::FFmpegCompressionSession(const PXCompressionSessionOptions &options,
                                                   Output output, ffmpeg::CodecContext encoder)
    : _options(options),
      _output(std::move(output)),
      _context(std::move(encoder)),
      _trackFormat(*_context),
      _encoder(*_context, _output),
      _emptyUpdates(kUpdates),
      _updates(kUpdates),
      _pictures(kPictures)
{
    for (std::size_t i = 0; i < kUpdates; ++i)
        _emptyUpdates.push(std::make_unique<PictureUpdate>());
    _encoderThread = std::jthread([this] {
        PXSetThreadName("tolvane-encode");
        if (const auto done = ffmpeg::withinMemory([this] { return encodePictures(); }); !done)
            fail(done.error());
    });
}

FFmpegCompressionSession::~FFmpegCompressionSession()
{
    _emptyUpdates.giveUp();
    _updates.giveUp();
    _pictures.giveUp();
}

PXExpected<void> FFmpegCompressionSession::begin(const PXPictureView &picture)
{
    auto painter = PicturePainter::make(*_context, picture.width, picture.height, _options.width,
                                        _options.height);
    if (!painter)
        return PXFail(std::move(painter).error());
    _painter = *std::move(painter);
    _sourceWidth = picture.width;
    _sourceHeight = picture.height;
    if (picture.width == _options.width && picture.height == _options.height) {
        const AVPixFmtDescriptor *format = av_pix_fmt_desc_get(_context->pix_fmt);
        _blockColumns = 1 << format->log2_chroma_w;
        _blockRows = 1 << format->log2_chroma_h;
    }
    _changed = {{0, 0, picture.width, picture.height}};
    _converterThread = std::jthread([this] {
        PXSetThreadName("tolvane-convert");
        if (const auto done = ffmpeg::withinMemory([this] { return convertPictures(); }); !done)
            fail(done.error());
    });
    return {};
}

PXExpected<void> FFmpegCompressionSession::encodeFrame(const PXPictureView &picture,
                                                       std::int64_t displayTime,
                                                       std::span<const PXPixelRect> changed)
{
    if (_isComplete)
        throw std::logic_error("encodeFrame after completeFrames");
    if (auto failed = failure())
        return PXFail(*std::move(failed));
    auto taken = ffmpeg::withinMemory([&] { return take(picture, displayTime, changed); });
    if (!taken && taken.error().code == ENOMEM)
        fail(taken.error());
    return taken;
}

PXExpected<void> FFmpegCompressionSession::take(const PXPictureView &picture,
                                                std::int64_t displayTime,
                                                std::span<const PXPixelRect> changed)
{
    if (!_painter) {
        if (auto begun = begin(picture); !begun)
            return begun;
    }
    if (picture.width != _sourceWidth || picture.height != _sourceHeight)
        throw std::logic_error("a session's pictures have one size");
    _changed.insert(_changed.end(), changed.begin(), changed.end());
    if (displayTime < _lastDisplayTime || displayTime > kLastDisplayTime)
        return PXFail(
            PXPOSIXError(EINVAL, u"Could not place a frame at %1/3000 s"_s.arg(displayTime)));

    auto update = _emptyUpdates.pop();
    if (!update)
        return PXFail(ffmpeg::noMemory()); // One of the threads has failed.
    (*update)->takeBlocks(picture, _changed, _blockColumns, _blockRows);
    (*update)->displayTime = displayTime;
    _changed.clear();
    _lastDisplayTime = displayTime;
    _updates.push(*std::move(update));
    return {};
}

PXExpected<void> FFmpegCompressionSession::completeFrames(double soleFrameDuration)
{
    if (_isComplete)
        throw std::logic_error("completeFrames twice");
    _isComplete = true;
    _soleFrameDuration = soleFrameDuration;
    _updates.close();
    if (!_converterThread.joinable())
        _pictures.close();
    else
        _converterThread.join();
    _encoderThread.join();
    if (auto failed = failure())
        return PXFail(*std::move(failed));
    return _completion;
}

std::optional<PXError> FFmpegCompressionSession::failure() const
{
    const PXLock lock(_failureLock);
    return _failure;
}

void FFmpegCompressionSession::fail(const PXError &error)
{
    {
        const PXLock lock(_failureLock);
        _failure = error;
    }
    _emptyUpdates.giveUp();
    _updates.giveUp();
    _pictures.giveUp();
}

PXExpected<void> FFmpegCompressionSession::convertPictures()
{
    while (auto update = _updates.pop()) {
        ffmpeg::Frame picture = _painter->apply(**update);
        if (!picture)
            return PXFail(ffmpeg::noMemory());
        picture->pts = (*update)->displayTime;
        _emptyUpdates.push(*std::move(update));
        _pictures.push(std::move(picture));
    }
    _pictures.close();
    return {};
}

PXExpected<void> FFmpegCompressionSession::encodePictures()
{
    while (auto picture = _pictures.pop()) {
        _encoder.encode(*std::move(picture));
        if (_encoder.failure())
            return PXFail(*_encoder.failure());
    }
    if (_updates.isGivenUp())
        return {};
    _completion = _encoder.complete(_soleFrameDuration);
    if (_encoder.failure())
        return PXFail(*_encoder.failure());
    return {};
}
