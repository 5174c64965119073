#pragma once

#include "audio/PXSoundClock.h"
#include "foundation/PXError.h"
#include "platform/PXMediaPlatform.h"
#include "platform/PXSound.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class PXCaptureMovieFileOutput;

/// What an output tells, on the thread that delivers its samples unless said.
class PXCaptureMovieFileOutputDelegate {
public:
    /// Every buffer, whether or not it is recorded. `recordToOutputFile` may be called from here:
    /// this buffer is the first in the file then.
    virtual void captureOutputDidOutputSampleBuffer(PXCaptureMovieFileOutput &output,
                                                    const PXSoundBuffer &buffer)
        = 0;
    virtual void captureOutputWillStartRecording(PXCaptureMovieFileOutput &output,
                                                 const QString &path)
        = 0;
    virtual void captureOutputDidStartRecording(PXCaptureMovieFileOutput &output,
                                                const QString &path)
        = 0;
    /// The file cannot be made or grows no more: what is in it stays, what follows is dropped.
    virtual void captureOutputMustChangeOutputFile(PXCaptureMovieFileOutput &output,
                                                   const QString &path, const PXError &error)
        = 0;
    /// When the file is closed, from inside `close()`; or at once, with the error, after
    /// `captureOutputMustChangeOutputFile`.
    virtual void captureOutputWillFinishRecording(PXCaptureMovieFileOutput &output,
                                                  const QString &path,
                                                  const std::optional<PXError> &error)
        = 0;
    virtual void captureOutputDidFinishRecording(PXCaptureMovieFileOutput &output,
                                                 const QString &path,
                                                 const std::optional<PXError> &error)
        = 0;

protected:
    ~PXCaptureMovieFileOutputDelegate() = default;
};

/// Writes what an input delivers as the sound track of a movie file that can be read at any
/// instant. The file's time runs with the host clock from a given instant: where the source's clock
/// runs otherwise its sound is stretched a little, what it never delivered is silence.
/// Samples come on one thread; the rest belongs to the owner's, `close()` once no samples come.
class PXCaptureMovieFileOutput final {
public:
    PXCaptureMovieFileOutput(PXMediaPlatform &media, PXSoundEncoding encoding,
                             PXCaptureMovieFileOutputDelegate &delegate);
    ~PXCaptureMovieFileOutput();
    PXCaptureMovieFileOutput(const PXCaptureMovieFileOutput &) = delete;
    PXCaptureMovieFileOutput &operator=(const PXCaptureMovieFileOutput &) = delete;

    /// Of the samples to come. Once, before the first.
    void setFormat(const PXSoundFormat &format);
    void outputSampleBuffer(const PXSoundBuffer &buffer);
    /// The samples that follow do not join those before.
    void sourceWasInterrupted() { _wasInterrupted = true; }

    /// Creates the file; its time 0 is `startHostTime`. Only from inside
    /// `captureOutputDidOutputSampleBuffer`, once.
    void recordToOutputFile(const QString &path, std::uint64_t startHostTime);
    /// Host time at which the samples that came last end; 0 before the first. Any thread.
    [[nodiscard]] std::uint64_t endOfSamples() const { return _endOfSamples; }
    /// Bytes that the file has got so far. Any thread.
    [[nodiscard]] std::uint64_t recordedBytes() const { return _recordedBytes; }

    /// Closes the file, if there is one. It stays in fragments, as it grew.
    void close();

private:
    void _record(std::span<const float> samples, const PXSoundClock::Place &place);
    PXExpected<void> _writePending();
    PXExpected<void> _writeSilence(double seconds);
    PXExpected<void> _write(std::span<const float> samples);
    void _fail(const PXError &error);

    PXMediaPlatform &_media;
    const PXSoundEncoding _encoding;
    PXCaptureMovieFileOutputDelegate &_delegate;
    PXSoundFormat _format;
    std::optional<PXSoundClock> _clock;
    std::unique_ptr<PXSoundStretcher> _stretcher;
    std::unique_ptr<PXSoundWriter> _writer; ///< There from the file's start to its end or failure.
    QString _path; ///< Empty until there is a file.
    double _startTime = 0; ///< Host seconds of the file's first frame.
    std::uint64_t _framesWritten = 0;
    std::vector<float> _pending; ///< Interleaved; goes to the stretcher in larger pieces.
    double _pendingTime = 0; ///< Host seconds of its first frame.
    std::optional<PXError> _error; ///< The first.
    std::atomic<bool> _wasInterrupted = false;
    std::atomic<std::uint64_t> _endOfSamples = 0;
    std::atomic<std::uint64_t> _recordedBytes = 0;
};
