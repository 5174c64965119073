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
};
