#include "audio/PXCaptureMovieFileOutput.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPieceSeconds = 0.05; ///< That go to the stretcher at a time.
// How fast a sound that is out of step is brought back: within some ten seconds, and never by more
// than a pitch that nobody hears (0.2 % is 3.5 cents).
constexpr double kCorrectionTime = 10;
constexpr double kLargestStretch = 0.002;

std::span<const std::byte> bytesOf(std::span<const float> samples)
{
    return std::as_bytes(samples);
}

} // namespace

PXCaptureMovieFileOutput::PXCaptureMovieFileOutput(PXMediaPlatform &media, PXSoundEncoding encoding,
                                                   PXCaptureMovieFileOutputDelegate &delegate)
    : _media(media), _encoding(encoding), _delegate(delegate)
{
}

PXCaptureMovieFileOutput::~PXCaptureMovieFileOutput() = default;

void PXCaptureMovieFileOutput::setFormat(const PXSoundFormat &format)
{
    _format = format;
    _clock.emplace(format.sampleRate);
}

void PXCaptureMovieFileOutput::outputSampleBuffer(const PXSoundBuffer &buffer)
{
    if (_wasInterrupted.exchange(false))
        _clock->interrupt();
    const PXSoundClock::Place place = _clock->advance(buffer.frames, buffer.hostTime);
    PXSoundBuffer told = buffer;
    told.hostTime = static_cast<std::uint64_t>(std::max(0.0, place.hostTime) * 1e9);
    _delegate.captureOutputDidOutputSampleBuffer(*this, told);
    if (_writer) {
        _record(
            {reinterpret_cast<const float *>(buffer.samples.data()),
             static_cast<std::size_t>(buffer.frames) * static_cast<std::size_t>(_format.channels)},
            place);
    }
    _endOfSamples = told.hostTime
        + static_cast<std::uint64_t>(buffer.frames) * 1'000'000'000
            / static_cast<std::uint64_t>(_format.sampleRate);
}

void PXCaptureMovieFileOutput::recordToOutputFile(const QString &path, std::uint64_t startHostTime)
{
    _delegate.captureOutputWillStartRecording(*this, path);
    _path = path;
    _startTime = static_cast<double>(startHostTime) * 1e-9;
    auto stretcher = _media.makeSoundStretcher(_format);
    if (!stretcher) {
        _fail(stretcher.error());
        return;
    }
    auto writer = _media.makeSoundWriter(path, PXSoundFileKind::Fragmented, _format, _encoding);
    if (!writer) {
        _fail(writer.error());
        return;
    }
    _stretcher = *std::move(stretcher);
    _writer = *std::move(writer);
    _delegate.captureOutputDidStartRecording(*this, path);
}

void PXCaptureMovieFileOutput::_record(std::span<const float> samples,
                                       const PXSoundClock::Place &place)
{
    PXExpected<void> written;
    // In front of the file's first sample, or where the source was gone.
    const double missing
        = _framesWritten == 0 && _pending.empty() ? place.hostTime - _startTime : place.gap;
    if (missing > 0) {
        written = _writePending();
        if (written)
            written = _writeSilence(missing);
    }
    if (_pending.empty())
        _pendingTime = place.hostTime;
    _pending.insert(_pending.end(), samples.begin(), samples.end());
    const auto frames = static_cast<double>(_pending.size()) / _format.channels;
    if (written && frames >= kPieceSeconds * _format.sampleRate)
        written = _writePending();
    if (!written)
        _fail(written.error());
}

PXExpected<void> PXCaptureMovieFileOutput::_writePending()
{
    if (_pending.empty())
        return {};
    const double written
        = (static_cast<double>(_framesWritten) + _stretcher->delay()) / _format.sampleRate;
    const double late = _pendingTime - _startTime - written;
    _stretcher->setStretch(
        std::clamp(_clock->drift() + late / kCorrectionTime, -kLargestStretch, kLargestStretch));
    const auto stretched = _stretcher->process(_pending);
    _pending.clear();
    if (!stretched)
        return PXFail(stretched.error());
    return _write(*stretched);
}

PXExpected<void> PXCaptureMovieFileOutput::_writeSilence(double seconds)
{
    const auto frames = std::max(0LL, std::llround(seconds * _format.sampleRate));
    if (auto written = _writer->writeSilence(frames); !written)
        return written;
    _framesWritten += static_cast<std::uint64_t>(frames);
    return {};
}

PXExpected<void> PXCaptureMovieFileOutput::_write(std::span<const float> samples)
{
    if (samples.empty())
        return {};
    if (auto written = _writer->write(bytesOf(samples)); !written)
        return written;
    _framesWritten += samples.size() / static_cast<std::size_t>(_format.channels);
    _recordedBytes = _writer->recordedBytes();
    return {};
}

void PXCaptureMovieFileOutput::_fail(const PXError &error)
{
    _writer.reset();
    _stretcher.reset();
    _error = error;
    _delegate.captureOutputMustChangeOutputFile(*this, _path, error);
    _delegate.captureOutputWillFinishRecording(*this, _path, _error);
    _delegate.captureOutputDidFinishRecording(*this, _path, _error);
}

void PXCaptureMovieFileOutput::close()
{
    if (_path.isEmpty())
        return;
    const bool isToldOf = !_writer;
    if (_writer) {
        auto finished = _writePending();
        if (finished)
            finished = _writer->finish();
        _recordedBytes = _writer->recordedBytes();
        if (!finished)
            _error = finished.error();
        _writer.reset();
    }
    if (!isToldOf)
        _delegate.captureOutputWillFinishRecording(*this, _path, _error);
    if (!isToldOf)
        _delegate.captureOutputDidFinishRecording(*this, _path, _error);
    _path.clear();
}
