#include "audio/PXCaptureSession.h"

#include "audio/PXCaptureMovieFileOutput.h"
#include "foundation/PXMainThread.h"

PXCaptureSession::PXCaptureSession(PXCaptureSessionDelegate &delegate) : _delegate(delegate) { }

PXCaptureSession::~PXCaptureSession()
{
    stopRunning();
}

void PXCaptureSession::addInput(std::unique_ptr<PXSoundInput> input)
{
    _input = std::move(input);
    if (_output)
        _output->setFormat(_input->format());
}

PXExpected<void> PXCaptureSession::replaceInput(std::unique_ptr<PXSoundInput> input)
{
    if (_input)
        _input->stop();
    _input = std::move(input);
    if (_output)
        _output->sourceWasInterrupted();
    return _isStarted ? _input->start(*this) : PXExpected<void>();
}

PXExpected<void> PXCaptureSession::startRunning()
{
    if (_isStarted || !_input)
        return {};
    auto started = _input->start(*this);
    _isStarted = started.has_value();
    return started;
}

void PXCaptureSession::stopRunning()
{
    if (_isStarted)
        _input->stop();
    _isStarted = false;
}

bool PXCaptureSession::isRunning() const
{
    return _isStarted && _input->isRunning();
}

void PXCaptureSession::soundInputDidOutputBuffer(const PXSoundBuffer &buffer)
{
    if (_output)
        _output->outputSampleBuffer(buffer);
}

void PXCaptureSession::soundInputDidLoseSamples()
{
    if (_output)
        _output->sourceWasInterrupted();
}

void PXCaptureSession::soundInputWasInterrupted(const PXError &error)
{
    if (_output)
        _output->sourceWasInterrupted();
    PXMainThread::post(&_mainThread,
                       [this, error] { _delegate.captureSessionRuntimeError(*this, error); });
}
