#include "export/BRCapturedMovie.h"

#include "audio/BRAudioRecorder.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXThread.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

const QString kBRCaptureAudioDataName = u"Brimmet Capture Audio Data 1.mov"_s;

namespace {

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

} // namespace

BRCapturedMovie::BRCapturedMovie(QString videoDataPath, const QVariantMap &info,
                                 PXMediaPlatform &media, PXDefaults &defaults)
    : _movieFolderPath(QFileInfo(videoDataPath).path()),
      _hasAudio(info.value(u"hasAudio"_s).toBool()),
      _includeAudio(_hasAudio),
      _capturedVideoSize{info.value(u"width"_s).toFloat(), info.value(u"height"_s).toFloat()},
      _videoSize(_capturedVideoSize),
      _media(media),
      _defaults(defaults),
      _frameCompressor(std::move(videoDataPath), info.value(u"isUpsideDown"_s).toBool(), media,
                       defaults)
{
    if (const double rate = info.value(u"captureRate"_s).toDouble(); rate > 0)
        _frameCompressor.setCaptureRate(rate);
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
}

BRAudioCompressor &BRCapturedMovie::audioCompressor()
{
    if (_audioCompressor)
        return *_audioCompressor;
    _audioCompressor = std::make_unique<BRAudioCompressor>(_media, _defaults);
    _audioCompressor->setDelegate(this);
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
        && QFileInfo::exists(
               QDir(_movieFolderPath).filePath(u"Brimmet Capture Audio Data 2.mov"_s));
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
    _mergeStop = std::stop_source();
    if (!_audioCompressor) // Else it says why the sound cannot be read.
        _audioError.reset();
    _frameCompressor.setScreenSelectionSize(_capturedVideoSize);
    _frameCompressor.setMovieExportSize(_videoSize);
    auto started = _frameCompressor.startCompression(path);
    _isCompressing = started.has_value();
    return started;
}

void BRCapturedMovie::frameCompressorWillBeginCompression(BRFrameCompressor &, std::uint32_t total)
{
    _totalNumberOfFrames = total;
    if (_delegate)
        _delegate->capturedMovieWillBeginVideoCompression(*this, total);
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
    if (_delegate)
        _delegate->capturedMovieCompressionWasCancelled(*this);
}

void BRCapturedMovie::frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &error)
{
    _isCompressing = false;
    if (_delegate)
        _delegate->capturedMovieCompressionFailed(*this, error);
}

void BRCapturedMovie::videoCompressionIsDone()
{
    BRLog(BRLogDebug, "videoCompressionIsDone");
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
    if (_delegate)
        _delegate->capturedMovieIsDoneCompressing(*this, _destinationMovieFilePath);
}
