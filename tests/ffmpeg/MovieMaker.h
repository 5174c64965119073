#pragma once

#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QTemporaryDir>

#include <cstdint>
#include <memory>
#include <vector>

/// Encodes images and writes them as a movie, as an export does.
class MovieMaker {
public:
    explicit MovieMaker(const PXCompressionSessionOptions &options, std::uint64_t announced = 100)
    {
        _movie = _platform.makeMovieWriter(path()).value();
        _session = _platform
                       .makeCompressionSession(
                           options,
                           [this](const PXExpected<PXEncodedFramePtr> &frame) { cameOut(frame); })
                       .value();
        EXPECT_TRUE(_movie->addVideoTrack(_session->trackFormat()));
        EXPECT_TRUE(_movie->beginMediaEdits());
        _movie->setExpectedNumberOfSamples(announced);
    }

    PXExpected<void> add(const QImage &image, std::int64_t time,
                         const std::vector<PXPixelRect> &changed)
    {
        return _session->encodeFrame({reinterpret_cast<const std::byte *>(image.constBits()),
                                      image.bytesPerLine(), image.width(), image.height()},
                                     time, changed);
    }
    PXExpected<void> add(const QImage &image, std::int64_t time)
    {
        return add(image, time, {{0, 0, image.width(), image.height()}});
    }
    QString finish()
    {
        EXPECT_TRUE(_session->completeFrames(0));
        EXPECT_TRUE(_movie->endMediaEdits());
        EXPECT_TRUE(_movie->addMovieToStorage());
        _movie.reset();
        return path();
    }
    [[nodiscard]] QString path() const
    {
        return _folder.filePath(QStringLiteral("movie: 100%.mov"));
    }
    [[nodiscard]] const std::vector<std::int64_t> &durations() const { return _durations; }

private:
    void cameOut(const PXExpected<PXEncodedFramePtr> &frame)
    {
        _durations.push_back((*frame)->decodeDuration());
        if ((*frame)->decodeDuration() > 0) {
            EXPECT_TRUE(_movie->addMediaSample(**frame));
        }
    }

    QTemporaryDir _folder;
    FFmpegMediaPlatform _platform;
    std::vector<std::int64_t> _durations; ///< Written by the encoder's thread until `finish`.
    std::unique_ptr<PXMovieWriter> _movie;
    std::unique_ptr<PXCompressionSession> _session;
};

inline PXCompressionSessionOptions optionsFor(const char *code, int width, int height)
{
    PXCompressionSessionOptions options;
    options.codec = PXFourCharCodeFromString(QString::fromLatin1(code));
    options.width = width;
    options.height = height;
    options.quality = 960;
    return options;
}
