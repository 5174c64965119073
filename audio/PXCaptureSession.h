#pragma once

#include "platform/PXSoundPlatform.h"

#include "foundation/PXError.h"

#include <QObject>

#include <memory>

class PXCaptureMovieFileOutput;
class PXCaptureSession;

/// Hears of what befalls a session while it runs; on the main thread.
class PXCaptureSessionDelegate {
public:
    /// Its device or the sound server has gone. The session goes on when that comes back.
    virtual void captureSessionRuntimeError(PXCaptureSession &session, const PXError &error) = 0;

protected:
    ~PXCaptureSessionDelegate() = default;
};

/// One sound input and what becomes of its samples. Main thread.
class PXCaptureSession final : private PXSoundInputDelegate {
public:
    explicit PXCaptureSession(PXCaptureSessionDelegate &delegate);
    ~PXCaptureSession();
    PXCaptureSession(const PXCaptureSession &) = delete;
    PXCaptureSession &operator=(const PXCaptureSession &) = delete;

    /// Borrowed; outlives the session's running.
    void addOutput(PXCaptureMovieFileOutput &output) { _output = &output; }
    /// The output's samples come from it, in the format that the first input has.
    void addInput(std::unique_ptr<PXSoundInput> input);
    /// Takes another input's samples from now on, which must have the format of the one before.
    [[nodiscard]] PXExpected<void> replaceInput(std::unique_ptr<PXSoundInput> input);
    [[nodiscard]] const PXSoundInput *input() const { return _input.get(); }

    /// Does nothing where it has no input. Calling it again does nothing.
    [[nodiscard]] PXExpected<void> startRunning();
    /// When this returns no more samples come.
    void stopRunning();
    [[nodiscard]] bool isRunning() const;

private:
    void soundInputDidOutputBuffer(const PXSoundBuffer &buffer) override;
    void soundInputDidLoseSamples() override;
    void soundInputWasInterrupted(const PXError &error) override;

    PXCaptureSessionDelegate &_delegate;
    PXCaptureMovieFileOutput *_output = nullptr;
    bool _isStarted = false;
    QObject _mainThread; ///< Context of what the input's thread posts.
    std::unique_ptr<PXSoundInput> _input;
};
