#include "export/BRAudioCompressor.h"

#include "foundation/BRLog.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXThread.h"

#include <algorithm>
#include <new>
#include <stop_token>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const QString kAutosaveName = u"AudioCompressionDialogSettings"_s;
constexpr int kPullPackets = 5000; ///< Uncompressed ones, a frame each, that are pulled at a time.
constexpr int kDeepestInteger = 32; ///< Bits.

/// What a stretch of memory that cannot be had is as an error.
PXError noMemory()
{
    return PXPOSIXError(ENOMEM, u"Could not compress the sound"_s);
}

} // namespace

BRAudioCompressor::BRAudioCompressor(PXMediaPlatform &media, PXDefaults &defaults)
    : _media(media), _defaults(defaults)
{
    adoptUserCompressionOptions();
}

BRAudioCompressor::~BRAudioCompressor() = default;

void BRAudioCompressor::adoptUserCompressionOptions()
{
    _settings = {};
    const QByteArray saved = _defaults.dataValue(kAutosaveName);
    if (saved.isEmpty())
        return;
    if (auto read = BRAudioCompressionSettings::fromAtomContainer(saved)) {
        _settings = *std::move(read);
    } else {
        BRLog(BRLogError, "SCSetSettingsFromAtomContainer() failed with error %i",
              read.error().code);
    }
}

PXExpected<void> BRAudioCompressor::openSourceFileAtPath(const QString &path)
{
    cleanup();
    auto extraction = _media.makeSoundExtraction(path);
    if (!extraction) {
        BRLog(BRLogError,
              "BRAudioCompressor.openSourceFileAtPath: NewMovieFromDataRef() returned err %ld\n",
              static_cast<long>(extraction.error().code));
        return PXFail(extraction.error());
    }
    mMovieAudioExtraction = *std::move(extraction);
    // Integers lose nothing of what was stored as integers.
    const int bits = mMovieAudioExtraction->bitsPerSample();
    if (bits > 0 && bits <= kDeepestInteger) {
        mMovieAudioExtraction->setSampleType(bits <= 16 ? PXSampleType::Int16
                                                        : PXSampleType::Int32);
    }
    mInFormat = mMovieAudioExtraction->format();
    return {};
}

bool BRAudioCompressor::chooseCompressionSettings(BRAudioCompressionDialog *dialog)
{
    adoptUserCompressionOptions();
    BRAudioCompressionSettings chosen = _settings;
    if (dialog && !dialog->run(chosen))
        return false;
    _settings = chosen;
    _saveSettings();
    return true;
}

void BRAudioCompressor::_saveSettings()
{
    const QByteArray container = _settings.atomContainer();
    // Written only where it changes something: what holds for this program's run alone (an
    // argument) is not to become the user's choice for ever.
    if (container == _defaults.dataValue(kAutosaveName))
        return;
    if (const auto saved = _defaults.setValue(kAutosaveName, container); !saved) {
        // Names the call that reads on purpose: one line to search the logs for.
        BRLog(BRLogError,
              "audio chooseCompressionSettings: SCSetSettingsFromAtomContainer() failed with "
              "error %i",
              saved.error().code);
    }
}

void BRAudioCompressor::compressAudioToMovieAtPath(const QString &path)
{
    if (_thread.joinable())
        _thread.join();
    mDestinationMoviePath = path;
    _error.reset();
    _secondsDone = 0;
    try {
        _thread = std::jthread([this](const std::stop_token &stop) {
            PXSetThreadName("tolvane-audio");
            _threadedCompressAudio(stop);
        });
    } catch (const std::system_error &) { // There is no memory for its stack.
        _error = noMemory();
        PXMainThread::post(&_mainThread, [this] {
            if (_delegate)
                _delegate->audioCompressorDidFinishCompression(*this);
        });
    }
}

void BRAudioCompressor::_threadedCompressAudio(const std::stop_token &stop)
{
    std::optional<PXError> error;
    try {
        auto done = openDestinationFile();
        if (done)
            done = doSCAudioCompress(stop);
        if (!done)
            error = done.error();
    } catch (const std::bad_alloc &) {
        error = noMemory();
    }
    mDestinationMovie.reset();
    if (stop.stop_requested())
        return; // Nobody is there any more who could hear of it.
    PXMainThread::post(&_mainThread, [this, error] {
        _thread.join();
        _error = error;
        cleanup();
        if (_delegate)
            _delegate->audioCompressorDidFinishCompression(*this);
    });
}

PXExpected<void> BRAudioCompressor::openDestinationFile()
{
    if (!mMovieAudioExtraction)
        return PXFail(PXPOSIXError(EBADF, u"There is no sound to compress"_s));
    auto writer = _media.makeSoundWriter(mDestinationMoviePath, PXSoundFileKind::Ordinary,
                                         mInFormat, _settings.encoding());
    if (!writer) {
        BRLog(BRLogError, "openDestinationFile: CreateMovieStorage() returned err %ld\n",
              static_cast<long>(writer.error().code));
        return PXFail(writer.error());
    }
    mDestinationMovie = *std::move(writer);
    return {};
}

PXExpected<void> BRAudioCompressor::doSCAudioCompress(const std::stop_token &stop)
{
    const auto bytesPerFrame = static_cast<std::size_t>(mInFormat.bytesPerFrame());
    std::vector<std::byte> buffer(kPullPackets * bytesPerFrame);
    std::int64_t framesDone = 0;
    while (!stop.stop_requested()) {
        const auto frames = mMovieAudioExtraction->fill(buffer);
        if (!frames) {
            BRLog(BRLogError, "doSCAudioCompress: received err %ld from SCAudioFillBuffer\n",
                  static_cast<long>(frames.error().code));
            return PXFail(frames.error());
        }
        if (*frames == 0)
            break;
        const auto filled
            = std::span(buffer).first(static_cast<std::size_t>(*frames) * bytesPerFrame);
        if (auto written = mDestinationMovie->write(filled); !written) {
            BRLog(BRLogError, "doSCAudioCompress: AddMediaSample2() returned err %ld\n",
                  static_cast<long>(written.error().code));
            return written;
        }
        framesDone += *frames;
        _secondsDone = static_cast<double>(framesDone) / mInFormat.sampleRate;
    }
    auto finished = mDestinationMovie->finish();
    if (!finished) {
        BRLog(BRLogError, "BRAudioCompressor.cleanup: AddMovieToStorage returned err %ld\n",
              static_cast<long>(finished.error().code));
    }
    return finished;
}

void BRAudioCompressor::cleanup()
{
    mMovieAudioExtraction.reset();
}

PXExpected<PXSoundCodec> BRAudioCompressor::_codec() const
{
    if (!mMovieAudioExtraction)
        return PXFail(PXPOSIXError(EBADF, u"There is no sound to compress"_s));
    return _media.installedSoundCodec(_settings.codec);
}

QString BRAudioCompressor::compressorName() const
{
    const auto codec = _codec();
    return codec ? codec->name : QString();
}

QString BRAudioCompressor::sampleRateString() const
{
    if (!mMovieAudioExtraction)
        return {};
    const int chosen = _settings.encoding().sampleRate;
    return u"%1 kHz"_s.arg((chosen != 0 ? chosen : mInFormat.sampleRate) / 1000.0);
}

QString BRAudioCompressor::channelLayoutString() const
{
    if (!mMovieAudioExtraction)
        return {};
    const int chosen = _settings.encoding().channels;
    switch (const int channels = chosen != 0 ? chosen : mInFormat.channels) {
    case 1:
        return u"Mono"_s;
    case 2:
        return u"Stereo (L R)"_s;
    default:
        return u"%1 channels"_s.arg(channels);
    }
}

QString BRAudioCompressor::sampleSizeString() const
{
    const auto codec = _codec();
    // Of a lossy one nobody can tell.
    if (!codec || !codec->isLossless)
        return {};
    const bool isDeep = mInFormat.sampleType != PXSampleType::Int16;
    return isDeep && codec->code == PXFourCharCode("alac") ? u"24-bit"_s : u"16-bit"_s;
}

QString BRAudioCompressor::bitRateString() const
{
    const auto codec = _codec();
    const std::int64_t bitRate = _settings.encoding().bitRate;
    return codec && codec->hasBitRate && bitRate > 0 ? u"%1 kbps"_s.arg(bitRate / 1000) : QString();
}

QString BRAudioCompressor::summaryString() const
{
    QStringList parts
        = {compressorName(), channelLayoutString(), sampleRateString(), bitRateString()};
    parts.removeAll(QString());
    return parts.join(u", "_s);
}
