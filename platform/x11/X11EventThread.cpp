#include "platform/x11/X11EventThread.h"

#include "foundation/PXClock.h"
#include "foundation/PXThread.h"

#include <poll.h>

#include <ctime>

X11EventThread::X11EventThread(const char *name, X11Connection &connection, Delegate &delegate)
    : _connection(connection),
      _delegate(delegate),
      _stop(X11FileDescriptor::event()),
      _look(X11FileDescriptor::event()),
      _thread([this, name] { _run(name); })
{
}

X11EventThread::~X11EventThread()
{
    _stop.signal();
    _thread.join();
    _connection.setReader(nullptr);
}

void X11EventThread::_run(const char *name)
{
    PXSetThreadName(name);
    _connection.setReader(&_look);
    while (_handleEvents()) {
        const std::uint64_t deadline = _delegate.eventsWereHandled();
        // What it asked or sent may have brought an event into xcb's queue, for which the socket
        // does not wake us any more.
        if (_handleNextEvent())
            continue;
        const std::uint64_t now = PXCurrentHostTime();
        const std::uint64_t wait = deadline > now ? deadline - now : 0;
        const timespec timeout
            = {static_cast<time_t>(wait / 1'000'000'000), static_cast<long>(wait % 1'000'000'000)};
        pollfd files[] = {{xcb_get_file_descriptor(_connection.get()), POLLIN, 0},
                          {_stop.get(), POLLIN, 0},
                          {_look.get(), POLLIN, 0}};
        ppoll(files, 3, deadline == kNever ? nullptr : &timeout, nullptr);
        if (files[1].revents != 0)
            return;
        if (files[2].revents != 0)
            _look.clear();
    }
    _delegate.connectionWasLost();
}

bool X11EventThread::_handleEvents()
{
    while (_handleNextEvent()) { }
    return !_connection.isLost();
}

bool X11EventThread::_handleNextEvent()
{
    // In this order: a flush with something to send reads the socket, too.
    xcb_flush(_connection.get());
    const X11Event event{xcb_poll_for_event(_connection.get())};
    if (event)
        _delegate.handleEvent(*event);
    return event != nullptr;
}
