#include "app/cli/BRExportCommand.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRGeometry.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRTerminal.h"
#include "app/cli/BRUsageError.h"
#include "capture/BRScreenRecorder.h"
#include "export/BRCapturedMovie.h"
#include "foundation/PXAlert.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXMainThread.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>

using namespace Qt::StringLiterals;

namespace {

constexpr int kProgressIntervalMs = 200;
constexpr int kProgressBarWidth = 15; ///< So that the time left fits on 80 columns.
constexpr int kLargestSide = 16384; ///< That may be asked for; what was captured is taken as it is.

QString stringFromSeconds(double seconds)
{
    const auto whole = std::llround(seconds);
    return QString::asprintf("%lld:%02lld", whole / 60, whole % 60);
}

/// One export from its options to its last message.
class ExportCommand final : private BRCapturedMovieDelegate, private PXAlert {
public:
    ExportCommand(BRCapturedMovie &movie, QString path)
        : _movie(movie),
          _compressor(movie.frameCompressor()),
          _wasToHaveSound(movie.hasAudio() && movie.includeAudio()),
          _path(std::move(path))
    {
        _compressor.setAlert(this);
    }
    ~ExportCommand() { _compressor.setAlert(nullptr); }
    ExportCommand(const ExportCommand &) = delete;
    ExportCommand &operator=(const ExportCommand &) = delete;

    int run(const QString &outputPath)
    {
        const BRSignals signalsThatCancel([this] { _cancel(); });
        if (const auto started = _movie.startCompression(outputPath, this); !started) {
            BRTerminal::printError(u"\"%1\": %2"_s.arg(outputPath, PXErrorLine(started.error())));
            return BRExitStatusOfError(started.error(), BRAccess::Writing);
        }
        _clock.start();
        QObject::connect(&_progressTimer, &QTimer::timeout, &_mainThread,
                         [this] { _showProgress(); });
        if (BRTerminal::showsProgress())
            _progressTimer.start(kProgressIntervalMs);
        QCoreApplication::exec();
        return _status;
    }

private:
    void _cancel()
    {
        if (!_isSoundOnItsWay) {
            _movie.cancelCompression();
            return;
        }
        if (_movie.isMerging()) {
            _movie.cancelMerging(); // Its end tells whether that was in time.
            return;
        }
        // The picture is in its place. What is begun for its sound is given up with the movie.
        _endWithoutSound();
    }

    void _endWithoutSound()
    {
        BRTerminal::printError(
            u"the export of \"%1\" was cancelled: the movie has no sound"_s.arg(_path));
        _end(BRExitFailed);
    }

    void _showProgress()
    {
        if (_isSoundOnItsWay) {
            BRTerminal::showProgress(u"Compressing the sound, %1 done"_s.arg(
                stringFromSeconds(_movie.audioSecondsDone())));
            return;
        }
        const BRFrameCompressor::Progress progress = _compressor.progress();
        if (progress.totalFrames == 0)
            return;
        const double done = static_cast<double>(progress.framesDone) / progress.totalFrames;
        const double seconds = static_cast<double>(_clock.elapsed()) / 1000;
        QString line
            = u"%1 %2% %3 of %4 frames"_s.arg(BRTerminal::progressBar(done, kProgressBarWidth))
                  .arg(static_cast<int>(done * 100), 3)
                  .arg(progress.framesDone)
                  .arg(progress.totalFrames);
        if (progress.framesDone > 0 && seconds > 0) {
            line += u", %1 frames/s, %2 left"_s.arg(progress.framesDone / seconds, 0, 'f', 1)
                        .arg(stringFromSeconds(seconds * (1 - done) / done));
        }
        BRTerminal::showProgress(line);
    }

    void _end(int status)
    {
        _status = status;
        // The event loop may still turn to the timer, which would draw a line that nobody ends.
        _progressTimer.stop();
        BRTerminal::endProgress();
        QCoreApplication::quit();
    }

    void capturedMovieWillBeginAudioCompression(BRCapturedMovie &) override
    {
        _isSoundOnItsWay = true;
    }

    void capturedMovieIsDoneCompressing(BRCapturedMovie &movie,
                                        const QString &movieFilePath) override
    {
        if (movie.audioError() && movie.audioError()->code == ECANCELED) {
            _endWithoutSound();
            return;
        }
        BRTerminal::endProgress();
        BRTerminal::print(movieFilePath);
        if (movie.audioError()) {
            BRTerminal::printError(
                u"\"%1\" has no sound: %2"_s.arg(movieFilePath, PXErrorLine(*movie.audioError())));
        }
        if (_wasToHaveSound && movie.hasUnjoinedAudio()) {
            BRTerminal::printWarning(
                u"\"%1\" lacks what the computer played: the recording did not come to its end"_s
                    .arg(movieFilePath));
        }
        if (_wasToHaveSound && !movie.hasAudio()) {
            BRTerminal::printWarning(
                u"\"%1\" has no sound: the capture's sound file is missing"_s.arg(movieFilePath));
        }
        _end(movie.audioError() ? BRExitStatusOfError(*movie.audioError(), BRAccess::Writing)
                                : BRExitDone);
    }

    void capturedMovieCompressionWasCancelled(BRCapturedMovie &) override
    {
        BRTerminal::printError(u"the export of \"%1\" was cancelled"_s.arg(_path));
        _end(BRExitFailed);
    }

    void capturedMovieCompressionFailed(BRCapturedMovie &, const PXError &error) override
    {
        BRTerminal::printError(error);
        _end(BRExitStatusOfError(error, BRAccess::Writing));
    }

    void beep(const QString &message) override
    {
        PXMainThread::post(&_mainThread, [this, message] { _alert(message); });
    }

    /// A message that comes with every frame is told once.
    void _alert(const QString &message)
    {
        if (!_alerts.contains(message)) {
            _alerts << message;
            BRTerminal::ringBell();
            BRTerminal::printWarning(message);
        }
        // Nobody tells of the end when there is no memory for a single picture.
        if (!_compressor.isCompressing() && !_isSoundOnItsWay)
            _end(BRExitFailed);
    }

    BRCapturedMovie &_movie;
    BRFrameCompressor &_compressor;
    const bool _wasToHaveSound;
    bool _isSoundOnItsWay = false;
    QObject _mainThread; ///< Context of what the compressor's threads post.
    QStringList _alerts; ///< Those that were told.
    const QString _path;
    QElapsedTimer _clock;
    QTimer _progressTimer;
    int _status = BRExitDone;
};

bool isOfCapture(const QString &path, const BRCapturePath &capture)
{
    const QFileInfo file(path);
    if (!file.exists()) // Files that are not there are all the same to QFileInfo.
        return false;
    const QString folder = QFileInfo(capture.videoDataPath).path();
    const QString files[]
        = {capture.videoDataPath, capture.videoDataPath + u".index"_s,
           folder + u'/' + kBRMovieInfoName, folder + u'/' + kBRCaptureAudioDataName};
    return std::any_of(std::begin(files), std::end(files),
                       [&](const QString &ours) { return file == QFileInfo(ours); });
}

/// The captured size at `scale` percent.
PXSize scaled(PXSize captured, double scale)
{
    return {static_cast<float>(std::floor(static_cast<double>(captured.width) * scale / 100)),
            static_cast<float>(std::floor(static_cast<double>(captured.height) * scale / 100))};
}

BRUsageExpected<PXSize> checkSize(PXSize size)
{
    if (size.width >= 1 && size.height >= 1 && size.width <= kLargestSide
        && size.height <= kLargestSide)
        return size;
    return BRWrongUsage(
        u"The movie cannot have the size %1x%2"_s.arg(static_cast<double>(size.width), 0, 'f', 0)
            .arg(static_cast<double>(size.height), 0, 'f', 0),
        u"Give one from 1x1 to %1x%1 (--size, or --scale)."_s.arg(kLargestSide));
}

/// The arguments laid over what is saved, and a warning for each that the codec does not know.
void setOptions(PXCompressionSessionOptions &options, const BRExportArguments &arguments,
                const PXCodec &codec)
{
    const auto warnOfNoEffect = [&](const QString &option) {
        BRTerminal::printWarning(u"%1 has no effect with '%2' (%3)"_s.arg(
            option, PXStringFromFourCharCode(codec.code), codec.name));
    };
    if (arguments.quality) {
        options.quality
            = static_cast<int>(std::lround(*arguments.quality * kPXBestQuality / 100.0));
        options.bitRate = 0; // A saved one would win.
        if (!codec.hasQuality)
            warnOfNoEffect(u"--quality"_s);
    }
    options.fullChroma |= arguments.hasFullChroma;
    if (arguments.hasFullChroma && !codec.hasFullChroma)
        warnOfNoEffect(u"--full-chroma"_s);
}

constexpr std::pair<const char *, std::uint32_t> kAudioCodecs[] = {
    {"aac", PXFourCharCode("aac ")},  {"alac", PXFourCharCode("alac")},
    {"pcm", PXFourCharCode("sowt")},  {"ima4", PXFourCharCode("ima4")},
    {"ulaw", PXFourCharCode("ulaw")},
};

/// Lays the arguments over the saved settings, for this run only.
BRUsageExpected<void> setAudioSettings(const BRExportArguments &arguments, PXMediaPlatform &media,
                                       PXDefaults &defaults)
{
    if (!arguments.audioCodec && !arguments.audioBitRate)
        return {};
    const QString key = u"AudioCompressionDialogSettings"_s;
    BRAudioCompressionSettings settings
        = BRAudioCompressionSettings::fromAtomContainer(defaults.dataValue(key))
              .value_or(BRAudioCompressionSettings());
    for (const auto &[name, code] : kAudioCodecs) {
        if (arguments.audioCodec == QLatin1String(name))
            settings.codec = code;
    }
    const auto codec = media.installedSoundCodec(settings.codec);
    if (!codec)
        return tl::unexpected(BRUsageError{codec.error().description, codec.error().suggestion});
    if (arguments.audioBitRate) {
        settings.bitRate = static_cast<std::uint32_t>(*arguments.audioBitRate) * 1000;
        if (!codec->hasBitRate)
            BRTerminal::printWarning(u"--audio-bitrate has no effect with %1"_s.arg(codec->name));
    }
    defaults.setArgumentValue(key, settings.atomContainer());
    return {};
}

} // namespace

int BRRunExportCommand(const BRExportArguments &arguments, const BRBackEnds &backEnds)
{
    std::optional<PXSize> size;
    if (arguments.size) {
        const auto wanted = BRSizeFromText(*arguments.size).and_then(checkSize);
        if (!wanted)
            return BRFailUsage(wanted.error());
        size = *wanted;
    }
    if (arguments.videoCodec && PXFourCharCodeFromString(*arguments.videoCodec) == 0)
        return BRFailUsage({u"\"%1\" is no four-character code"_s.arg(*arguments.videoCodec), {}});
    if (QFileInfo(arguments.outputPath).isDir())
        return BRFailUsage(
            {u"\"%1\" is a folder"_s.arg(arguments.outputPath), u"Give the movie's file name."_s});
    const auto capture = BRCapturePath::withPath(arguments.path);
    if (capture && isOfCapture(arguments.outputPath, *capture))
        return BRFailUsage({u"\"%1\" belongs to the capture"_s.arg(arguments.outputPath),
                            u"Give another name for the movie."_s});
    auto streamer = capture.and_then([](const BRCapturePath &found) { return found.open(); });
    if (!streamer) {
        BRTerminal::printError(streamer.error());
        return BRExitStatusOfError(streamer.error(), BRAccess::Reading);
    }
    const PXSize captured = (*streamer)->selectionSize();
    const bool isCutShort = BRIsCutShort(**streamer);
    streamer->reset();

    if (arguments.scale) {
        const auto wanted = checkSize(scaled(captured, *arguments.scale));
        if (!wanted)
            return BRFailUsage(wanted.error());
        size = *wanted;
    }
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    if (const auto set = setAudioSettings(arguments, backEnds.media, defaults); !set)
        return BRFailUsage(set.error());
    BRCapturedMovie movie(capture->videoDataPath, capture->info, backEnds.media, defaults);
    movie.setCapturedVideoSize(captured);
    movie.setVideoSize(size.value_or(captured));
    if (arguments.hasNoAudio)
        movie.setIncludeAudio(false);
    BRCompressionOptions &options = movie.frameCompressor().compressionOptions();
    if (arguments.videoCodec)
        options.codec = PXFourCharCodeFromString(*arguments.videoCodec);
    auto codec = backEnds.media.installedCodec(options.codec);
    if (!codec) {
        if (!arguments.videoCodec)
            codec.error().suggestion = u"The settings chose it; --video-codec chooses another."_s;
        BRTerminal::printError(codec.error());
        return BRExitFailed;
    }
    if (options.options)
        setOptions(*options.options, arguments, *codec);
    const int status = ExportCommand(movie, arguments.path).run(arguments.outputPath);
    if (status == BRExitDone && isCutShort)
        BRWarnOfCutShort(arguments.path, u"only its complete frames were exported"_s);
    return status;
}
