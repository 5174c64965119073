#pragma once

#include "platform/PXMovieWriter.h"
#include "platform/ffmpeg/MovieMuxer.h"

#include <QString>

#include <memory>
#include <optional>

/// libavformat's "mov" muxer. Its header is written with the first sample, when it is known how
/// much room the index needs in front.
class FFmpegMovieWriter final : public PXMovieWriter {
public:
    static PXExpected<std::unique_ptr<FFmpegMovieWriter>> create(const QString &path);

    PXExpected<void> addVideoTrack(const PXTrackFormat &format) override;
    PXExpected<void> beginMediaEdits() override;
    void setExpectedNumberOfSamples(std::uint64_t count) override;
    PXExpected<void> addMediaSample(const PXEncodedFrame &frame) override;
    PXExpected<void> endMediaEdits() override;
    PXExpected<void> addMovieToStorage() override;

private:
    explicit FFmpegMovieWriter(std::unique_ptr<MovieMuxer> muxer);
    PXExpected<void> writeEmptyMovie();

    std::unique_ptr<MovieMuxer> _muxer;
    AVStream *_track = nullptr; ///< The muxer's.
    ffmpeg::Packet _packet; ///< Scratch: what the muxer gets to keep.
    std::uint64_t _expectedSamples = 0;
    std::optional<std::int64_t> _firstDisplayTime; ///< The movie begins there, 1/3000 s.
};
