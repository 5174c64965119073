#pragma once

#include "audio/BRAudioRecorder.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRAudioCompressor.h"
#include "export/BRFrameCompressor.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXError.h"
#include "foundation/PXFileLock.h"
#include "foundation/PXGeometry.h"
#include "platform/PXMediaPlatform.h"
#include "rawmovie/BRRawMovie.h"

#include <QDateTime>
#include <QIcon>
#include <QImage>
#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <thread>

class BRCapturedMovie;

/// What a captured movie tells of its export; on the main thread. One of the last three ends it;
/// the movie may be destroyed in none of them.
class BRCapturedMovieDelegate {
public:
    virtual void capturedMovieWillBeginVideoCompression(BRCapturedMovie &, std::uint32_t) { }
    /// A picture that is being encoded, one of four, as it was captured; where they were asked for.
    virtual void capturedMovieTemporaryFrameImageAvailable(BRCapturedMovie &, const QImage &) { }
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
    /// Of the folder in which that "Info.plist" lies, whatever "uuid" it claims. Fails where the
    /// list cannot be read, or the folder has no raw capture. Reads no more than the capture's
    /// header: a thousand are made in less than half a second.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRCapturedMovie>>
    withMovieInfoFilePath(const QString &path, PXMediaPlatform &media, PXDefaults &defaults);
    /// For whom has read both already.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRCapturedMovie>>
    withInfoAndHeader(const QString &movieFolder, const QVariantMap &info,
                      const PXExpected<BRFrameFileHeader> &header, PXMediaPlatform &media,
                      PXDefaults &defaults);
    ~BRCapturedMovie();
    BRCapturedMovie(const BRCapturedMovie &) = delete;
    BRCapturedMovie &operator=(const BRCapturedMovie &) = delete;

    [[nodiscard]] const QString &movieFolderPath() const { return _movieFolderPath; }
    /// The folder's name, in the usual case the recording's UUID.
    [[nodiscard]] const QString &identifier() const { return _identifier; }
    /// The user's; until there is one, the date.
    [[nodiscard]] QString name() const;
    /// Keeps it in "Info.plist"; after a failure the name is as before.
    PXExpected<void> setName(const QString &name);
    [[nodiscard]] const QDateTime &date() const { return _date; }
    [[nodiscard]] bool hasVideo() const { return _hasVideo; }
    [[nodiscard]] bool isUpsideDown() const { return _isUpsideDown; }
    /// Frames a second that were asked for, and that there were.
    [[nodiscard]] int captureRate() const { return _captureRate; }
    [[nodiscard]] float averageCaptureRate() const { return _averageCaptureRate; }
    /// Seconds, and frames: 0 for a recording that runs, or could not be rescued.
    [[nodiscard]] double duration() const { return _duration; }
    [[nodiscard]] std::uint32_t numberOfFrames() const { return _numberOfFrames; }
    /// Bytes of the raw capture.
    [[nodiscard]] std::uint64_t videoDataSize() const;
    /// Its program died while it was recorded, and it was repaired.
    [[nodiscard]] bool wasRescued() const { return _wasRescued; }
    /// Decoded once; the application's icon where it cannot be.
    QImage firstFrame();
    /// The capture to be looked at, opened when it is first asked for.
    PXExpected<std::shared_ptr<BRRawMovie>> rawMovie();

    // How a list shows it.
    static constexpr int kRowHeight = 20; ///< Pixels, as
    static constexpr int kImageSize = 16; ///< this;
    static constexpr int kFontSize = 11; ///< points.
    [[nodiscard]] static QString type() { return QStringLiteral("Movie"); }
    /// What the desktop shows for .mov files.
    [[nodiscard]] static QIcon image();

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
    /// Above 0 it sets the size, too: the captured one times this, rounded down.
    void setVideoScale(float scale);
    [[nodiscard]] float videoScale() const { return _videoScale; }
    /// Of the list of sizes in a window: percent, or what that list means by it.
    [[nodiscard]] int dimensionsPopupSelectedTag() const { return _dimensionsPopupSelectedTag; }
    void setDimensionsPopupSelectedTag(int tag) { _dimensionsPopupSelectedTag = tag; }
    [[nodiscard]] std::uint32_t totalNumberOfFrames() const { return _totalNumberOfFrames; }
    /// Pictures that this export, or the last one, goes without: the encoder refused them.
    [[nodiscard]] std::uint32_t missingFrames() const { return _frameCompressor.missingFrames(); }
    [[nodiscard]] bool isCompressing() const { return _isCompressing; }
    /// Of the pictures, 0 to 1.
    [[nodiscard]] float progress() const;
    /// The export's thread has ended without a word, for want of memory: nobody hears of an end.
    [[nodiscard]] bool hasEndedSilently() const
    {
        return _isCompressing && !_hasVideoEnded && !_frameCompressor.isCompressing();
    }

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

    /// Begins an export; the delegate hears of its end. After a failure it hears nothing. Fails
    /// (EBUSY) where another export, also of another program, is making that very file.
    PXExpected<void> startCompression(const QString &path, BRCapturedMovieDelegate *delegate);
    /// Whether the delegate is shown the pictures that are being encoded (it is not until set).
    void setSendsTemporaryFrameImages(bool sends) { _frameCompressor.setSendsPictures(sends); }
    /// While the pictures are exported; the sound is not cancelled by it.
    void cancelCompression() { _frameCompressor.cancelCompression(); }

private:
    void frameCompressorWillBeginCompression(BRFrameCompressor &, std::uint32_t total) override;
    void frameCompressorWillEncodeFrame(BRFrameCompressor &, const QImage &picture) override;
    void frameCompressorDidCompressFrame(BRFrameCompressor &, const PXEncodedFrame &,
                                         std::uint32_t remaining) override;
    void frameCompressorDidFinishCompression(BRFrameCompressor &, const QString &path) override;
    void frameCompressorDidCancelCompression(BRFrameCompressor &) override;
    void frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &error) override;
    void audioCompressorDidFinishCompression(BRAudioCompressor &compressor) override;

    void videoCompressionIsDone();
    void audioCompressionIsDone();
    void allCompressionIsDone();
    PXExpected<void> _claimDestination();
    void _letGoOfDestination();

    BRCapturedMovieDelegate *_delegate = nullptr;
    const QString _videoDataPath;
    const QString _movieFolderPath;
    const QString _identifier;
    QString _name;
    QDateTime _date;
    bool _isUpsideDown = false;
    bool _hasVideo = false;
    bool _hasAudio = false;
    bool _includeAudio = false;
    bool _wasRescued = false;
    int _captureRate = 0;
    float _averageCaptureRate = 0;
    PXSize _capturedVideoSize;
    double _duration = 0;
    std::uint32_t _numberOfFrames = 0;
    bool _isCompressing = false;
    bool _hasVideoEnded = false; ///< Of this export.
    float _videoScale = 1;
    PXSize _videoSize;
    int _dimensionsPopupSelectedTag = 100;
    QImage _firstFrameImage;
    std::shared_ptr<BRRawMovie> _rawMovie;
    std::uint32_t _totalNumberOfFrames = 0;
    QString _destinationMovieFilePath;
    std::unique_ptr<PXFileLock> _destinationLock; ///< While it is made, where there are locks.
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
