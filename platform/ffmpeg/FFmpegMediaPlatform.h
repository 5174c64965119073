#pragma once

#include "platform/PXMediaPlatform.h"

/// FFmpeg's libraries as they are installed.
class FFmpegMediaPlatform final : public PXMediaPlatform {
public:
    /// From here on the library's own messages go to our log.
    FFmpegMediaPlatform();

    [[nodiscard]] const std::vector<PXCodec> &codecs() const override;
    [[nodiscard]] PXExpected<PXCodec> installedCodec(std::uint32_t code) const override;
    PXExpected<std::unique_ptr<PXCompressionSession>>
    makeCompressionSession(const PXCompressionSessionOptions &options,
                           PXCompressionSession::Output output) override;
    PXExpected<std::unique_ptr<PXMovieWriter>> makeMovieWriter(const QString &path) override;

    [[nodiscard]] const std::vector<PXSoundCodec> &soundCodecs() const override;
    [[nodiscard]] PXExpected<PXSoundCodec> installedSoundCodec(std::uint32_t code) const override;
    PXExpected<std::unique_ptr<PXSoundWriter>>
    makeSoundWriter(const QString &path, PXSoundFileKind kind, const PXSoundFormat &format,
                    const PXSoundEncoding &encoding) override;
    PXExpected<std::unique_ptr<PXSoundExtraction>>
    makeSoundExtraction(const QString &path) override;
    PXExpected<std::unique_ptr<PXSoundStretcher>>
    makeSoundStretcher(const PXSoundFormat &format) override;
    PXExpected<void> insertSoundTrack(const QString &source, const QString &target,
                                      const std::stop_token &stop = {}) override;
    PXExpected<int> numberOfSoundTracks(const QString &path) override;
    PXExpected<void> flattenMovie(const QString &path, const std::stop_token &stop = {}) override;
};
