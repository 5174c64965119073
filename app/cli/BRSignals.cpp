#include "app/cli/BRSignals.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
std::array<int, 2> thePipe = {-1, -1};

void writeToPipe(int)
{
    const int savedErrno = errno;
    const char byte = 0;
    // A full pipe holds a stop already.
    [[maybe_unused]] const ssize_t written = ::write(thePipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

BRSignals::BRSignals(std::function<void()> stop)
{
    if (::pipe2(thePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    auto *notifier = new QSocketNotifier(thePipe[0], QSocketNotifier::Read, &_context);
    QObject::connect(notifier, &QSocketNotifier::activated, &_context, [stop = std::move(stop)] {
        std::array<char, 16> bytes = {};
        while (::read(thePipe[0], bytes.data(), bytes.size()) > 0) { }
        stop();
    });
    // Later the signals may be ignored because one of these has gone.
    static const bool isStartedWithNohup = [] {
        struct sigaction inherited = {};
        return ::sigaction(SIGHUP, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN;
    }();
    struct sigaction action = {};
    action.sa_handler = writeToPipe;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : kSignals) {
        // Who started us with nohup does not want the terminal's end to be ours. Not so for
        // SIGINT, which every shell ignores for what it starts in the background.
        if (signal == SIGHUP && isStartedWithNohup)
            continue;
        ::sigaction(signal, &action, nullptr);
    }
    // A reader of our messages that goes away must not end the work.
    ::signal(SIGPIPE, SIG_IGN);
}

BRSignals::~BRSignals()
{
    for (const int signal : kSignals)
        ::signal(signal, SIG_IGN);
    for (const int end : thePipe)
        ::close(end);
    thePipe = {-1, -1};
}
