#include "app/cli/BRRecordCommand.h"

#include "app/BRSessionOptions.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRGeometry.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRTerminal.h"
#include "capture/BRScreenRecorder.h"
#include "capture/framefile/BRRawCompression.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"

#include <QCoreApplication>
#include <QDir>
#include <QTimer>
#include <QUuid>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double kLowestRate = 0.001;
constexpr double kHighestRate = 1000;
constexpr double kLongestDuration = 2'000'000; ///< Seconds; what a timer's milliseconds can count.

PXError wrongArgument(const QString &description, const QString &suggestion)
{
    return {kBRErrorDomain, BRExitWrongUsage, description, suggestion, {}};
}

/// The arguments laid over what the defaults say, in the display's coordinates.
class OptionsBuilder {
public:
    OptionsBuilder(const BRRecordArguments &arguments, const PXPixelRect &display)
        : _arguments(arguments), _display(display)
    {
        BRSessionOptions::fill(_options, PXDefaults::standardUserDefaults());
    }

    PXExpected<void> setRate()
    {
        if (_arguments.rate)
            _options.numberOfFramesPerSecond = static_cast<float>(*_arguments.rate);
        const double rate = static_cast<double>(_options.numberOfFramesPerSecond);
        if (rate >= kLowestRate && rate <= kHighestRate)
            return {};
        return PXFail(wrongArgument(
            u"Cannot record %1 frames per second"_s.arg(rate),
            u"Give a rate from 0.001 to %1 (--rate, or the setting captureRate)."_s.arg(
                kHighestRate)));
    }

    PXExpected<BRScreenRecordingOptions> build()
    {
        if (auto done = setRate(); !done)
            return PXFail(done.error());
        if (auto done = _setArea(); !done)
            return PXFail(done.error());
        _setCompression();
        if (_arguments.hidesCursor)
            _options.showCursor = false;
        return _options;
    }

private:
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

    PXExpected<void> _setArea()
    {
        if (_arguments.geometry) {
            const auto area = BRPixelRectFromGeometry(*_arguments.geometry, _display);
            if (!area)
                return PXFail(wrongArgument(u"\"%1\" is no area"_s.arg(*_arguments.geometry),
                                            u"Give it as WIDTHxHEIGHT+X+Y, 640x480+100+50."_s));
            return _setFixedArea(*area, *_arguments.geometry);
        }
        if (_arguments.follow) {
            const auto size = BRSizeFromText(*_arguments.follow);
            if (!size)
                return PXFail(wrongArgument(u"\"%1\" is no size"_s.arg(*_arguments.follow),
                                            u"Give it as WIDTHxHEIGHT, 640x480."_s));
            _options.cameraMode = 1;
            _options.screenSelectionSize = *size;
        }
        if (_options.cameraMode == 1) {
            _cutCameraToDisplay();
            return {};
        }
        const PXPixelRect lastSelection = PXPixelsFromRect(_options.screenSelectionRect, _display);
        return _setFixedArea(lastSelection.isEmpty() ? _display : lastSelection,
                             u"the last selection"_s);
    }

    PXExpected<void> _setFixedArea(const PXPixelRect &area, const QString &name)
    {
        const PXPixelRect visible = PXIntersection(area, _display);
        const QString displayText = QString::asprintf("%dx%d+%d+%d", _display.width,
                                                      _display.height, _display.x, _display.y);
        if (visible.isEmpty())
            return PXFail(wrongArgument(u"%1 lies outside the display"_s.arg(name),
                                        u"Choose an area inside %1."_s.arg(displayText)));
        if (visible != area) {
            BRTerminal::printWarning(u"%1 reaches beyond the display %2; recording %3"_s.arg(
                name, displayText,
                QString::asprintf("%dx%d+%d+%d", visible.width, visible.height, visible.x,
                                  visible.y)));
        }
        _options.cameraMode = 0;
        _options.screenSelectionRect = PXRectFromPixels(visible, _display);
        _options.screenSelectionSize = _options.screenSelectionRect.size();
        return {};
    }

    void _cutCameraToDisplay()
    {
        PXSize &size = _options.screenSelectionSize;
        const PXSize whole
            = {static_cast<float>(_display.width), static_cast<float>(_display.height)};
        if (size.width <= whole.width && size.height <= whole.height)
            return;
        size = {std::min(size.width, whole.width), std::min(size.height, whole.height)};
        BRTerminal::printWarning(u"the camera is larger than the display; recording %1x%2"_s
                                     .arg(static_cast<double>(size.width))
                                     .arg(static_cast<double>(size.height)));
    }

    const BRRecordArguments &_arguments;
    const PXPixelRect _display;
    BRScreenRecordingOptions _options;
};

/// One recording from its folder to its last line of output.
class RecordCommand final : private BRScreenRecorderDelegate, private BRStatusItem {
public:
    RecordCommand(PXScreenPlatform &platform, QString moviesFolder)
        : _uuid(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()),
          _folderPath(QDir(moviesFolder).filePath(_uuid)),
          _recorder(_uuid, this, platform, BRTerminal::showsProgress() ? this : nullptr)
    {
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
        QCoreApplication::exec();
        return _status;
    }

private:
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

    void setStatusItemImage(const QString &) override { }

    void setStatusItemText(const std::optional<QString> &text) override
    {
        if (!text)
            return;
        PXMainThread::post(&_context, [this, text = *text] {
            BRTerminal::showProgress(u"Recording %1, %2 frames (Ctrl+C stops)"_s.arg(text).arg(
                _recorder.totalFramesWritten()));
        });
    }

    const QString _uuid;
    const QString _folderPath;
    int _status = BRExitDone;
    std::optional<PXError> _error;
    QObject _context;
    BRScreenRecorder _recorder;
};

int fail(const PXError &error)
{
    BRTerminal::printError(error);
    if (error.domain == kBRErrorDomain && error.code == BRExitWrongUsage)
        return BRExitWrongUsage;
    return BRExitStatusOfError(error, BRAccess::Writing);
}

} // namespace

int BRRunRecordCommand(const BRRecordArguments &arguments, const BRBackEnds &backEnds)
{
    if (arguments.duration
        && !(*arguments.duration > 0 && *arguments.duration <= kLongestDuration)) {
        return fail(wrongArgument(
            u"Cannot record for %1 seconds"_s.arg(*arguments.duration),
            u"Give a duration above 0, at most %1."_s.arg(kLongestDuration, 0, 'f', 0)));
    }
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    if (arguments.moviesFolder)
        defaults.setArgumentValue(u"moviesFolderPath"_s,
                                  QDir(*arguments.moviesFolder).absolutePath());
    const QString moviesFolder = defaults.stringValue(u"moviesFolderPath"_s);
    if (moviesFolder.isEmpty() || arguments.moviesFolder == QString()) {
        return fail(
            wrongArgument(u"There is no movies folder"_s,
                          u"Give one (--movies-folder, or the setting moviesFolderPath)."_s));
    }
    // What is wrong with the words is said before a display is looked for.
    if (const auto rate = OptionsBuilder(arguments, {}).setRate(); !rate)
        return fail(rate.error());
    auto platform = backEnds.openScreen();
    if (!platform)
        return fail(platform.error());
    const auto options = OptionsBuilder(arguments, (*platform)->mainDisplay().bounds()).build();
    if (!options)
        return fail(options.error());
    RecordCommand command(**platform, moviesFolder);
    return command.run(*options, arguments.duration);
}
