#pragma once

#include "platform/PXSoundInput.h"
#include "platform/pulse/PulseEventThread.h"
#include "platform/pulse/PulseRecordStream.h"

#include "foundation/PXMutex.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <optional>

/// An input with a connection and a thread of its own, so that a slow listener holds up nothing
/// else. Its source is known by its unique ID: whenever it has gone, it is looked for again.
class PulseSoundInput final : public PXSoundInput,
                              private PulseEventThread::Delegate,
                              private PulseRecordStream::Delegate {
public:
    /// The source as it is now; the server converts what it gives to `format`.
    PulseSoundInput(const QString &serverName, const PulseSource &source,
                    const PulseSoundFormat &format);
    ~PulseSoundInput() override;

    PXSoundFormat format() const override { return _format.format; }
    PXExpected<void> start(PXSoundInputDelegate &delegate) override;
    void stop() override;
    bool isRunning() const override { return _isFlowing; }

private:
    void serverDidCome(pa_context &context) override;
    void serverDidTell(pa_subscription_event_type_t event) override;
    std::uint64_t eventsWereHandled() override;
    void contextWillEnd() override;
    void serverDidGo(const PXError &error) override;
    void streamDidBegin() override;
    void streamDidOutputBuffer(const PXSoundBuffer &buffer) override;
    void streamWasSuspended() override;
    void streamDidLoseSamples() override;
    void streamDidEnd(const PXError &error) override;

    void _look();
    void _didLook();
    void _interrupt(const PXError &error);
    /// Tells `start()`, which waits for the first of these; whether it was that one.
    bool _answer(const PXExpected<void> &answer);

    const QString _serverName;
    const QString _uid;
    const QString _description;
    const PulseSoundFormat _format;
    PXSoundInputDelegate *_delegate = nullptr; // Set before the thread starts.

    PXMutex _lock;
    std::condition_variable_any _answered;
    std::optional<PXExpected<void>> _firstAnswer PX_GUARDED_BY(_lock);
    std::atomic<bool> _isFlowing = false;
    std::atomic<bool> _isStopping = false;

    // The thread's.
    pa_context *_context = nullptr;
    std::optional<PulseSource> _found; ///< While looking: the source, when it has come along.
    PulseOperation _question; ///< While looking.
    std::unique_ptr<PulseRecordStream> _stream;
    bool _streamHasEnded = false;
    std::uint64_t _lookAt = PulseMainLoop::kNever; ///< While there is no stream.

    std::unique_ptr<PulseEventThread> _thread;
};
