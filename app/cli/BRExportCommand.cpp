#include "app/cli/BRExportCommand.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRGeometry.h"
#include "app/cli/BRMovieExport.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRTerminal.h"
#include "app/cli/BRUsageError.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRCapturedMovie.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXFileManager.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTextBoundaryFinder>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kProgressIntervalMs = 200;
constexpr int kLargestSide = 16384; ///< That may be asked for; what was captured is taken as it is.
/// Each keeps hundreds of MiB of pictures in its encoder.
constexpr int kMostAtOnce = 4;

bool isOfCapture(const QString &path, const BRCapturePath &capture)
{
    const QFileInfo file(path);
    if (!file.exists()) // Files that are not there are all the same to QFileInfo.
        return false;
    const QString folder = QFileInfo(capture.videoDataPath).path();
    const QString files[]
        = {capture.videoDataPath, capture.videoDataPath + u".index"_s,
           folder + u'/' + kBRMovieInfoName, folder + u'/' + kBRCaptureAudioDataName,
           folder + u'/' + kBRSecondCaptureAudioDataName};
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

/// Runs the exports, some at a time, and answers the first status that is not "done".
int runAll(const std::vector<std::unique_ptr<BRMovieExport>> &exports)
{
    QEventLoop loop;
    bool isCancelled = false;
    std::size_t started = 0;
    int running = 0;
    const auto startMore = [&] {
        while (started < exports.size() && running < kMostAtOnce && !isCancelled)
            running += exports[started++]->start() ? 1 : 0;
        if (running == 0)
            loop.quit();
    };
    const BRSignals signalsThatCancel([&] {
        isCancelled = true;
        for (const auto &each : exports)
            each->cancel();
    });
    QTimer progressTimer;
    QObject::connect(&progressTimer, &QTimer::timeout, &loop, [&] {
        QStringList lines;
        for (const auto &each : exports) {
            each->endIfSilent();
            if (each->isRunning())
                lines << each->progressLine();
        }
        BRTerminal::showProgress(lines);
    });
    for (const auto &each : exports) {
        each->setDidEnd([&] {
            --running;
            // From here the one that has ended is still on the stack.
            QMetaObject::invokeMethod(&loop, startMore, Qt::QueuedConnection);
        });
    }
    progressTimer.start(kProgressIntervalMs);
    QMetaObject::invokeMethod(&loop, startMore, Qt::QueuedConnection);
    loop.exec();
    BRTerminal::endProgress();
    const auto failed = std::find_if(exports.begin(), exports.end(),
                                     [](const auto &each) { return each->status() != BRExitDone; });
    return failed == exports.end() ? BRExitDone : (*failed)->status();
}

/// A file name of it, at most so long that a number and an extension still fit (NAME_MAX is 255
/// bytes). "/" parts folders and ":" drives, on what the movie may be copied to.
QString fileNameFrom(QString name)
{
    constexpr qsizetype kMostBytes = 200;
    for (QChar &character : name) {
        if (character == u'/' || character == u':' || character.category() == QChar::Other_Control)
            character = u'-';
    }
    name = name.trimmed();
    QTextBoundaryFinder letters(QTextBoundaryFinder::Grapheme, name);
    letters.toEnd();
    while (QFile::encodeName(name).size() > kMostBytes && letters.toPreviousBoundary() > 0)
        name.truncate(letters.position());
    // Letters may have any number of marks.
    while (QFile::encodeName(name).size() > kMostBytes)
        name.chop(name.back().isLowSurrogate() ? 2 : 1);
    // A dot in front hides a file.
    if (name.startsWith(u'.'))
        name.prepend(u'_');
    return name.isEmpty() ? u"Movie"_s : name;
}

/// In the folder, of a file that neither is there nor will be.
QString freePath(const QString &folder, const QString &name, const QStringList &planned)
{
    for (int number = 1;; ++number) {
        const QString suffix = number == 1 ? QString() : u' ' + QString::number(number);
        QString path = QDir(folder).filePath(name + suffix + u".mov"_s);
        if (!planned.contains(path, Qt::CaseInsensitive)
            && PXFileManager::uniquePathForFileWithDesiredPath(path) == path)
            return path;
    }
}

/// What is the same for every movie of a run.
struct ExportRun {
    const BRExportArguments &arguments;
    const BRBackEnds &backEnds;
    std::optional<PXSize> size; ///< That was asked for.
    std::optional<QString> folder; ///< That gets the movies, under their own names.
    QStringList outputPaths; ///< Of those that were made ready.

    /// Makes one ready. Answers nothing, and the exit status, where it cannot be exported; that is
    /// printed then.
    std::unique_ptr<BRMovieExport> prepare(const QString &what, int &status);

private:
    [[nodiscard]] std::unique_ptr<BRCapturedMovie> _movieOf(const BRCapturePath &capture,
                                                            PXSize captured, int &status) const;
};

std::unique_ptr<BRMovieExport> ExportRun::prepare(const QString &what, int &status)
{
    const auto capture = BRCapturePath::withPath(what);
    auto streamer = capture.and_then([](const BRCapturePath &found) { return found.open(); });
    if (!streamer) {
        BRTerminal::printError(streamer.error());
        status = BRExitStatusOfError(streamer.error(), BRAccess::Reading);
        return nullptr;
    }
    if (!folder && isOfCapture(arguments.outputPath, *capture)) {
        status = BRFailUsage({u"\"%1\" belongs to the capture"_s.arg(arguments.outputPath),
                              u"Give another name for the movie."_s});
        return nullptr;
    }
    const bool isCutShort = BRIsCutShort(**streamer);
    auto movie = _movieOf(*capture, (*streamer)->selectionSize(), status);
    if (!movie)
        return nullptr;
    const QString path = folder ? freePath(*folder, fileNameFrom(movie->name()), outputPaths)
                                : arguments.outputPath;
    outputPaths << path;
    return std::make_unique<BRMovieExport>(
        std::move(movie), BRMovieExport::Job{what, path, isCutShort, arguments.paths.size() > 1});
}

std::unique_ptr<BRCapturedMovie> ExportRun::_movieOf(const BRCapturePath &capture, PXSize captured,
                                                     int &status) const
{
    PXSize movieSize = size.value_or(captured);
    if (arguments.scale) {
        const auto wanted = checkSize(scaled(captured, *arguments.scale));
        if (!wanted) {
            status = BRFailUsage(wanted.error());
            return nullptr;
        }
        movieSize = *wanted;
    }
    auto movie = std::make_unique<BRCapturedMovie>(
        capture.videoDataPath, capture.info, backEnds.media, PXDefaults::standardUserDefaults());
    movie->setCapturedVideoSize(captured);
    movie->setVideoSize(movieSize);
    if (arguments.hasNoAudio)
        movie->setIncludeAudio(false);
    BRCompressionOptions &options = movie->frameCompressor().compressionOptions();
    if (arguments.videoCodec)
        options.codec = PXFourCharCodeFromString(*arguments.videoCodec);
    auto codec = backEnds.media.installedCodec(options.codec);
    if (!codec) {
        if (!arguments.videoCodec)
            codec.error().suggestion = u"The settings chose it; --video-codec chooses another."_s;
        BRTerminal::printError(codec.error());
        status = BRExitFailed;
        return nullptr;
    }
    if (options.options)
        setOptions(*options.options, arguments, *codec);
    return movie;
}

} // namespace

int BRRunExportCommand(const BRExportArguments &arguments, const BRBackEnds &backEnds)
{
    ExportRun run{arguments, backEnds, {}, {}, {}};
    if (arguments.size) {
        const auto wanted = BRSizeFromText(*arguments.size).and_then(checkSize);
        if (!wanted)
            return BRFailUsage(wanted.error());
        run.size = *wanted;
    }
    if (arguments.videoCodec && PXFourCharCodeFromString(*arguments.videoCodec) == 0)
        return BRFailUsage({u"\"%1\" is no four-character code"_s.arg(*arguments.videoCodec), {}});
    if (arguments.outputPath.isEmpty())
        run.folder = u"."_s;
    else if (QFileInfo(arguments.outputPath).isDir())
        run.folder = arguments.outputPath;
    else if (arguments.paths.size() > 1)
        return BRFailUsage({u"\"%1\" is no folder"_s.arg(arguments.outputPath),
                            u"Several movies need one that is there."_s});
    if (const auto set
        = setAudioSettings(arguments, backEnds.media, PXDefaults::standardUserDefaults());
        !set)
        return BRFailUsage(set.error());
    int failure = BRExitDone;
    std::vector<std::unique_ptr<BRMovieExport>> exports;
    for (const QString &path : arguments.paths) {
        int status = BRExitDone;
        if (auto one = run.prepare(path, status))
            exports.push_back(std::move(one));
        else if (failure == BRExitDone)
            failure = status;
    }
    const int status = exports.empty() ? BRExitDone : runAll(exports);
    return failure != BRExitDone ? failure : status;
}
