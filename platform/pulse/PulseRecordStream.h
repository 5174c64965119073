#pragma once

#include "platform/pulse/PulseHandles.h"
#include "platform/pulse/PulseSoundFormat.h"
#include "platform/pulse/PulseStreamClock.h"

#include "foundation/PXError.h"

#include <cstddef>
#include <memory>
#include <span>

/// Samples of one source, cut into small pieces that each know when they were heard. Belongs to
/// the thread of its context, and ends before that does.
class PulseRecordStream final {
public:
    /// On the context's thread, never from inside a call of the owner's. A stream must not be
    /// destroyed during these.
    class Delegate {
    public:
        /// The server has opened the source; what flows, flows from now on.
        virtual void streamDidBegin() = 0;
        virtual void streamDidOutputBuffer(const PXSoundBuffer &buffer) = 0;
        /// The source sleeps. When it wakes up, samples go on.
        virtual void streamWasSuspended() = 0;
        /// The server had no time for some. What comes next has its right time.
        virtual void streamDidLoseSamples() = 0;
        /// There will be no more; or it could not begin.
        virtual void streamDidEnd(const PXError &error) = 0;

    protected:
        ~Delegate() = default;
    };

    static PXExpected<std::unique_ptr<PulseRecordStream>> open(pa_context &context,
                                                               const PulseSource &source,
                                                               const PulseSoundFormat &format,
                                                               Delegate &delegate);
    ~PulseRecordStream();
    PulseRecordStream(const PulseRecordStream &) = delete;
    PulseRecordStream &operator=(const PulseRecordStream &) = delete;

private:
    PulseRecordStream(pa_context &context, const PulseSource &source,
                      const PulseSoundFormat &format, Delegate &delegate);
    void _setCallbacks();
    bool _connect();
    void _stateDidChange();
    void _suspensionDidChange();
    void _read();
    void _deliver(const std::byte *data, std::size_t bytes);
    void _askForTiming();
    void _timingDidArrive();

    const QByteArray _sourceName;
    const QString _description;
    const PXSoundFormat _format;
    Delegate &_delegate;
    PulseStreamHandle _stream;
    PulseOperation _timing; ///< While it is asked for.
    PulseStreamClock _clock;
    unsigned _fragments = 0; ///< That have arrived.
    std::int64_t _position = 0; ///< Of the next frame, counted as the server counts.
    const std::vector<std::byte> _silence; ///< One piece of it.
};
