#include "export/BRFrameCompressor.h"

#include "capture/framefile/BRFrameAssembler.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXThread.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const QString kAutosaveName = u"CompressionDialogSettings"_s;
const QString kTrueErrorCode = u"trueErrorCode"_s;

constexpr int kExportError = 1;
constexpr qint64 kSmallestFrame = 12; // Bytes in a capture.
constexpr int kPermissionError = -54; // The old platform's numbers: no permission,
constexpr int kFileBusyError = -47; // the file is in use.

PXError exportError(const QString &description, const QString &suggestion, int trueErrorCode)
{
    return {
        kBRErrorDomain, kExportError, description, suggestion, {{kTrueErrorCode, trueErrorCode}}};
}

QString folderOf(const QString &path)
{
    return QFileInfo(path).path();
}

QString fileNameOf(const QString &path)
{
    return QFileInfo(path).fileName();
}

/// -1, which no session takes, for what is no time.
std::int64_t displayTimeOf(double timestamp)
{
    return timestamp >= 0 ? PXClampToInt64(timestamp * kPXCompressionTimeScale) : -1;
}

/// What a delegate hears of a frame.
class FrameWithoutData final : public PXEncodedFrame {
public:
    explicit FrameWithoutData(const PXEncodedFrame &frame)
        : _displayTime(frame.displayTime()),
          _decodeDuration(frame.decodeDuration()),
          _isKeyFrame(frame.isKeyFrame())
    {
    }

    [[nodiscard]] std::int64_t displayTime() const override { return _displayTime; }
    [[nodiscard]] std::int64_t decodeDuration() const override { return _decodeDuration; }
    [[nodiscard]] bool isKeyFrame() const override { return _isKeyFrame; }
    [[nodiscard]] std::span<const std::byte> data() const override { return {}; }

private:
    std::int64_t _displayTime;
    std::int64_t _decodeDuration;
    bool _isKeyFrame;
};

std::vector<PXPixelRect> changedPixels(const BRFrameAssembler &frame)
{
    // The capture's lower left corner is the origin of its rectangles, as on the main display.
    const PXPixelRect picture{0, 0, frame.width(), frame.height()};
    std::vector<PXPixelRect> pixels;
    pixels.reserve(frame.rects().size());
    for (const PXRect &rect : frame.rects())
        pixels.push_back(PXPixelsFromRect(rect, picture));
    return pixels;
}

} // namespace

BRFrameCompressor::BRFrameCompressor(QString filePath, bool isUpsideDown, PXMediaPlatform &media,
                                     PXDefaults &defaults)
    : _filePath(std::move(filePath)),
      _isUpsideDown(isUpsideDown),
      _media(media),
      _defaults(defaults)
{
    _compressionOptions.options = defaultOptions();
    _getSavedSettings();
}

BRFrameCompressor::~BRFrameCompressor()
{
    cancelCompression();
    if (_exportThread.joinable())
        _exportThread.join();
    _compressionSession.reset();
    cleanupDueToError();
}

void BRFrameCompressor::adoptUserCompressionOptions()
{
    _getSavedSettings();
}

PXExpected<void> BRFrameCompressor::saveCompressionSettings(const BRCompressionSettings &settings)
{
    auto saved = _defaults.setValue(kAutosaveName, settings.atomContainer());
    if (!saved) {
        // Names the call that reads on purpose: people search for this line.
        BRLog(BRLogError, "SCSetSettingsFromAtomContainer() failed with error %i",
              saved.error().code);
    }
    _getSavedSettings();
    return saved;
}

void BRFrameCompressor::_getSavedSettings()
{
    BRCompressionSettings settings;
    if (const QByteArray saved = _defaults.dataValue(kAutosaveName); !saved.isEmpty()) {
        if (auto read = BRCompressionSettings::fromAtomContainer(saved)) {
            settings = *std::move(read);
        } else {
            BRLog(BRLogError, "SCSetSettingsFromAtomContainer() failed with error %i",
                  read.error().code);
        }
    }
    _spatialSettings = settings.spatial;
    _temporalSettings = settings.temporal;
    _compressionOptions.codec = settings.spatial.codecType;
    _compressionOptions.options = settings.sessionOptions();
}

void BRFrameCompressor::setMovieExportSize(PXSize size)
{
    _compressionOptions.width = PXClampToInt(size.width);
    _compressionOptions.height = PXClampToInt(size.height);
}

// Starting

PXExpected<void> BRFrameCompressor::startCompression(const QString &outputPath)
{
    if (_movie)
        throw std::logic_error("one export at a time");
    _cancel = false;
    _totalNumberOfFrames = _numberOfFramesRemaining = _numberOfFramesInPipeline = 0;
    {
        const PXLock lock(_writeErrorLock);
        _firstWriteError.reset();
    }
    _framesRead = _samplesAdded = 0;
    _exportedCaptureRate = _captureRate;
    _exportedSelectionSize = _screenSelectionSize;
    _outputMovieFilePath = outputPath;

    auto replaced = BRReplacedFile::takeAway(outputPath);
    if (!replaced) {
        return PXFail(
            {kPXCocoaErrorDomain,
             kPermissionError,
             u"Tolvane could not save the movie."_s,
             u"The movie could not be saved as \"%1\" because the existing file cannot be overwritten. (For example, it may be locked.)"_s
                 .arg(fileNameOf(outputPath)),
             {}});
    }
    _replacedFile = *std::move(replaced);

    auto started = _createCompressionSession();
    if (started)
        started = _exportMovie();
    if (!started) {
        _compressionSession.reset();
        cleanupDueToError();
        return started;
    }
    _exportThread = std::jthread([this] {
        PXSetThreadName("tolvane-export");
        _threadedCompressFrames();
    });
    return {};
}

PXExpected<void> BRFrameCompressor::_createCompressionSession()
{
    const QString description = u"Tolvane could not create a compression session."_s;
    const BRCompressionOptions &chosen = _compressionOptions;
    if (chosen.codec == 0 || chosen.width == 0 || chosen.height == 0 || !chosen.options) {
        return PXFail(exportError(
            description,
            QString::asprintf(
                "createCompressionSessionWithCodec parameter error. w=%i h=%i c=%i o=%i",
                chosen.width, chosen.height, static_cast<int>(chosen.codec),
                chosen.options ? 1 : 0),
            0));
    }
    PXCompressionSessionOptions options = *chosen.options;
    options.codec = chosen.codec;
    options.width = chosen.width;
    options.height = chosen.height;
    options.expectedFrameRate = _exportedCaptureRate;
    auto session = _media.makeCompressionSession(
        options, [this](const PXExpected<PXEncodedFramePtr> &frame) { _frameCameOut(frame); });
    if (!session) {
        const int code = session.error().code;
        BRLog(BRLogError, PXErrorLine(session.error()));
        BRLog(
            BRLogError,
            "createCompressionSessionWithCodec ICMCompressionSessionCreate() failed with error %i",
            code);
        PXError error = exportError(
            description,
            QString::asprintf(
                "createCompressionSessionWithCodec ICMCompressionSessionCreate error %d", code),
            0);
        error.userInfo.insert(u"underlyingError"_s, PXErrorLine(session.error()));
        return PXFail(std::move(error));
    }
    _compressionSession = *std::move(session);
    return {};
}

// The first free name, taken in the same step, so that two exports into one folder never share it.
// Nor is it the movie's own, which must stay free until the end.
QString BRFrameCompressor::_claimTempMovie()
{
    QString name = u"Tolvane Temp.mov"_s;
    for (int counter = 2;; ++counter) {
        QString path = folderOf(_outputMovieFilePath) + u'/' + name;
        QFile file(path);
        if (name != fileNameOf(_outputMovieFilePath)) {
            if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
                _tempMovieFilePath = path;
                return path;
            }
            if (!file.exists() && !QFileInfo(path).isSymLink())
                return path; // Cannot be made; opening it will tell why.
        }
        name = u"Tolvane Temp %1.mov"_s.arg(counter);
    }
}

PXExpected<void> BRFrameCompressor::_exportMovie()
{
    const auto failed = [](const char *call, const PXError &error) {
        const QString text = QString::asprintf("%s() failed with error %i", call, error.code);
        BRLog(BRLogError, text);
        PXError shown
            = exportError(u"Tolvane could not begin movie compression."_s, text, error.code);
        shown.userInfo.insert(u"underlyingError"_s, PXErrorLine(error));
        return PXFail(std::move(shown));
    };

    const QString path = _claimTempMovie();
    auto movie = _media.makeMovieWriter(path);
    if (!movie && movie.error().domain == kPXPOSIXErrorDomain
        && (movie.error().code == EBUSY || movie.error().code == ETXTBSY)) {
        return PXFail(exportError(
            u"\"%1\" already exists and is in use, preventing Tolvane from replacing it with the new movie file."_s
                .arg(fileNameOf(path)),
            u"Choose another file name to save the movie as otherwise Tolvane cannot begin movie compression until the existing file is either not busy or is deleted."_s,
            kFileBusyError));
    }
    if (!movie)
        return failed("CreateMovieStorage", movie.error());
    _movie = *std::move(movie);
    _tempMovieFilePath = path;
    if (const auto added = _movie->addVideoTrack(_compressionSession->trackFormat()); !added)
        return failed("NewMovieTrack", added.error());
    if (const auto begun = _movie->beginMediaEdits(); !begun)
        return failed("BeginMediaEdits", begun.error());
    return {};
}

// The export thread

void BRFrameCompressor::_threadedCompressFrames()
{
    const std::optional<Ending> ending = _compressFrames();
    // Without memory for a picture there is nobody to tell, and nothing is cleaned up.
    if (!ending)
        return;
    if (ending->wasOpened)
        BRLog(BRLogDebug, "_threadedCompressFrames: after flush");
    _compressionSession.reset();
    BRLog(BRLogDebug, "_threadedCompressFrames: after releases");
    if (_cancel) {
        PXMainThread::post(&_mainThread, [this] { _informDelegateCompressionWasCancelled(); });
    } else if (ending->error) {
        PXMainThread::post(&_mainThread, [this, error = *ending->error] {
            _informDelegateCompressionFailed(error);
        });
    } else {
        PXMainThread::post(&_mainThread, [this] { _informDelegateCompressionIsDone(); });
    }
    BRLog(BRLogDebug, "_threadedCompressFrames: end");
}

std::optional<BRFrameCompressor::Ending> BRFrameCompressor::_compressFrames()
{
    const auto streamer = BRFrameStreamer::withFilePathForReading(_filePath, _isUpsideDown);
    if (!streamer)
        return Ending{streamer.error(), false};
    // Laid out as the encoder's thread and a QImage read it, so that nobody turns pixels around.
    BRFrameAssembler frames(**streamer, BRPixelOrder::BGRA);
    const PXSize size{static_cast<float>(frames.width()), static_cast<float>(frames.height())};
    if (_exportedSelectionSize != PXSize{} && _exportedSelectionSize != size) {
        BRLog(BRLogWarning, "%s holds frames of %d x %d, not of %g x %g", qUtf8Printable(_filePath),
              frames.width(), frames.height(), static_cast<double>(_exportedSelectionSize.width),
              static_cast<double>(_exportedSelectionSize.height));
    }
    _reportCompressionStarted((*streamer)->numberOfFrames());

    while (!_cancel) {
        const auto result = frames.readNextFrame();
        if (!result && result.error().code == ENOMEM) {
            BRLog(BRLogError, "Could not allocate buffer from pool.");
            return std::nullopt;
        }
        if (!result)
            return Ending{.error = result.error()};
        if (*result == BRFrameAssembler::Result::End)
            break;
        if (++_framesRead > _totalNumberOfFrames) { // The header counted too few.
            ++_totalNumberOfFrames;
            ++_numberOfFramesRemaining;
        }
        _exportFrame(frames);
    }
    BRLog(BRLogDebug, "_threadedCompressFrames: end of loop");
    if (!_cancel)
        _flushFrames((*streamer)->duration());
    return Ending{};
}

void BRFrameCompressor::_reportCompressionStarted(std::uint32_t totalFrames)
{
    _totalNumberOfFrames = totalFrames;
    _numberOfFramesRemaining = totalFrames;
    // A damaged header must not have room reserved for frames that the file cannot hold.
    const qint64 mostFrames = QFileInfo(_filePath).size() / kSmallestFrame;
    _movie->setExpectedNumberOfSamples(
        static_cast<std::uint64_t>(std::min<qint64>(totalFrames, mostFrames)));
    PXMainThread::post(&_mainThread, [this, totalFrames] {
        if (_delegate)
            _delegate->frameCompressorWillBeginCompression(*this, totalFrames);
    });
    BRLog(BRLogDebug, "_threadedCompressFrames: starting loop (%d total frames)", totalFrames);
}

void BRFrameCompressor::_flushFrames(double captureDuration)
{
    const double soleFrameDuration
        = std::max(captureDuration, 1 / std::max(_exportedCaptureRate, 1.0));
    // Comes back when every frame has come out.
    if (const auto completed = _compressionSession->completeFrames(soleFrameDuration); !completed) {
        BRLog(BRLogError, "ICMCompressionSessionCompleteFrames() failed with error %i",
              completed.error().code);
    }
    if (const std::uint32_t left = _numberOfFramesInPipeline; left != 0)
        BRLog(BRLogInfo, "_threadedCompressFrame: waiting for frames remaining (%d)", left);
}

void BRFrameCompressor::_exportFrame(const BRFrameAssembler &frame)
{
    _sendFrameBegan(frame);
    ++_numberOfFramesInPipeline;
    const PXPictureView picture{frame.picture().data(), std::ptrdiff_t{4} * frame.width(),
                                frame.width(), frame.height()};
    const auto taken = _compressionSession->encodeFrame(picture, displayTimeOf(frame.timestamp()),
                                                        changedPixels(frame));
    if (!taken) {
        --_numberOfFramesInPipeline;
        --_numberOfFramesRemaining;
        BRLog(BRLogError, "ICMCompressionSessionEncodeFrame() failed with error %i",
              taken.error().code);
    }
}

void BRFrameCompressor::_sendFrameBegan(const BRFrameAssembler &frame)
{
    QImage picture;
    if (_sendsPictures && !_pictureIsWaiting.exchange(true)) {
        picture = QImage(reinterpret_cast<const uchar *>(frame.picture().data()), frame.width(),
                         frame.height(), qsizetype{4} * frame.width(), QImage::Format_RGB32)
                      .copy();
    }
    PXMainThread::post(&_mainThread, [this, picture] {
        if (!picture.isNull())
            _pictureIsWaiting = false;
        if (_delegate)
            _delegate->frameCompressorWillEncodeFrame(*this, picture);
    });
}

// The encoder's thread

void BRFrameCompressor::_frameCameOut(const PXExpected<PXEncodedFramePtr> &frame)
{
    if (frame)
        _doneCompressingFrame(*frame);
    else
        _compressingFrameFailed();
}

void BRFrameCompressor::_compressingFrameFailed()
{
    --_numberOfFramesRemaining;
    --_numberOfFramesInPipeline;
}

void BRFrameCompressor::_doneCompressingFrame(const PXEncodedFramePtr &frame)
{
    --_numberOfFramesRemaining;
    --_numberOfFramesInPipeline;
    if (frame->decodeDuration() > 0) {
        if (const auto added = _movie->addMediaSample(*frame); added) {
            ++_samplesAdded;
        } else {
            BRLog(BRLogError, "AddMediaSampleFromEncodedFrame() failed with error %i",
                  added.error().code);
            _noteWriteError(added.error());
        }
    }
    PXMainThread::post(&_mainThread, [this, light = FrameWithoutData(*frame)] {
        if (_delegate)
            _delegate->frameCompressorDidCompressFrame(*this, light, _numberOfFramesRemaining);
    });
}

void BRFrameCompressor::_noteWriteError(const PXError &error)
{
    const PXLock lock(_writeErrorLock);
    if (!_firstWriteError)
        _firstWriteError = error;
}

// Ending, on the main thread

void BRFrameCompressor::_informDelegateCompressionIsDone()
{
    _exportThread.join();
    _finalizeQuickTimeMovie();
    if (const auto error = _errorOfFinishedMovie()) {
        _informDelegateCompressionFailed(*error);
        return;
    }
    auto moved = _moveMovieToItsPlace();
    if (!moved) {
        _informDelegateCompressionFailed(moved.error());
        return;
    }
    _replacedFile.remove();
    if (_delegate)
        _delegate->frameCompressorDidFinishCompression(*this, *moved);
}

// A movie that lacks samples must not take the place of a good one.
std::optional<PXError> BRFrameCompressor::_errorOfFinishedMovie() const
{
    if (auto error = firstWriteError())
        return error;
    if (_framesRead > 0 && _samplesAdded == 0) {
        return exportError(u"Tolvane could not compress the movie."_s,
                           u"None of its %1 frames could be encoded."_s.arg(_framesRead), 0);
    }
    return std::nullopt;
}

void BRFrameCompressor::_informDelegateCompressionWasCancelled()
{
    cleanupDueToError();
    if (_delegate)
        _delegate->frameCompressorDidCancelCompression(*this);
}

void BRFrameCompressor::_informDelegateCompressionFailed(const PXError &error)
{
    cleanupDueToError();
    if (_delegate)
        _delegate->frameCompressorCompressionFailed(*this, error);
}

void BRFrameCompressor::_finalizeQuickTimeMovie()
{
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie");
    const auto check = [this](const char *call, const PXExpected<void> &result) {
        if (!result) {
            BRLog(BRLogError, "%s() failed with error %i", call, result.error().code);
            _noteWriteError(result.error());
        }
    };
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie EndMediaEdits");
    check("EndMediaEdits", _movie->endMediaEdits());
    // The muxer does both of these by itself; the lines mark the place for who reads the log.
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie ExtendMediaDecodeDurationToDisplayEndTime");
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie InsertMediaIntoTrack");
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie AddMovieToStorage");
    check("AddMovieToStorage", _movie->addMovieToStorage());
    _movie.reset();
    _syncMovie();
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie done");
}

// Before the old file goes, so that a crash of the system leaves one of the two.
void BRFrameCompressor::_syncMovie()
{
    const int file = open(QFile::encodeName(_tempMovieFilePath).constData(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return; // Gone; moving it will tell.
    if (fsync(file) != 0) {
        const PXError error
            = PXPOSIXError(errno, u"Could not write the movie %1"_s.arg(_tempMovieFilePath));
        BRLog(BRLogError, PXErrorLine(error));
        _noteWriteError(error);
    }
    close(file);
}

PXExpected<QString> BRFrameCompressor::_moveMovieToItsPlace()
{
    const auto moveTo
        = [this](const QString &path) { return QFile::rename(_tempMovieFilePath, path); };
    QString path = _outputMovieFilePath;
    // Something may have come there since the export began: it is replaced in one step, and
    // removed first only where that cannot be.
    bool isMoved = std::rename(QFile::encodeName(_tempMovieFilePath).constData(),
                               QFile::encodeName(path).constData())
        == 0;
    if (!isMoved) {
        QFile::remove(path);
        isMoved = moveTo(path);
    }
    if (!isMoved) {
        path = PXFileManager::uniquePathForFileWithDesiredPath(path);
        isMoved = moveTo(path);
    }
    if (isMoved) {
        _tempMovieFilePath.clear();
        return path;
    }
    return PXFail(
        {kPXCocoaErrorDomain,
         kPermissionError,
         u"Tolvane could not save \"%1\"."_s.arg(fileNameOf(_outputMovieFilePath)),
         u"The movie could not be saved into the \"%1\" folder because Tolvane does not have permission."_s
             .arg(fileNameOf(folderOf(_outputMovieFilePath))),
         {}});
}

void BRFrameCompressor::cleanupDueToError()
{
    if (_exportThread.joinable())
        _exportThread.join();
    _movie.reset();
    if (!_tempMovieFilePath.isEmpty())
        QFile::remove(_tempMovieFilePath);
    _tempMovieFilePath.clear();
    _replacedFile.putBack();
}

BRFrameCompressor::Progress BRFrameCompressor::progress() const
{
    const std::uint32_t total = _totalNumberOfFrames;
    const std::uint32_t remaining = _numberOfFramesRemaining;
    return {total - std::min(total, remaining), total};
}

std::optional<PXError> BRFrameCompressor::firstWriteError() const
{
    const PXLock lock(_writeErrorLock);
    return _firstWriteError;
}
