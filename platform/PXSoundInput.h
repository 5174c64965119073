#pragma once

#include "platform/PXSound.h"

#include "foundation/PXError.h"

/// What an input tells; on the input's thread, never from inside a call of its owner.
class PXSoundInputDelegate {
public:
    /// The samples behind those of the call before. Host times are the source's own, corrected by
    /// its latency: they wander by milliseconds around where the samples really are. After a
    /// gap (a device that came back) the time jumps. May take a while: the server holds seconds.
    virtual void soundInputDidOutputBuffer(const PXSoundBuffer &buffer) = 0;
    /// Samples between those of the last call and the next were lost on the way, as on a machine
    /// that is too busy: the next one's time is right.
    virtual void soundInputDidLoseSamples() { }
    /// No samples for now: the device or the server has gone. When it comes back the samples go on
    /// by themselves. Told once until then.
    virtual void soundInputWasInterrupted(const PXError &error) = 0;

protected:
    ~PXSoundInputDelegate() = default;
};

/// Reads one sound device. Made by `PXSoundPlatform`; destroying it closes the device. The owner's
/// calls come from one thread and may wait for the server, for a few seconds at most.
class PXSoundInput {
public:
    virtual ~PXSoundInput() = default;

    /// Of all samples, 32-bit floats; what the device had when it was opened. A device that comes
    /// back with another is converted to it by the server.
    [[nodiscard]] virtual PXSoundFormat format() const = 0;

    /// Samples flow from soon after. Borrows the delegate until `stop()`.
    [[nodiscard]] virtual PXExpected<void> start(PXSoundInputDelegate &delegate) = 0;
    /// When this returns the delegate is not called any more. Harmless when stopped.
    virtual void stop() = 0;
    /// Between the two, save while it is interrupted.
    [[nodiscard]] virtual bool isRunning() const = 0;
};
