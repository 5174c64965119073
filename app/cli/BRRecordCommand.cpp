#include "app/cli/BRRecordCommand.h"

#include "app/BRSessionOptions.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRGeometry.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRTerminal.h"
#include "app/cli/BRUsageError.h"
#include "capture/BRScreenRecorder.h"
#include "capture/framefile/BRRawCompression.h"
#include "foundation/FSByteFormatter.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTimer>
#include <QUuid>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double kLowestRate = 0.001;
constexpr double kHighestRate = 1000;
constexpr int kTickMs = 1000; ///< Between two live lines.
constexpr double kLongestDuration = 2'000'000; ///< Seconds; what a timer's milliseconds can count.

/// The arguments laid over what the defaults say.
class OptionsBuilder {
public:
    explicit OptionsBuilder(const BRRecordArguments &arguments) : _arguments(arguments)
    {
        BRSessionOptions::fill(_options, PXDefaults::standardUserDefaults());
    }

    /// What the words alone say, right or wrong whatever the display.
    BRUsageExpected<void> readArguments()
    {
        if (auto read = _readRate(); !read)
            return read;
        if (_arguments.geometry) {
            const auto geometry = BRGeometryFromText(*_arguments.geometry);
            if (!geometry)
                return tl::unexpected(geometry.error());
            _geometry = *geometry;
        }
        if (_arguments.follow) {
            const auto size = BRSizeFromText(*_arguments.follow);
            if (!size)
                return tl::unexpected(size.error());
            _options.cameraMode = 1;
            _options.screenSelectionSize = *size;
        }
        return {};
    }

    /// The options in the display's coordinates, after `readArguments()`.
    BRUsageExpected<BRScreenRecordingOptions> optionsOn(const PXPixelRect &display)
    {
        if (const auto done = _setArea(display); !done)
            return tl::unexpected(done.error());
        _setCompression();
        if (_arguments.hidesCursor)
            _options.showCursor = false;
        return _options;
    }

private:
    BRUsageExpected<void> _readRate()
    {
        if (_arguments.rate)
            _options.numberOfFramesPerSecond = static_cast<float>(*_arguments.rate);
        const double rate = static_cast<double>(_options.numberOfFramesPerSecond);
        if (rate >= kLowestRate && rate <= kHighestRate)
            return {};
        return BRWrongUsage(
            u"Cannot record %1 frames per second"_s.arg(rate),
            u"Give a rate from 0.001 to %1 (--rate, or the setting captureRate)."_s.arg(
                kHighestRate));
    }

    void _setCompression()
    {
        if (_arguments.codec)
            _options.videoCompression = static_cast<std::int32_t>(
                *_arguments.codec == u"rle" ? BRRawCompression::RLE : BRRawCompression::LZO);
        if (_arguments.codec)
            _options.lossyLevel = *_arguments.codec == u"rle"
                ? PXDefaults::standardUserDefaults().intValue(u"lossyLevel"_s)
                : 0;
        if (_arguments.lossyLevel)
            _options.lossyLevel = *_arguments.lossyLevel;
        const bool isRLE
            = _options.videoCompression == static_cast<std::int32_t>(BRRawCompression::RLE);
        if (_arguments.lossyLevel.value_or(0) != 0 && !isRLE)
            BRTerminal::printWarning(
                u"--lossy has no effect: LZO loses nothing (it is for --codec rle)"_s);
    }

    BRUsageExpected<void> _setArea(const PXPixelRect &display)
    {
        if (_geometry)
            return _setFixedArea(_geometry->onDisplay(display), *_arguments.geometry, display);
        if (_options.cameraMode == 1) {
            _cutCameraTo(display);
            return {};
        }
        const PXPixelRect lastSelection = PXPixelsFromRect(_options.screenSelectionRect, display);
        return _setFixedArea(lastSelection.isEmpty() ? display : lastSelection,
                             u"the last selection"_s, display);
    }

    BRUsageExpected<void> _setFixedArea(const PXPixelRect &area, const QString &name,
                                        const PXPixelRect &display)
    {
        const PXPixelRect visible = PXIntersection(area, display);
        const QString displayText
            = QString::asprintf("%dx%d+%d+%d", display.width, display.height, display.x, display.y);
        if (visible.isEmpty())
            return BRWrongUsage(u"%1 lies outside the display"_s.arg(name),
                                u"Choose an area inside %1."_s.arg(displayText));
        if (visible != area) {
            BRTerminal::printWarning(u"%1 reaches beyond the display %2; recording %3"_s.arg(
                name, displayText,
                QString::asprintf("%dx%d+%d+%d", visible.width, visible.height, visible.x,
                                  visible.y)));
        }
        _options.cameraMode = 0;
        _options.screenSelectionRect = PXRectFromPixels(visible, display);
        _options.screenSelectionSize = _options.screenSelectionRect.size();
        return {};
    }

    void _cutCameraTo(const PXPixelRect &display)
    {
        PXSize &size = _options.screenSelectionSize;
        const PXSize whole
            = {static_cast<float>(display.width), static_cast<float>(display.height)};
        if (size.width <= whole.width && size.height <= whole.height)
            return;
        size = {std::min(size.width, whole.width), std::min(size.height, whole.height)};
        BRTerminal::printWarning(u"the camera is larger than the display; recording %1x%2"_s
                                     .arg(static_cast<double>(size.width))
                                     .arg(static_cast<double>(size.height)));
    }

    const BRRecordArguments &_arguments;
    std::optional<BRGeometry> _geometry;
    BRScreenRecordingOptions _options;
};

/// One recording from its folder to its last line of output.
class RecordCommand final : private BRScreenRecorderDelegate, private PXAlert {
public:
    RecordCommand(PXScreenPlatform &platform, QString moviesFolder)
        : _uuid(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()),
          _folderPath(QDir(moviesFolder).filePath(_uuid)),
          _recorder(_uuid, this, platform)
    {
        _recorder.setAlert(this);
    }

    int run(const BRScreenRecordingOptions &options, std::optional<double> duration)
    {
        const BRSignals signalsThatStop([this] { _stop(); });
        auto started = PXFileManager::createAllDirectoriesForPath(_folderPath);
        if (started)
            started = _writeMovieInfo(options);
        if (started)
            started = _recorder.startRecording(options);
        if (!started) {
            BRTerminal::printError(started.error());
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
            u"Recording %1, %2, %3 frames (Ctrl+C stops)"_s
                .arg(BRStringFromDuration(static_cast<double>(_clock.elapsed()) / 1000),
                     FSByteFormatter().stringForObjectValue(size))
                .arg(_recorder.totalFramesWritten()));
    }

    PXExpected<void> _writeMovieInfo(const BRScreenRecordingOptions &options) const
    {
        constexpr bool kHasAudio = false;
        return BRSessionOptions::writeMovieInfo(
            BRSessionOptions::movieInfo(_uuid, options, PXDefaults::standardUserDefaults(),
                                        kHasAudio, QDateTime::currentDateTimeUtc()),
            _folderPath);
    }

    void _stop() { _recorder.stopRecording(); }

    void screenRecorderDidStopRecording(BRScreenRecorder &) override
    {
        _ticker.stop();
        BRTerminal::endProgress();
        if (_error)
            BRTerminal::printError(*_error);
        BRTerminal::print(_folderPath);
        QCoreApplication::quit();
    }

    void screenRecorderFailed(BRScreenRecorder &, const PXError &error) override
    {
        _error = error;
        _status = BRExitStatusOfError(error, BRAccess::Writing);
        _stop();
    }

    // The failure itself is told as one.
    void beep(const QString &) override
    {
        PXMainThread::post(&_context, [] { BRTerminal::ringBell(); });
    }

    const QString _uuid;
    const QString _folderPath;
    int _status = BRExitDone;
    std::optional<PXError> _error;
    QObject _context;
    QTimer _ticker; ///< Runs on a terminal.
    QElapsedTimer _clock;
    BRScreenRecorder _recorder;
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
    OptionsBuilder builder(arguments);
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
    const auto options = builder.optionsOn((*platform)->mainDisplay().bounds());
    if (!options)
        return BRFailUsage(options.error());
    RecordCommand command(**platform, *folder);
    return command.run(*options, arguments.duration);
}
