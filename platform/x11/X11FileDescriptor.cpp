#include "platform/x11/X11FileDescriptor.h"

#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace {

int checked(int fd, const char *call)
{
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), call);
    return fd;
}

} // namespace

X11FileDescriptor X11FileDescriptor::event()
{
    return X11FileDescriptor(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"));
}

X11FileDescriptor X11FileDescriptor::timer()
{
    return X11FileDescriptor(
        checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create"));
}

X11FileDescriptor::~X11FileDescriptor()
{
    if (_fd >= 0)
        close(_fd);
}

void X11FileDescriptor::signal() const
{
    const std::uint64_t one = 1;
    // Can only fail when it is readable already.
    [[maybe_unused]] const auto written = write(_fd, &one, sizeof one);
}

void X11FileDescriptor::clear() const
{
    std::uint64_t count = 0;
    // Can only fail when it is not readable.
    [[maybe_unused]] const auto got = read(_fd, &count, sizeof count);
}

void X11FileDescriptor::setTime(std::uint64_t hostTime) const
{
    itimerspec when = {};
    if (hostTime != UINT64_MAX) {
        // Zero would switch it off instead of firing at once.
        hostTime = std::max<std::uint64_t>(hostTime, 1);
        when.it_value = {static_cast<time_t>(hostTime / 1'000'000'000),
                         static_cast<long>(hostTime % 1'000'000'000)};
    }
    timerfd_settime(_fd, TFD_TIMER_ABSTIME, &when, nullptr);
}
