#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include "platform/ffmpeg/FFmpegCodecs.h"
#include "platform/ffmpeg/FFmpegCompressionSession.h"
#include "platform/ffmpeg/FFmpegMovieWriter.h"
#include "platform/ffmpeg/FFmpegSoundCodecs.h"
#include "platform/ffmpeg/FFmpegSoundExtraction.h"
#include "platform/ffmpeg/FFmpegSoundStretcher.h"
#include "platform/ffmpeg/FFmpegSoundWriter.h"
#include "platform/ffmpeg/MovieRewriter.h"

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

const std::vector<PXSoundCodec> &FFmpegMediaPlatform::soundCodecs() const
{
    return ffmpeg::soundCodecs();
}

PXExpected<PXSoundCodec> FFmpegMediaPlatform::installedSoundCodec(std::uint32_t code) const
{
    return ffmpeg::installedSoundCodec(code);
}

PXExpected<std::unique_ptr<PXSoundWriter>>
FFmpegMediaPlatform::makeSoundWriter(const QString &path, PXSoundFileKind kind,
                                     const PXSoundFormat &format, const PXSoundEncoding &encoding)
{
    using Writer = std::unique_ptr<PXSoundWriter>;
    return ffmpeg::withinMemory([&]() -> PXExpected<Writer> {
        return FFmpegSoundWriter::create(path, kind, format, encoding);
    });
}

PXExpected<std::unique_ptr<PXSoundExtraction>>
FFmpegMediaPlatform::makeSoundExtraction(const QString &path)
{
    using Extraction = std::unique_ptr<PXSoundExtraction>;
    return ffmpeg::withinMemory(
        [&]() -> PXExpected<Extraction> { return FFmpegSoundExtraction::create(path); });
}

PXExpected<std::unique_ptr<PXSoundStretcher>>
FFmpegMediaPlatform::makeSoundStretcher(const PXSoundFormat &format)
{
    using Stretcher = std::unique_ptr<PXSoundStretcher>;
    return ffmpeg::withinMemory(
        [&]() -> PXExpected<Stretcher> { return FFmpegSoundStretcher::create(format); });
}

PXExpected<void> FFmpegMediaPlatform::insertSoundTrack(const QString &source, const QString &target,
                                                       const std::stop_token &stop)
{
    return ffmpeg::withinMemory(
        [&] { return MovieRewriter::insertSoundTrack(source, target, stop); });
}

PXExpected<int> FFmpegMediaPlatform::numberOfSoundTracks(const QString &path)
{
    return MovieReader::open(path).map([](const std::unique_ptr<MovieReader> &reader) {
        const auto tracks = reader->tracks();
        return static_cast<int>(
            std::count_if(tracks.begin(), tracks.end(), [](const AVStream *track) {
                return track->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
            }));
    });
}

PXExpected<void> FFmpegMediaPlatform::flattenMovie(const QString &path, const std::stop_token &stop)
{
    return ffmpeg::withinMemory([&] { return MovieRewriter::flatten(path, stop); });
}
