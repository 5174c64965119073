#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11FileDescriptor.h"

#include <cstdint>
#include <thread>

/// A thread that sleeps until its connection has events and hands them on. It has no wake-ups
/// but those, the deadlines that its delegate asks for, and its end.
class X11EventThread final {
public:
    static constexpr std::uint64_t kNever = UINT64_MAX;

    /// All calls come on the thread.
    class Delegate {
    public:
        virtual void handleEvent(const xcb_generic_event_t &event) = 0;
        /// After all events that were there, and when the deadline has passed. Answers the host
        /// time at which it wants the next call at the latest.
        virtual std::uint64_t eventsWereHandled() { return kNever; }
        /// The server has gone; the thread ends.
        virtual void connectionWasLost() = 0;

    protected:
        ~Delegate() = default;
    };

    /// `name` has at most 15 characters. Starts at once; connection and delegate outlive it.
    X11EventThread(const char *name, X11Connection &connection, Delegate &delegate);
    /// Waits for the thread's end; not from the thread itself.
    ~X11EventThread();

private:
    void _run(const char *name);
    bool _handleEvents();
    bool _handleNextEvent();

    X11Connection &_connection;
    Delegate &_delegate;
    X11FileDescriptor _stop;
    X11FileDescriptor _look; ///< Events may have come into xcb's queue.
    std::jthread _thread;
};
