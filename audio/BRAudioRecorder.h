#pragma once

#include "audio/BROutputDeviceRestorer.h"
#include "audio/PXAuthentication.h"
#include "audio/PXCaptureMovieFileOutput.h"
#include "audio/PXCaptureSession.h"
#include "foundation/PXAlert.h"
#include "foundation/PXError.h"
#include "foundation/PXMutex.h"
#include "foundation/PXObservation.h"
#include "platform/PXMediaPlatform.h"
#include "platform/PXSoundPlatform.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

class BRAudioRecorder;

/// The names of the sound files in a captured movie's folder: that of the first source, or of all
/// in the end, and that of the second while both are recorded.
extern const QString kBRCaptureAudioDataName;
extern const QString kBRSecondCaptureAudioDataName;

/// Hears of a recorder's end; on the main thread.
class BRAudioRecorderDelegate {
public:
    /// Once for each `stopRecording()`, before it returns.
    virtual void audioRecorderDidStopRecording(BRAudioRecorder &recorder) = 0;

protected:
    ~BRAudioRecorderDelegate() = default;
};

/// What the recorder asks of the application above it.
class BRAudioRecorderHost {
public:
    /// The sound cannot be recorded any further: the whole recording is to end, and the user to be
    /// shown the error. On the main thread.
    virtual void stopRecordingDueToError(const PXError &error) = 0;
    /// Where a file of that name is kept for the user; none when there is no such folder.
    [[nodiscard]] virtual std::optional<QString> pathInApplicationSupportFolder(const QString &name)
        = 0;

protected:
    ~BRAudioRecorderHost() = default;
};

/// Records the microphone and what the computer plays into one file in a captured movie's folder,
/// in step with the picture.
///
/// Each source has a capture session and a file of its own, whose time 0 is the first video frame;
/// stopping makes one file of them. What the computer plays is read from the virtual output where
/// that is installed (it becomes the default output meanwhile, and what is played to it is played
/// on to the real one), else from the monitor of the output in use: "systemAudioSource" says which
/// may be used. Records once. Main thread; samples come on threads of the sessions.
class BRAudioRecorder final : private PXCaptureMovieFileOutputDelegate,
                              private PXCaptureSessionDelegate {
public:
    /// Borrows everything; `delegate` may be missing.
    BRAudioRecorder(QString uuid, BRAudioRecorderDelegate *delegate, BRAudioRecorderHost &host,
                    PXSoundPlatform &sound, PXMediaPlatform &media);
    ~BRAudioRecorder();
    BRAudioRecorder(const BRAudioRecorder &) = delete;
    BRAudioRecorder &operator=(const BRAudioRecorder &) = delete;

    // A source that cannot be prepared beeps, is logged, and is left off.
    /// The microphone with that unique ID.
    void prepareToRecordDeviceWithUID(const QString &uid);
    /// With the virtual output this makes it the default output: `stopRecording()` puts that back.
    /// Where it goes meanwhile, as with a sound server that is restarted, the one in use before is
    /// the default until it is back. A default that somebody else chose stays.
    void prepareToRecordSystemAudio();
    /// What is played to the virtual output is heard from now on.
    void startForPlayThough();

    /// Samples flow; they are kept from the time given to `ignoreSamplesBeforeHostTime` on. Fails
    /// where the movie's folder cannot be made.
    [[nodiscard]] PXExpected<void> startRecording();
    /// Runs the event loop until every source has given its first samples, or for `most`.
    void waitForFirstSamples(std::chrono::milliseconds most);
    /// Closes the files and makes one of them. Runs the event loop for half a second.
    void stopRecording();
    /// Of the first video frame, CLOCK_MONOTONIC in nanoseconds. Until it is told nothing is kept.
    void ignoreSamplesBeforeHostTime(std::uint64_t hostTime);

    [[nodiscard]] bool isRecording() const { return mIsRecording; }
    /// Whether preparing it succeeded.
    [[nodiscard]] bool isRecordingMicrophoneAudio() const { return mIsRecordingMicrophoneAudio; }
    [[nodiscard]] bool isRecordingSystemAudio() const { return mIsRecordingSystemAudio; }
    /// The file that stopping leaves, where there was any sound.
    [[nodiscard]] const QString &outputFile() const { return mOutputFile1; }
    [[nodiscard]] BRAudioRecorderDelegate *delegate() const { return _delegate; }
    void setDelegate(BRAudioRecorderDelegate *delegate) { _delegate = delegate; }
    /// Borrowed; null (at first) is silent.
    void setAlert(PXAlert *alert) { _alert = alert; }

    // The audio driver: a virtual output that comes back whenever the user's sound server starts.
    // Tasks that need root ask for it, which may take as long as the user does.

    /// Where the driver is installed.
    static const QString kInstalledExtensionPath;
    /// Whether the virtual output is there to be recorded from, in the server that runs now.
    static bool isKernelExtensionInstalled(PXSoundPlatform &sound);
    /// Copies the driver to its place, has the sound servers load it when they start, and loads it
    /// into the one that runs, if any. Errors have the domain "com.pexar.brimmet" and the code 2.
    static PXAuthorized installKernelExtension(PXAuthentication &authentication,
                                               PXSoundPlatform &sound);
    /// Undoes all of that. Harmless where there is no driver.
    static PXAuthorized uninstallKernelExtension(PXAuthentication &authentication,
                                                 PXSoundPlatform &sound);
    /// Removes the predecessor's driver and installs ours.
    static PXAuthorized replaceBrimmetKernelExtension(PXAuthentication &authentication,
                                                      PXSoundPlatform &sound);
    /// Whether system audio would go through it: the settings may forbid that.
    static bool usesDriver(PXSoundPlatform &sound);
    /// Makes the first sound track of one movie file a further track of the other, cut to that
    /// one's video. Failures are logged and answered; the target is as before then. A stop is
    /// such a failure (ECANCELED). Any thread.
    static PXExpected<void> mergeAudioFromMovieAtPath(PXMediaPlatform &media, const QString &source,
                                                      const QString &target,
                                                      const std::stop_token &stop = {});

    /// Makes one ordinary movie, under the first name, of the sound files that a recording left in
    /// its folder, however it ended. Harmless where that is done, and where there are none; where
    /// it was interrupted, or stopped (ECANCELED), it can be done again. Any thread.
    static PXExpected<void> makeOneFile(const QString &movieFolder, PXMediaPlatform &media,
                                        const std::stop_token &stop = {});

private:
    static PXAuthorized _unloadKernelExtension(const QString &identifier,
                                               PXAuthentication &authentication);
    static PXAuthorized _removeKernelExtension(const QString &path,
                                               PXAuthentication &authentication);

    void captureOutputDidOutputSampleBuffer(PXCaptureMovieFileOutput &output,
                                            const PXSoundBuffer &buffer) override;
    void captureOutputWillStartRecording(PXCaptureMovieFileOutput &output,
                                         const QString &path) override;
    void captureOutputDidStartRecording(PXCaptureMovieFileOutput &output,
                                        const QString &path) override;
    void captureOutputMustChangeOutputFile(PXCaptureMovieFileOutput &output, const QString &path,
                                           const PXError &error) override;
    void captureOutputWillFinishRecording(PXCaptureMovieFileOutput &output, const QString &path,
                                          const std::optional<PXError> &error) override;
    void captureOutputDidFinishRecording(PXCaptureMovieFileOutput &output, const QString &path,
                                         const std::optional<PXError> &error) override;
    void captureSessionRuntimeError(PXCaptureSession &session, const PXError &error) override;

    [[nodiscard]] int _numberOf(const PXCaptureMovieFileOutput &output) const;
    std::unique_ptr<PXCaptureSession> _makeSession();
    std::unique_ptr<PXCaptureMovieFileOutput> _makeOutput(const PXSoundEncoding &encoding);
    void _prepareDriver();
    void _prepareMonitor();
    void _makeSystemAudioSession();
    bool _switchToDriver();
    bool _openSystemAudioDevice(const QString &uid);
    void _followDefaultOutput();
    void _followDriver();
    bool _playOn();
    void _leaveDriver();
    void _putBackOutputDevice();
    void checkIfActuallyRecording();
    void _waitForSamplesUntil(std::uint64_t hostTime);
    void _finishRecording(const char *callback, int number, const std::optional<PXError> &error);
    void _beepAndLog(const QString &message);
    void _beepAndLog(const char *format, const PXError &error);

    BRAudioRecorderDelegate *_delegate;
    const QString mUUID;
    std::unique_ptr<PXCaptureMovieFileOutput> mCaptureMovieFileOutput1; ///< The microphone's,
    std::unique_ptr<PXCaptureMovieFileOutput> mCaptureMovieFileOutput2; ///< the system audio's.
    std::unique_ptr<PXCaptureSession> mCaptureSession1;
    std::unique_ptr<PXCaptureSession> mCaptureSession2;
    std::unique_ptr<PXAudioPreviewOutput> mCaptureAudioPreviewOutput;
    QString mOriginalSystemAudioOutputDeviceUID;
    QString mOutputFile1;
    QString mOutputFile2;
    std::atomic<std::uint64_t> mIgnoreSamplesBeforeHostTime
        = std::numeric_limits<std::uint64_t>::max();
    // Each is touched by its output's thread only while samples come.
    std::uint64_t mPreviousSampleHostTime1 = 0;
    std::uint64_t mPreviousSampleHostTime2 = 0;
    std::atomic<bool> mHasSwitchedFromJunkFile1 = false;
    std::atomic<bool> mHasSwitchedFromJunkFile2 = false;
    bool mIsRecordingSystemAudio = false;
    bool mIsRecordingMicrophoneAudio = false;
    std::atomic<bool> mIsRecording = false; ///< The outputs' threads ask, too.
    PXMutex _errorsLock;
    QString mErrorsDurringRecording PX_GUARDED_BY(_errorsLock);
    QTimer mCheckIfActuallyRecordingTimer;

    BRAudioRecorderHost &_host;
    PXSoundPlatform &_sound;
    PXMediaPlatform &_media;
    PXAlert *_alert = nullptr;
    BROutputDeviceRestorer _restorer;
    std::unique_ptr<PXFileLock> _driverUse; ///< While the driver is in use here.
    /// The first of the two outputs, for the threads of the samples.
    std::atomic<const PXCaptureMovieFileOutput *> _microphoneOutput = nullptr;
    bool _isOutputSwitched = false;
    bool _hasUserChosenOutput = false; ///< Since we switched.
    PXAudioDeviceID _driver = kPXNoAudioDevice; ///< The virtual output, as an output.
    QString _outputMadeDefault; ///< UID; empty where that failed.
    QString _playsOnTo; ///< UID of where `mCaptureAudioPreviewOutput` plays.
    bool _isStopping = false;
    QString _monitorUID; ///< Of the input that system audio comes from.
    PXObservation _devicesObservation;
    int _sourcesHeard = 0; ///< That have given samples.
    std::function<void()> _sourceWasHeard;
    QObject _mainThread; ///< Context of what the outputs' threads post.
};
