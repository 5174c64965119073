#pragma once

#include "export/BRAudioCompressor.h"
#include "export/BRFrameCompressor.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "platform/PXMediaPlatform.h"

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <thread>

class BRCapturedMovie;

/// The name of the sound file in a captured movie's folder.
extern const QString kBRCaptureAudioDataName;

/// What a captured movie tells of its export; on the main thread. One of the last three ends it;
/// the movie may be destroyed in none of them.
class BRCapturedMovieDelegate {
public:
    virtual void capturedMovieWillBeginVideoCompression(BRCapturedMovie &, std::uint32_t) { }
    virtual void capturedMovieVideoFramesRemaining(BRCapturedMovie &, std::uint32_t) { }
    /// The picture is whole; the sound follows.
    virtual void capturedMovieWillBeginAudioCompression(BRCapturedMovie &) { }
    /// The movie is at the path. Where its sound could not be made it is without: `audioError()`.
    virtual void capturedMovieIsDoneCompressing(BRCapturedMovie &movie, const QString &path) = 0;
    virtual void capturedMovieCompressionWasCancelled(BRCapturedMovie &movie) = 0;
    virtual void capturedMovieCompressionFailed(BRCapturedMovie &movie, const PXError &error) = 0;

protected:
    ~BRCapturedMovieDelegate() = default;
};

/// One captured movie: a folder with a raw video capture, a sound file and an "Info.plist".
/// Exports it: first the pictures, then the sound, which becomes a track of the exported movie.
/// Main thread; what takes long has threads of its own. Destroying a movie that is being exported
/// waits for the step it is at.
class BRCapturedMovie final : private BRFrameCompressorDelegate, private BRAudioCompressorDelegate {
public:
    /// `info` is the folder's "Info.plist", where it has one. Borrows the other two.
    BRCapturedMovie(QString videoDataPath, const QVariantMap &info, PXMediaPlatform &media,
                    PXDefaults &defaults);
    ~BRCapturedMovie();
    BRCapturedMovie(const BRCapturedMovie &) = delete;
    BRCapturedMovie &operator=(const BRCapturedMovie &) = delete;

    [[nodiscard]] bool hasAudio() const { return _hasAudio; }
    /// A recording that did not come to its end left the sound of its second source in a file of
    /// its own, which is not exported.
    [[nodiscard]] bool hasUnjoinedAudio() const;
    [[nodiscard]] bool includeAudio() const { return _includeAudio; }
    void setIncludeAudio(bool includes) { _includeAudio = includes; }
    [[nodiscard]] PXSize capturedVideoSize() const { return _capturedVideoSize; }
    void setCapturedVideoSize(PXSize size) { _capturedVideoSize = size; }
    /// Of the exported movie, pixels.
    [[nodiscard]] PXSize videoSize() const { return _videoSize; }
    void setVideoSize(PXSize size) { _videoSize = size; }
    [[nodiscard]] std::uint32_t totalNumberOfFrames() const { return _totalNumberOfFrames; }
    [[nodiscard]] bool isCompressing() const { return _isCompressing; }

    BRFrameCompressor &frameCompressor() { return _frameCompressor; }
    /// Made, with its source open, when it is first asked for. `hasAudio()` answers no from then
    /// on where the sound file is missing.
    BRAudioCompressor &audioCompressor();
    /// Seconds of sound that this export has compressed.
    [[nodiscard]] double audioSecondsDone() const;
    /// The compressed sound is being put into the movie.
    [[nodiscard]] bool isMerging() const { return _mergeThread.joinable(); }
    /// Gives that up, at once or as soon as it begins: the movie stays without sound. The delegate
    /// hears of the end as ever; `audioError()` says ECANCELED then, or nothing where it was too
    /// late.
    void cancelMerging() { _mergeStop.request_stop(); }
    /// What kept the last export's movie from getting its sound.
    [[nodiscard]] const std::optional<PXError> &audioError() const { return _audioError; }

    /// Begins an export; the delegate hears of its end. After a failure it hears nothing.
    PXExpected<void> startCompression(const QString &path, BRCapturedMovieDelegate *delegate);
    /// While the pictures are exported; the sound is not cancelled by it.
    void cancelCompression() { _frameCompressor.cancelCompression(); }

private:
    void frameCompressorWillBeginCompression(BRFrameCompressor &, std::uint32_t total) override;
    void frameCompressorDidCompressFrame(BRFrameCompressor &, const PXEncodedFrame &,
                                         std::uint32_t remaining) override;
    void frameCompressorDidFinishCompression(BRFrameCompressor &, const QString &path) override;
    void frameCompressorDidCancelCompression(BRFrameCompressor &) override;
    void frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &error) override;
    void audioCompressorDidFinishCompression(BRAudioCompressor &compressor) override;

    void videoCompressionIsDone();
    void audioCompressionIsDone();
    void allCompressionIsDone();

    BRCapturedMovieDelegate *_delegate = nullptr;
    const QString _movieFolderPath;
    bool _hasAudio = false;
    bool _includeAudio = false;
    bool _isCompressing = false;
    PXSize _capturedVideoSize;
    PXSize _videoSize;
    std::uint32_t _totalNumberOfFrames = 0;
    QString _destinationMovieFilePath;
    QString _audioCompressionFilePath;
    PXMediaPlatform &_media;
    PXDefaults &_defaults;
    std::optional<PXError> _audioError;
    QObject _mainThread; ///< Context of what is done once a compressor's message has returned.
    BRFrameCompressor _frameCompressor;
    std::unique_ptr<BRAudioCompressor> _audioCompressor;
    std::stop_source _mergeStop; ///< Of this export.
    std::jthread _mergeThread;
};
