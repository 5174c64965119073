#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include "platform/ffmpeg/FFmpegCodecs.h"
#include "platform/ffmpeg/FFmpegCompressionSession.h"
#include "platform/ffmpeg/FFmpegMovieWriter.h"

FFmpegMediaPlatform::FFmpegMediaPlatform()
{
    ffmpeg::routeLog();
    ffmpeg::noMemory();
}

const std::vector<PXCodec> &FFmpegMediaPlatform::codecs() const
{
    return ffmpeg::codecs();
}

PXExpected<PXCodec> FFmpegMediaPlatform::installedCodec(std::uint32_t code) const
{
    return ffmpeg::installedCodec(code);
}

PXExpected<std::unique_ptr<PXCompressionSession>>
FFmpegMediaPlatform::makeCompressionSession(const PXCompressionSessionOptions &options,
                                            PXCompressionSession::Output output)
{
    using Session = std::unique_ptr<PXCompressionSession>;
    return ffmpeg::withinMemory([&]() -> PXExpected<Session> {
        return FFmpegCompressionSession::create(options, std::move(output));
    });
}

PXExpected<std::unique_ptr<PXMovieWriter>> FFmpegMediaPlatform::makeMovieWriter(const QString &path)
{
    using Writer = std::unique_ptr<PXMovieWriter>;
    return ffmpeg::withinMemory(
        [&]() -> PXExpected<Writer> { return FFmpegMovieWriter::create(path); });
}
