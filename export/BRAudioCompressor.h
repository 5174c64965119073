#pragma once

#include "export/BRAudioCompressionSettings.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXError.h"
#include "platform/PXMediaPlatform.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

class BRAudioCompressor;

/// Hears of a compression's end; on the main thread.
class BRAudioCompressorDelegate {
public:
    /// Whatever happened: `error()` tells. The compressor must not be destroyed here.
    virtual void audioCompressorDidFinishCompression(BRAudioCompressor &compressor) = 0;

protected:
    ~BRAudioCompressorDelegate() = default;
};

/// Lets the user choose.
class BRAudioCompressionDialog {
public:
    /// Changes the settings; false when the user cancelled.
    virtual bool run(BRAudioCompressionSettings &settings) = 0;

protected:
    ~BRAudioCompressionDialog() = default;
};

/// Turns the sound of a captured movie into a movie file with one sound track in the user's format.
/// Main thread; the compression has a thread of its own. One at a time; it cannot be cancelled,
/// save by destroying the compressor, which waits for the piece it is at.
class BRAudioCompressor final {
public:
    /// Adopts the user's saved settings. Borrows both.
    BRAudioCompressor(PXMediaPlatform &media, PXDefaults &defaults);
    ~BRAudioCompressor();
    BRAudioCompressor(const BRAudioCompressor &) = delete;
    BRAudioCompressor &operator=(const BRAudioCompressor &) = delete;

    [[nodiscard]] BRAudioCompressorDelegate *delegate() const { return _delegate; }
    void setDelegate(BRAudioCompressorDelegate *delegate) { _delegate = delegate; }

    /// Reads the saved settings again.
    void adoptUserCompressionOptions();
    /// The movie whose sound tracks are to be compressed, added up. Failures are logged too.
    PXExpected<void> openSourceFileAtPath(const QString &path);
    /// Reads the saved settings, lets the user change them where there is a dialog, and saves
    /// them. False when the user cancelled: nothing is saved then.
    bool chooseCompressionSettings(BRAudioCompressionDialog *dialog);
    [[nodiscard]] const BRAudioCompressionSettings &settings() const { return _settings; }

    /// Begins; a file at `path` is replaced.
    void compressAudioToMovieAtPath(const QString &path);
    /// Why the last compression's file is missing or incomplete.
    [[nodiscard]] const std::optional<PXError> &error() const { return _error; }
    /// Seconds of sound that have been compressed. Any thread.
    [[nodiscard]] double secondsDone() const { return _secondsDone; }

    // For display: what the open source becomes. Empty where that is not known, and all of them
    // while no source is open.
    [[nodiscard]] QString summaryString() const;
    [[nodiscard]] QString compressorName() const;
    [[nodiscard]] QString sampleRateString() const;
    [[nodiscard]] QString channelLayoutString() const;
    [[nodiscard]] QString sampleSizeString() const;
    [[nodiscard]] QString bitRateString() const;

    /// Lets go of the source.
    void cleanup();

private:
    void _threadedCompressAudio(const std::stop_token &stop);
    PXExpected<void> openDestinationFile();
    PXExpected<void> doSCAudioCompress(const std::stop_token &stop);
    void _saveSettings();
    [[nodiscard]] PXExpected<PXSoundCodec> _codec() const;

    BRAudioCompressorDelegate *_delegate = nullptr;
    QString mDestinationMoviePath;
    std::unique_ptr<PXSoundExtraction> mMovieAudioExtraction;
    std::unique_ptr<PXSoundWriter> mDestinationMovie;
    PXSoundFormat mInFormat; ///< Of the extracted sound.

    PXMediaPlatform &_media;
    PXDefaults &_defaults;
    BRAudioCompressionSettings _settings;
    std::optional<PXError> _error;
    std::atomic<double> _secondsDone = 0;
    QObject _mainThread; ///< Context of what the thread posts.
    std::jthread _thread;
};
