#pragma once

#include "foundation/PXError.h"
#include "platform/PXMediaPlatform.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <utility>

/// The movie that an export writes: a temporary file in the output's folder, which takes its place
/// when it is whole. Destroying this before deletes the file.
/// One thread at a time.
class BRMovieFile final {
public:
    /// Begins a movie with one video track, to become `outputPath`. Failures have been logged and
    /// leave no file.
    static PXExpected<std::unique_ptr<BRMovieFile>>
    create(PXMediaPlatform &media, const QString &outputPath, const PXTrackFormat &format);
    ~BRMovieFile();
    BRMovieFile(const BRMovieFile &) = delete;
    BRMovieFile &operator=(const BRMovieFile &) = delete;

    /// Before the first sample: so many may come (room for the index in front of them).
    void setExpectedNumberOfSamples(std::uint64_t count)
    {
        _writer->setExpectedNumberOfSamples(count);
    }
    PXExpected<void> addMediaSample(const PXEncodedFrame &frame)
    {
        return _writer->addMediaSample(frame);
    }
    /// Writes the index, closes the file and stores it on the disk. Every step is tried, each
    /// failure logged; the error is the first.
    PXExpected<void> finalizeQuickTimeMovie();
    /// Replaces what is at the output path; where that cannot be, moves to the first free name
    /// beside it. Answers the path. A failure leaves the file to be deleted.
    PXExpected<QString> moveToItsPlace();

private:
    explicit BRMovieFile(QString outputPath) : _outputPath(std::move(outputPath)) { }
    void _claimTempPath();
    PXExpected<void> _sync() const;

    QString _outputPath;
    QString _tempPath;
    bool _isOurs = false; ///< We made the file there, and it has not moved away.
    std::unique_ptr<PXMovieWriter> _writer;
};
