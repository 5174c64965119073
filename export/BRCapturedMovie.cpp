#include "export/BRCapturedMovie.h"

#include "capture/framefile/BRFrameAssembler.h"
#include "export/BRMovieRescue.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXPropertyList.h"
#include "foundation/PXThread.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLocale>
#include <QMimeDatabase>
#include <QRegularExpression>

#include <cerrno>
#include <cmath>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int kIconSize = 128; ///< Pixels, where there is no picture.

/// The first free name in the temporary folder, taken in the same step, so that two exports never
/// share it. Where none can be made the path is answered all the same: writing to it will tell why.
QString claimAudioPath()
{
    for (;;) {
        QString path = PXFileManager::uniquePathForFileWithDesiredPath(
            QDir::temp().filePath(u"Tolvane Audio Data.mov"_s));
        QFile file(path);
        // What was said is for nobody else's ears.
        if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly,
                      QFileDevice::ReadOwner | QFileDevice::WriteOwner)
            || !file.exists())
            return path;
    }
}

/// None where there are no windows.
QImage applicationIcon()
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return {};
    return QGuiApplication::windowIcon().pixmap(kIconSize).toImage();
}

/// Like "21 Nov 2026, 23:13": the language's own long date with the month cut short and without the
/// day of the week, for which Qt has no form.
QString textOfDate(const QDateTime &date)
{
    static const QRegularExpression weekday(u"\\s*,?\\s*\\bd{3,4}\\b\\s*,?\\s*"_s);
    const QLocale locale;
    QString format = locale.dateFormat(QLocale::LongFormat);
    format.remove(weekday).replace(u"MMMM"_s, u"MMM"_s);
    return locale.toString(date.date(), format) + u", "_s
        + locale.toString(date.time(), QLocale::ShortFormat);
}

} // namespace

PXExpected<std::unique_ptr<BRCapturedMovie>>
BRCapturedMovie::withMovieInfoFilePath(const QString &path, PXMediaPlatform &media,
                                       PXDefaults &defaults)
{
    const auto info = PXPropertyList::read(path);
    if (!info)
        return PXFail(info.error());
    const QString folder = QFileInfo(path).path();
    return withInfoAndHeader(
        folder, *info,
        BRFrameStreamer::headerOfFile(QDir(folder).filePath(kBRCaptureVideoDataName)), media,
        defaults);
}

PXExpected<std::unique_ptr<BRCapturedMovie>>
BRCapturedMovie::withInfoAndHeader(const QString &movieFolder, const QVariantMap &info,
                                   const PXExpected<BRFrameFileHeader> &header,
                                   PXMediaPlatform &media, PXDefaults &defaults)
{
    if (!header && header.error().code == ENOENT) {
        const QString what
            = u"This captured movie %1 does not have a video data file!"_s.arg(movieFolder);
        BRLog(BRLogError, what);
        return PXFail(PXPOSIXError(ENOENT, what));
    }
    auto movie = std::make_unique<BRCapturedMovie>(
        QDir(movieFolder).filePath(kBRCaptureVideoDataName), info, media, defaults);
    // What cannot be read shows when it is looked at, or exported.
    if (header) {
        movie->_duration = header->duration;
        movie->_numberOfFrames = header->numberOfFrames;
        movie->_capturedVideoSize = header->selectionSize;
        movie->_videoSize = header->selectionSize;
    }
    return movie;
}

BRCapturedMovie::BRCapturedMovie(QString videoDataPath, const QVariantMap &info,
                                 PXMediaPlatform &media, PXDefaults &defaults)
    : _videoDataPath(std::move(videoDataPath)),
      _movieFolderPath(QFileInfo(_videoDataPath).path()),
      _identifier(QFileInfo(QFileInfo(_movieFolderPath).absoluteFilePath()).fileName()),
      _name(info.value(u"name"_s).toString()),
      _date(info.value(u"date"_s).toDateTime()),
      _isUpsideDown(info.value(u"isUpsideDown"_s).toBool()),
      _hasVideo(info.value(u"hasVideo"_s).toBool()),
      _hasAudio(info.value(u"hasAudio"_s).toBool()),
      _includeAudio(_hasAudio),
      _wasRescued(info.value(kBRWasRescuedKey).toBool()),
      _captureRate(info.value(u"captureRate"_s).toInt()),
      _averageCaptureRate(info.value(u"averageCaptureRate"_s).toFloat()),
      _capturedVideoSize{info.value(u"width"_s).toFloat(), info.value(u"height"_s).toFloat()},
      _videoSize(_capturedVideoSize),
      _media(media),
      _defaults(defaults),
      _frameCompressor(_videoDataPath, _isUpsideDown, media, defaults)
{
    if (_captureRate > 0)
        _frameCompressor.setCaptureRate(_captureRate);
    _frameCompressor.setDelegate(this);
}

BRCapturedMovie::~BRCapturedMovie()
{
    _audioCompressor.reset();
    cancelMerging();
    if (_mergeThread.joinable())
        _mergeThread.join();
    if (!_audioCompressionFilePath.isEmpty())
        QFile::remove(_audioCompressionFilePath);
    _letGoOfDestination();
}

QString BRCapturedMovie::name() const
{
    return _name.isEmpty() ? textOfDate(_date.toLocalTime()) : _name;
}

PXExpected<void> BRCapturedMovie::setName(const QString &name)
{
    const QString path = QDir(_movieFolderPath).filePath(kBRMovieInfoName);
    auto info = PXPropertyList::read(path);
    if (!info)
        return PXFail(info.error());
    (*info)[u"name"_s] = name;
    auto written = PXPropertyList::write(*info, path, PXPropertyList::Format::XML);
    if (written)
        _name = name;
    return written;
}

std::uint64_t BRCapturedMovie::videoDataSize() const
{
    return static_cast<std::uint64_t>(QFileInfo(_videoDataPath).size());
}

QImage BRCapturedMovie::firstFrame()
{
    if (!_firstFrameImage.isNull())
        return _firstFrameImage;
    const auto streamer = BRFrameStreamer::withFilePathForReading(_videoDataPath, _isUpsideDown);
    if (!streamer)
        return applicationIcon();
    _duration = (*streamer)->duration();
    BRFrameAssembler frames(**streamer, BRPixelOrder::BGRA);
    const auto read = frames.readNextFrame();
    if (!read || *read != BRFrameAssembler::Result::Frame)
        return applicationIcon();
    _firstFrameImage
        = QImage(reinterpret_cast<const uchar *>(frames.picture().data()), frames.width(),
                 frames.height(), qsizetype{4} * frames.width(), QImage::Format_RGB32)
              .copy();
    return _firstFrameImage;
}

PXExpected<std::shared_ptr<BRRawMovie>> BRCapturedMovie::rawMovie()
{
    if (_rawMovie)
        return _rawMovie;
    auto opened = BRRawMovie::withFilePath(_videoDataPath);
    if (opened)
        _rawMovie = *opened;
    return opened;
}

QIcon BRCapturedMovie::image()
{
    const QMimeType type = QMimeDatabase().mimeTypeForName(u"video/quicktime"_s);
    return QIcon::fromTheme(type.iconName(), QIcon::fromTheme(type.genericIconName()));
}

void BRCapturedMovie::setVideoScale(float scale)
{
    _videoScale = scale;
    if (scale > 0)
        _videoSize = {std::floor(_capturedVideoSize.width * scale),
                      std::floor(_capturedVideoSize.height * scale)};
}

float BRCapturedMovie::progress() const
{
    const BRFrameCompressor::Progress progress = _frameCompressor.progress();
    return progress.totalFrames == 0
        ? 0
        : static_cast<float>(progress.framesDone) / static_cast<float>(progress.totalFrames);
}

BRAudioCompressor &BRCapturedMovie::audioCompressor()
{
    if (_audioCompressor)
        return *_audioCompressor;
    _audioCompressor = std::make_unique<BRAudioCompressor>(_media, _defaults);
    _audioCompressor->setDelegate(this);
    _audioError.reset();
    if (_hasAudio) {
        const QString path = QDir(_movieFolderPath).filePath(kBRCaptureAudioDataName);
        _hasAudio = QFileInfo::exists(path);
        if (_hasAudio) {
            if (const auto opened = _audioCompressor->openSourceFileAtPath(path); !opened)
                _audioError = opened.error();
        }
    }
    return *_audioCompressor;
}

bool BRCapturedMovie::hasUnjoinedAudio() const
{
    return _hasAudio
        && QFileInfo::exists(QDir(_movieFolderPath).filePath(kBRSecondCaptureAudioDataName));
}

double BRCapturedMovie::audioSecondsDone() const
{
    return _audioCompressor ? _audioCompressor->secondsDone() : 0;
}

PXExpected<void> BRCapturedMovie::startCompression(const QString &path,
                                                   BRCapturedMovieDelegate *delegate)
{
    _delegate = delegate;
    _destinationMovieFilePath = path;
    if (auto claimed = _claimDestination(); !claimed)
        return claimed;
    _mergeStop = std::stop_source();
    if (!_audioCompressor) // Else it says why the sound cannot be read.
        _audioError.reset();
    _frameCompressor.setScreenSelectionSize(_capturedVideoSize);
    _frameCompressor.setMovieExportSize(_videoSize);
    _hasVideoEnded = false;
    auto started = _frameCompressor.startCompression(path);
    _isCompressing = started.has_value();
    if (!started)
        _letGoOfDestination();
    return started;
}

// Both would believe that it is there, and one of them would be gone.
PXExpected<void> BRCapturedMovie::_claimDestination()
{
    const QFileInfo file(_destinationMovieFilePath);
    auto lock = PXFileLock::take(file.dir().filePath(u'.' + file.fileName() + u".lock"_s),
                                 PXFileLock::Mode::Exclusive, PXFileLock::IfHeld::GiveUp);
    if (lock && !*lock)
        return PXFail(PXError{kPXPOSIXErrorDomain,
                              EBUSY,
                              u"Another export is making %1"_s.arg(_destinationMovieFilePath),
                              u"Give another name for the movie."_s,
                              {}});
    // Where there is none the export itself tells why nothing can be written there.
    _destinationLock = lock ? *std::move(lock) : nullptr;
    return {};
}

void BRCapturedMovie::_letGoOfDestination()
{
    if (_destinationLock)
        _destinationLock->removeFile();
    _destinationLock.reset();
}

void BRCapturedMovie::frameCompressorWillBeginCompression(BRFrameCompressor &, std::uint32_t total)
{
    _totalNumberOfFrames = total;
    if (_delegate)
        _delegate->capturedMovieWillBeginVideoCompression(*this, total);
}

void BRCapturedMovie::frameCompressorWillEncodeFrame(BRFrameCompressor &, const QImage &picture)
{
    if (_delegate && !picture.isNull())
        _delegate->capturedMovieTemporaryFrameImageAvailable(*this, picture);
}

void BRCapturedMovie::frameCompressorDidCompressFrame(BRFrameCompressor &, const PXEncodedFrame &,
                                                      std::uint32_t remaining)
{
    if (_delegate)
        _delegate->capturedMovieVideoFramesRemaining(*this, remaining);
}

void BRCapturedMovie::frameCompressorDidFinishCompression(BRFrameCompressor &, const QString &path)
{
    _destinationMovieFilePath = path;
    videoCompressionIsDone();
}

void BRCapturedMovie::frameCompressorDidCancelCompression(BRFrameCompressor &)
{
    _isCompressing = false;
    _letGoOfDestination();
    if (_delegate)
        _delegate->capturedMovieCompressionWasCancelled(*this);
}

void BRCapturedMovie::frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &error)
{
    _isCompressing = false;
    _letGoOfDestination();
    if (_delegate)
        _delegate->capturedMovieCompressionFailed(*this, error);
}

void BRCapturedMovie::videoCompressionIsDone()
{
    BRLog(BRLogDebug, "videoCompressionIsDone");
    _hasVideoEnded = true;
    if (_hasAudio && _includeAudio)
        audioCompressor();
    if (!_hasAudio || !_includeAudio) {
        allCompressionIsDone();
        return;
    }
    if (_delegate)
        _delegate->capturedMovieWillBeginAudioCompression(*this);
    _audioCompressionFilePath = claimAudioPath();
    _audioCompressor->chooseCompressionSettings(nullptr);
    _audioCompressor->compressAudioToMovieAtPath(_audioCompressionFilePath);
}

void BRCapturedMovie::audioCompressorDidFinishCompression(BRAudioCompressor &compressor)
{
    BRLog(BRLogDebug, "audioCompressionIsDone");
    if (!_audioError) // The reason why the source could not be opened says more.
        _audioError = compressor.error();
    if (_audioError) {
        PXMainThread::post(&_mainThread, [this] { audioCompressionIsDone(); });
        return;
    }
    // Copying a long movie takes seconds, in which a window is to stay alive.
    const std::stop_token stop = _mergeStop.get_token();
    _mergeThread = std::jthread([this, stop, path = _destinationMovieFilePath] {
        PXSetThreadName("tolvane-merge");
        auto added = BRAudioRecorder::mergeAudioFromMovieAtPath(_media, _audioCompressionFilePath,
                                                                path, stop);
        if (added)
            added = _media.flattenMovie(path, stop);
        PXMainThread::post(&_mainThread, [this, added] {
            if (!added)
                _audioError = added.error();
            audioCompressionIsDone();
        });
    });
}

// The next export opens the sound again.
void BRCapturedMovie::audioCompressionIsDone()
{
    if (_mergeThread.joinable())
        _mergeThread.join();
    _audioCompressor.reset();
    QFile::remove(std::exchange(_audioCompressionFilePath, {}));
    allCompressionIsDone();
}

void BRCapturedMovie::allCompressionIsDone()
{
    BRLog(BRLogDebug, "allCompressionIsDone");
    _isCompressing = false;
    _letGoOfDestination();
    if (_delegate)
        _delegate->capturedMovieIsDoneCompressing(*this, _destinationMovieFilePath);
}
