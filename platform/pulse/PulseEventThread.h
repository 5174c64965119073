#pragma once

#include "platform/pulse/PulseContext.h"
#include "platform/pulse/PulseMainLoop.h"

#include <cstdint>
#include <stop_token>
#include <thread>

/// A thread with a connection to the sound server: it sleeps until the server says something, and
/// connects again, once a second, when the server has gone.
class PulseEventThread final {
public:
    /// All calls come on the thread.
    class Delegate {
    public:
        virtual void serverDidCome(pa_context &context) = 0;
        virtual void serverDidTell(pa_subscription_event_type_t event) = 0;
        /// After all events that were there. Answers the host time at which it wants the next
        /// call at the latest.
        virtual std::uint64_t eventsWereHandled() { return PulseMainLoop::kNever; }
        /// The context ends after this: all that was made in it must end now.
        virtual void contextWillEnd() { }
        /// Because the server has gone, or, once for each try, could not be reached.
        virtual void serverDidGo(const PXError &error) = 0;

    protected:
        ~Delegate() = default;
    };

    /// `name` has at most 15 characters; `mask` says what the server tells of. Starts at once;
    /// the delegate outlives it.
    PulseEventThread(const char *name, const QString &serverName, int mask,
                     PulseEventThread::Delegate &delegate);
    /// Waits for the thread's end; not from the thread itself. Never waits for the server.
    ~PulseEventThread();

    [[nodiscard]] bool isEnding() const { return _stop.stop_requested(); }

private:
    void _run(const char *name);
    /// One connection, from its beginning to its end.
    void _serve(PulseContext &context);

    const QString _serverName;
    const int _mask;
    Delegate &_delegate;
    PulseMainLoop _loop;
    std::stop_source _stop;
    std::jthread _thread;
};
