#pragma once

#include <sys/resource.h>

#include <csignal>

/// The system refuses to let files grow beyond `bytes` while this lives: EFBIG where a full disk
/// gives ENOSPC, and, like it, a short write before.
class FileSizeLimit final {
public:
    explicit FileSizeLimit(rlim_t bytes) : _signalBefore(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &_before);
        const rlimit limit{bytes, _before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &_before);
        static_cast<void>(std::signal(SIGXFSZ, _signalBefore));
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit _before = {};
    void (*_signalBefore)(int);
};
