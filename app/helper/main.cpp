#include "audio/privileged/PXPrivilegedServer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace {

/// The user whom pkexec let in; root where it was not pkexec that started us.
uid_t caller()
{
    // pkexec sets it and lets nothing else of its caller's environment through.
    const char *text = ::getenv("PKEXEC_UID");
    if (text == nullptr)
        return ::getuid();
    char *end = nullptr;
    errno = 0;
    const unsigned long uid = std::strtoul(text, &end, 10);
    // One who is nobody owns nothing.
    constexpr auto kNobody = static_cast<uid_t>(-1);
    const bool isUser = errno == 0 && end != text && *end == '\0' && uid < kNobody;
    return isUser ? static_cast<uid_t>(uid) : kNobody;
}

} // namespace

/// The root helper: started by pkexec, which asks an administrator first, it does a handful of
/// tasks for the program at the other end of its standard input and output. What it accepts is in
/// PXPrivilegedCommands.h, how it is spoken to in PXPrivilegedProtocol.h.
int main(int argc, char **)
{
    const PXPrivilegedCommands commands({}, caller());
    if (argc != 1 || ::clearenv() != 0 || ::chdir("/") != 0)
        return EXIT_FAILURE;
    ::umask(S_IWGRP | S_IWOTH);
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    // Ctrl+C in the program's terminal is not meant for a task that is half done.
    for (const int signal : {SIGINT, SIGHUP, SIGQUIT, SIGPIPE})
        ::signal(signal, SIG_IGN);
    constexpr int kIdleMs = PXPrivilegedProtocol::kSecondsWithoutRequest * 1000;
    PXPrivilegedServer(commands, STDIN_FILENO, STDOUT_FILENO, kIdleMs).run();
    return EXIT_SUCCESS;
}
