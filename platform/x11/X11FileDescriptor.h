#pragma once

#include <cstdint>
#include <utility>

/// Owns a file descriptor of the kernel's own making: an event or a timer.
class X11FileDescriptor final {
public:
    /// Throws std::system_error when the process has no descriptor left.
    static X11FileDescriptor event();
    /// On CLOCK_MONOTONIC.
    static X11FileDescriptor timer();

    explicit X11FileDescriptor(int fd) : _fd(fd) { }
    ~X11FileDescriptor();
    X11FileDescriptor(X11FileDescriptor &&other) noexcept : _fd(std::exchange(other._fd, -1)) { }
    X11FileDescriptor &operator=(X11FileDescriptor &&) = delete;

    [[nodiscard]] int get() const { return _fd; }

    /// Event: makes it readable.
    void signal() const;
    /// Event: no longer readable.
    void clear() const;
    /// Timer: unreadable now, readable from this host time on; UINT64_MAX switches it off.
    void setTime(std::uint64_t hostTime) const;

private:
    int _fd;
};
