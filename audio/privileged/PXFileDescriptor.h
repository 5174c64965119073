#pragma once

#include <unistd.h>

#include <utility>

/// Owns a file descriptor; -1 is none.
class PXFileDescriptor final {
public:
    explicit PXFileDescriptor(int fd = -1) : _fd(fd) { }
    ~PXFileDescriptor()
    {
        if (_fd >= 0)
            ::close(_fd);
    }
    PXFileDescriptor(PXFileDescriptor &&other) noexcept : _fd(other.release()) { }
    PXFileDescriptor &operator=(PXFileDescriptor &&other) noexcept
    {
        std::swap(_fd, other._fd);
        return *this;
    }

    [[nodiscard]] int get() const { return _fd; }
    explicit operator bool() const { return _fd >= 0; }
    /// The caller closes it.
    [[nodiscard]] int release() { return std::exchange(_fd, -1); }

private:
    int _fd;
};
