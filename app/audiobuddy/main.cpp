#include "audio/BROutputDeviceRestorer.h"
#include "audio/privileged/PXFileDescriptor.h"
#include "platform/pulse/PulseSoundPlatform.h"

#include <QCoreApplication>
#include <QString>

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

constexpr int kWrongUsage = 2;

std::optional<pid_t> processIdOf(int argc, char **argv)
{
    if (argc != 2)
        return std::nullopt;
    bool isNumber = false;
    const int id = QString::fromLocal8Bit(argv[1]).toInt(&isNumber);
    return isNumber && id > 0 ? std::optional(id) : std::nullopt;
}

/// Whoever started the process need not be us. Its end counts, not that somebody asked for it.
bool waitForEndOf(pid_t process)
{
    PXFileDescriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
    if (!handle)
        return errno == ESRCH; // It has ended already.
    pollfd end = {handle.get(), POLLIN, 0};
    while (::poll(&end, 1, -1) < 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

/// What ends the recorder is not meant for us: Ctrl+C in its terminal, the terminal's end.
void leaveTerminal()
{
    ::signal(SIGINT, SIG_IGN);
    ::signal(SIGHUP, SIG_IGN);
    // When a whole session is ended the recorder needs longer than we do.
    ::signal(SIGTERM, SIG_IGN);
    ::signal(SIGQUIT, SIG_IGN);
    ::setsid(); // Fails where we lead a group already, which does not matter then.
    // Whoever reads the recorder's output waits for its end and not for ours.
    const PXFileDescriptor nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(nowhere.get(), stream);
    [[maybe_unused]] const int moved = ::chdir("/"); // Keep no disk from being unmounted.
}

} // namespace

/// `audiobuddy PROCESS`: waits for that process to end, by whatever cause, and puts the user's
/// output device back where the process could not do so.
int main(int argc, char **argv)
{
    const auto process = processIdOf(argc, argv);
    if (!process) {
        std::fputs("audiobuddy: give the id of the process to wait for\n", stderr);
        return kWrongUsage;
    }
    leaveTerminal();
    if (!waitForEndOf(*process))
        return EXIT_FAILURE;
    QCoreApplication application(argc, argv);
    PulseSoundPlatform sound;
    return BROutputDeviceRestorer(sound).restore() ? EXIT_SUCCESS : EXIT_FAILURE;
}
