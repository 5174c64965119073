#include "export/BRFrameCompressor.h"

#include "export/BRExportErrors.h"
#include "foundation/BRLog.h"
#include "foundation/PXThread.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString kAutosaveName = u"CompressionDialogSettings"_s;

} // namespace

BRFrameCompressor::BRFrameCompressor(QString filePath, bool isUpsideDown, PXMediaPlatform &media,
                                     PXDefaults &defaults)
    : _filePath(std::move(filePath)),
      _isUpsideDown(isUpsideDown),
      _media(media),
      _defaults(defaults),
      _noMemory(PXPOSIXError(ENOMEM, u"Could not export %1"_s.arg(_filePath)))
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
    if (_isCompressing)
        throw std::logic_error("one export at a time");
    if (_movie) // Its export ended without a word.
        cleanupDueToError();
    _cancel = false;
    _totalNumberOfFrames = _numberOfFramesRemaining = _numberOfFramesInPipeline = 0;
    {
        const PXLock lock(_writeErrorLock);
        _firstWriteError.reset();
    }
    _framesRead = _samplesAdded = 0;
    _missingFrames = 0;
    _exportedCaptureRate = _captureRate;
    _exportedSelectionSize = _screenSelectionSize;

    auto replaced = BRReplacedFile::takeAway(outputPath);
    if (!replaced)
        return PXFail(BRExportErrors::cannotReplace(outputPath));
    _replacedFile = *std::move(replaced);

    auto started = _createCompressionSessionWithCodec();
    if (started)
        started = _exportMovieToPath(outputPath);
    if (started)
        started = _detachThread();
    if (!started) {
        _compressionSession.reset();
        cleanupDueToError();
    }
    return started;
}

PXExpected<void> BRFrameCompressor::_detachThread()
{
    _isCompressing = true;
    try {
        _exportThread = std::jthread([this] {
            PXSetThreadName("tolvane-export");
            _threadedCompressFrames();
        });
    } catch (const std::system_error &error) { // There is no memory for its stack.
        BRLog(BRLogError, "pthread_create() failed with error %i", error.code().value());
        return PXFail(_noMemory);
    }
    return {};
}

PXExpected<void> BRFrameCompressor::_createCompressionSessionWithCodec()
{
    const BRCompressionOptions &chosen = _compressionOptions;
    if (chosen.codec == 0 || chosen.width == 0 || chosen.height == 0 || !chosen.options)
        return PXFail(BRExportErrors::wrongSessionParameters(chosen));
    PXCompressionSessionOptions options = *chosen.options;
    options.codec = chosen.codec;
    options.width = chosen.width;
    options.height = chosen.height;
    options.expectedFrameRate = _exportedCaptureRate;
    auto session = _media.makeCompressionSession(
        options, [this](const PXExpected<PXEncodedFramePtr> &frame) { _frameCameOut(frame); });
    if (!session)
        return PXFail(BRExportErrors::noSession(session.error()));
    _compressionSession = *std::move(session);
    return {};
}

PXExpected<void> BRFrameCompressor::_exportMovieToPath(const QString &outputPath)
{
    auto movie = BRMovieFile::create(_media, outputPath, _compressionSession->trackFormat());
    if (!movie)
        return PXFail(std::move(movie).error());
    _movie = *std::move(movie);
    return {};
}

// Ending, on the main thread

void BRFrameCompressor::_informDelegateCompressionIsDone()
{
    _exportThread.join();
    if (const auto finalized = _movie->finalizeQuickTimeMovie(); !finalized)
        _noteWriteError(finalized.error());
    if (const auto error = _errorOfFinishedMovie()) {
        _informDelegateCompressionFailed(*error);
        return;
    }
    const auto moved = _movie->moveToItsPlace();
    if (!moved) {
        _informDelegateCompressionFailed(moved.error());
        return;
    }
    _movie.reset();
    _replacedFile.remove();
    _isCompressing = false;
    if (_delegate)
        _delegate->frameCompressorDidFinishCompression(*this, *moved);
}

// A movie that lacks samples must not take the place of a good one.
std::optional<PXError> BRFrameCompressor::_errorOfFinishedMovie() const
{
    if (auto error = firstWriteError())
        return error;
    if (_framesRead > 0 && _samplesAdded == 0)
        return BRExportErrors::nothingEncoded(_framesRead);
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

void BRFrameCompressor::cleanupDueToError()
{
    if (_exportThread.joinable())
        _exportThread.join();
    _movie.reset();
    _replacedFile.putBack();
    _isCompressing = false;
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
