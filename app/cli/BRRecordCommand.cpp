#include "app/cli/BRRecordCommand.h"

#include "app/BRApplicationSupport.h"
#include "app/BRCompanionPrograms.h"
#include "app/BRSessionOptions.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRMicrophone.h"
#include "app/cli/BRRecordOptionsBuilder.h"
#include "app/cli/BRRecordOverlays.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRSoundAlert.h"
#include "app/cli/BRTerminal.h"
#include "app/cli/BRUsageError.h"
#include "audio/BRAudioRecorder.h"
#include "capture/BRScreenRecorder.h"
#include "export/BRMovieFolderLock.h"
#include "foundation/BRLog.h"
#include "foundation/FSByteFormatter.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"
#include "input/BRApplication.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTimer>
#include <QUuid>

#include <cerrno>
#include <cmath>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int kTickMs = 1000; ///< Between two live lines.
constexpr std::chrono::seconds kLongestWaitForSound(1);
constexpr double kLongestDuration = 2'000'000; ///< Seconds; what a timer's milliseconds can count.

/// Says what does not work everywhere, each once: the recording itself goes on.
class InputAlert final : public PXAlert {
public:
    void beep(const QString &message) override
    {
        if (_told.contains(message))
            return;
        _told.append(message);
        BRTerminal::ringBell();
        const bool isHotKey = message.startsWith(u"Could not register"_s);
        BRTerminal::printWarning(message
                                 + (isHotKey ? u": another program may hold the keys"_s
                                             : u": keys and clicks are not watched"_s)
                                 + u"; the recording goes on without"_s);
    }

private:
    QStringList _told;
};

/// One recording from its folder to its last line of output.
class RecordCommand final : private BRScreenRecorderDelegate,
                            private BRAudioRecorderDelegate,
                            private BRAudioRecorderHost,
                            private BRApplicationDelegate,
                            private PXAlert {
public:
    /// `overlays` may be null.
    RecordCommand(PXScreenPlatform &platform, QString moviesFolder, BRRecordOverlays *overlays)
        : _uuid(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()),
          _folderPath(QDir(moviesFolder).filePath(_uuid)),
          _overlays(overlays),
          _recorder(_uuid, this, platform, nullptr, overlays ? overlays->movieBounds() : nullptr),
          _application(platform, *this, &_inputAlert)
    {
        _recorder.setAlert(this);
    }

    /// Opens the sound devices that were asked for.
    PXExpected<void> prepareSound(const BRRecordArguments &arguments, const BRBackEnds &backEnds)
    {
        if (!arguments.microphone && !arguments.recordsSystemAudio)
            return {};
        BRAudioRecorderDelegate *const delegate = this;
        BRAudioRecorderHost &host = *this;
        // What a recording that crashed has left behind.
        (void)BROutputDeviceRestorer(backEnds.sound).restore();
        _audioRecorder.emplace(_uuid, delegate, host, backEnds.sound, backEnds.media);
        _audioRecorder->setAlert(&_soundAlert);
        if (arguments.microphone) {
            const auto uid = BRMicrophone::chosen(*arguments.microphone, backEnds.sound);
            if (!uid)
                return PXFail(uid.error());
            _audioRecorder->prepareToRecordDeviceWithUID(*uid);
            if (!_audioRecorder->isRecordingMicrophoneAudio())
                return PXFail(_soundAlert.failure());
        }
        if (arguments.recordsSystemAudio) {
            if (BRAudioRecorder::usesDriver(backEnds.sound))
                BRCompanionPrograms::startAudioBuddy();
            _audioRecorder->prepareToRecordSystemAudio();
            if (!_audioRecorder->isRecordingSystemAudio())
                return PXFail(_soundAlert.failure());
            _audioRecorder->startForPlayThough();
        }
        _soundAlert.printFromNowOn();
        return {};
    }

    int run(const BRScreenRecordingOptions &options, std::optional<double> duration)
    {
        auto started = PXFileManager::createAllDirectoriesForPath(_folderPath);
        if (started)
            started = _lockFolder();
        if (started && _overlays)
            _overlays->prepareScreen();
        if (started)
            started = _watchInput();
        if (started)
            started = _writeMovieInfo(options);
        if (started)
            started = _startRecorders(options);
        if (!started) {
            BRTerminal::printError(started.error());
            _leaveInput();
            _audioRecorder.reset(); // It may be about to write into the folder.
            _folderLock.reset();
            // Made by us a moment ago, and without a frame: nothing of the user's is in there.
            QDir(_folderPath).removeRecursively();
            return BRExitStatusOfError(started.error(), BRAccess::Writing);
        }
        if (duration) {
            QTimer::singleShot(std::chrono::milliseconds(std::llround(*duration * 1000)),
                               Qt::PreciseTimer, &_context, [this] { _stop(); });
        }
        if (BRTerminal::showsProgress())
            _startProgress();
        QCoreApplication::exec();
        // The path has been told: whoever waits for it goes on meanwhile.
        if (const auto stored = _recorder.waitUntilStored(); !stored) {
            BRTerminal::printError(stored.error());
            return BRExitStatusOfError(stored.error(), BRAccess::Writing);
        }
        return _status;
    }

private:
    // The sound first: from the first frame on there is to be no moment without.
    PXExpected<void> _startRecorders(const BRScreenRecordingOptions &options)
    {
        if (_audioRecorder) {
            if (auto started = _audioRecorder->startRecording(); !started)
                return started;
            _audioRecorder->waitForFirstSamples(kLongestWaitForSound);
        }
        if (_isStopping) {
            return PXFail(
                {kBRErrorDomain, 3, u"The recording was stopped before its first frame"_s, {}, {}});
        }
        auto started = _recorder.startRecording(options);
        _hasStarted = started.has_value();
        return started;
    }

    /// Hot keys work also while a menu is open, which the monitor alone sees.
    PXExpected<void> _watchInput()
    {
        _application.awakeFromNib();
        if (_overlays) {
            auto highlight = _overlays->makeCursorHighlight();
            if (!highlight)
                return PXFail(std::move(highlight).error());
            _cursorHighlight = *std::move(highlight);
            _screenEventController = _overlays->makeScreenEventController(
                _application, [this] { return _recorder.currentScreenSelectionRect(); });
        }
        if (_screenEventController)
            _screenEventController->displayScreenEventView();
        else
            _application.installMonitorHandler();
        return {};
    }

    void _leaveInput()
    {
        _cursorHighlight.reset();
        _screenEventController.reset();
        _application.uninstallMonitorHandler();
    }

    void _startProgress()
    {
        _clock.start();
        QObject::connect(&_ticker, &QTimer::timeout, &_context, [this] { _showProgress(); });
        _ticker.setTimerType(Qt::PreciseTimer); // The others may be early, and skip a second.
        _ticker.start(kTickMs);
        _showProgress();
    }

    void _showProgress() const
    {
        const auto size
            = static_cast<quint64>(QFileInfo(_folderPath + u'/' + kBRCaptureVideoDataName).size());
        BRTerminal::showProgress(
            {u"Recording %1, %2, %3 frames (Ctrl+C stops)"_s
                 .arg(BRStringFromDuration(static_cast<double>(_clock.elapsed()) / 1000),
                      FSByteFormatter().stringForObjectValue(size))
                 .arg(_recorder.totalFramesWritten())});
    }

    /// So that nobody takes it for a recording that was interrupted.
    PXExpected<void> _lockFolder()
    {
        auto lock = BRMovieFolderLock::take(_folderPath);
        if (lock)
            _folderLock = *std::move(lock);
        else if (const int code = lock.error().code;
                 code == ENOLCK || code == EOPNOTSUPP || code == EPERM)
            BRLog(BRLogWarning, PXErrorLine(lock.error())); // The file system has none for us.
        else
            return PXFail(lock.error());
        return {};
    }

    PXExpected<void> _writeMovieInfo(const BRScreenRecordingOptions &options) const
    {
        const bool hasAudio = _audioRecorder.has_value();
        return BRSessionOptions::writeMovieInfo(
            BRSessionOptions::movieInfo(_uuid, options, PXDefaults::standardUserDefaults(),
                                        hasAudio, QDateTime::currentDateTimeUtc()),
            _folderPath);
    }

    void _stop()
    {
        const bool isFirstTime = !std::exchange(_isStopping, true);
        if (_overlays && !_hasStarted)
            _overlays->cancel();
        if (!_hasStarted)
            return; // Whoever starts it will see.
        _recorder.stopRecording();
        if (_audioRecorder && isFirstTime)
            _audioRecorder->stopRecording();
    }

    void screenRecorderDidStopRecording(BRScreenRecorder &) override
    {
        _screenHasFinishedRecording = true;
        _endWhenAllHasStopped();
    }

    void screenRecorderCVHostTimeOfFirstFrame(BRScreenRecorder &, std::uint64_t hostTime) override
    {
        if (_audioRecorder)
            _audioRecorder->ignoreSamplesBeforeHostTime(hostTime);
    }

    void audioRecorderDidStopRecording(BRAudioRecorder &) override
    {
        _audioHasFinishedRecording = true;
        _endWhenAllHasStopped();
    }

    void _endWhenAllHasStopped()
    {
        if (!_screenHasFinishedRecording || (_audioRecorder && !_audioHasFinishedRecording))
            return;
        _leaveInput();
        _ticker.stop();
        BRTerminal::endProgress();
        if (_error)
            BRTerminal::printError(*_error);
        BRTerminal::print(_folderPath);
        QCoreApplication::quit();
    }

    void screenRecorderFailed(BRScreenRecorder &, const PXError &error) override
    {
        stopRecordingDueToError(error);
    }

    void stopRecordingDueToError(const PXError &error) override
    {
        // A full disk is told by the picture and by the sound.
        if (!_error) {
            _error = error;
            _status = BRExitStatusOfError(error, BRAccess::Writing);
        }
        _stop();
    }

    std::optional<QString> pathInApplicationSupportFolder(const QString &name) override
    {
        return BRApplicationSupport::pathInApplicationSupportFolder(name);
    }

    // There is no window to come forward.
    [[nodiscard]] bool isRecording() const override { return _recorder.isRecording(); }
    void stopRecording() override { _stop(); }
    void toggleCameraMode() override { _recorder.toggleCameraMode(); }
    void activateIgnoringOtherApps() override { }
    [[nodiscard]] bool isWindowVisible() const override { return true; }
    void switchToPaneWithIdentifier(const QString &) override { }
    void displayWindow() override { }

    // The failure itself is told as one.
    void beep(const QString &) override
    {
        PXMainThread::post(&_context, [] { BRTerminal::ringBell(); });
    }

    const QString _uuid;
    const QString _folderPath;
    BRRecordOverlays *const _overlays;
    int _status = BRExitDone;
    std::optional<PXError> _error;
    QObject _context;
    QTimer _ticker; ///< Runs on a terminal.
    QElapsedTimer _clock;
    bool _hasStarted = false;
    bool _isStopping = false;
    bool _screenHasFinishedRecording = false;
    bool _audioHasFinishedRecording = false;
    BRSoundAlert _soundAlert;
    BRScreenRecorder _recorder;
    std::optional<BRAudioRecorder> _audioRecorder; ///< Where sound is recorded.
    InputAlert _inputAlert;
    BRApplication _application;
    std::unique_ptr<BRCursorHighlight> _cursorHighlight;
    std::unique_ptr<BRScreenEventController> _screenEventController;
    std::unique_ptr<BRMovieFolderLock> _folderLock; ///< Until all is stored.
    /// From before the output device is switched: what stops us then must put it back.
    const BRSignals _signalsThatStop{[this] { _stop(); }};
};

BRUsageExpected<void> checkDuration(const BRRecordArguments &arguments)
{
    const double duration = arguments.duration.value_or(kLongestDuration);
    if (duration > 0 && duration <= kLongestDuration)
        return {};
    return BRWrongUsage(u"Cannot record for %1 seconds"_s.arg(duration),
                        u"Give a duration above 0, at most %1."_s.arg(kLongestDuration, 0, 'f', 0));
}

/// The recorder asks the settings for the folder: what was found is laid over them.
BRUsageExpected<QString> moviesFolder(const BRRecordArguments &arguments)
{
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    const QString key = u"moviesFolderPath"_s;
    QString folder = arguments.moviesFolder.value_or(defaults.stringValue(key));
    if (folder.isEmpty())
        return BRWrongUsage(u"There is no movies folder"_s,
                            u"Give one (--movies-folder, or the setting moviesFolderPath)."_s);
    folder = PXFileManager::resolvedPath(folder);
    defaults.setArgumentValue(key, folder);
    return folder;
}

} // namespace

int BRRunRecordCommand(const BRRecordArguments &arguments, const BRBackEnds &backEnds)
{
    BRRecordOptionsBuilder builder(arguments);
    // What is wrong with the words is said before a display is looked for.
    const auto folder
        = checkDuration(arguments).and_then([&] { return builder.readArguments(); }).and_then([&] {
              return moviesFolder(arguments);
          });
    if (!folder)
        return BRFailUsage(folder.error());
    auto platform = backEnds.openScreen();
    if (!platform) {
        BRTerminal::printError(platform.error());
        return BRExitStatusOfError(platform.error(), BRAccess::Writing);
    }
    const auto overlays = BRRecordOverlays::forArguments(arguments, **platform, backEnds);
    if (!overlays) {
        BRTerminal::printError(overlays.error());
        return BRExitStatusOfError(overlays.error(), BRAccess::Writing);
    }
    if (arguments.selects) {
        const auto selection = (*overlays)->select();
        if (!selection)
            return BRExitFailed;
        builder.setSelection(*selection);
    }
    const auto options = builder.optionsOn((*platform)->mainDisplay().bounds());
    if (!options)
        return BRFailUsage(options.error());
    RecordCommand command(**platform, *folder, overlays->get());
    if (const auto prepared = command.prepareSound(arguments, backEnds); !prepared) {
        BRTerminal::printError(prepared.error());
        return BRExitNoSoundDevice;
    }
    return command.run(*options, arguments.duration);
}
