#pragma once

#include "platform/PXMovieWriter.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include <QString>

#include <memory>
#include <optional>

/// libavformat's "mov" muxer. Its header is written with the first sample, when it is known how
/// much room the index needs in front.
class FFmpegMovieWriter final : public PXMovieWriter {
public:
    static PXExpected<std::unique_ptr<FFmpegMovieWriter>> create(const QString &path);
    ~FFmpegMovieWriter() override;
    FFmpegMovieWriter(const FFmpegMovieWriter &) = delete;
    FFmpegMovieWriter &operator=(const FFmpegMovieWriter &) = delete;

    PXExpected<void> addVideoTrack(const PXTrackFormat &format) override;
    PXExpected<void> beginMediaEdits() override;
    void setExpectedNumberOfSamples(std::uint64_t count) override;
    PXExpected<void> addMediaSample(const PXEncodedFrame &frame) override;
    PXExpected<void> endMediaEdits() override;
    PXExpected<void> addMovieToStorage() override;

private:
    using Context = PXHandle<AVFormatContext, avformat_free_context>;

    FFmpegMovieWriter(QString path, Context context);
    PXExpected<void> writeHeader();
    PXExpected<void> writeEmptyMovie();
    int giveUpReservedRoom();
    [[nodiscard]] PXError failure(int status) const;

    QString _path;
    Context _context; ///< Its `pb` is the open file.
    AVStream *_track = nullptr; ///< The context's.
    ffmpeg::Packet _packet; ///< Scratch: what the muxer gets to keep.
    std::uint64_t _expectedSamples = 0;
    std::uint64_t _samples = 0;
    std::int64_t _reservedBytes = 0; ///< For the index, behind the file type.
    std::optional<std::int64_t> _firstDisplayTime; ///< The movie begins there, 1/3000 s.
    bool _hasHeader = false;
};
