#include "audio/privileged/PXPrivilegedServer.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace {

constexpr std::size_t kMostDigits = 6;

long long nowMs()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace

PXPrivilegedServer::PXPrivilegedServer(const PXPrivilegedCommands &commands, int input, int output,
                                       int idleMs)
    : _commands(commands), _input(input), _output(output), _idleMs(idleMs)
{
}

void PXPrivilegedServer::run()
{
    bool goesOn = _write(std::string(PXPrivilegedProtocol::kGreeting) + '\n');
    while (goesOn) {
        _deadline = nowMs() + _idleMs;
        const auto payload = _readPayload();
        if (!payload)
            return;
        const auto words = PXPrivilegedProtocol::wordsOfPayload(*payload);
        // Where the next request begins is as unsure as this one.
        if (!words) {
            (void)_answer({PXPrivilegedCannotExecute, "the request has no end"});
            return;
        }
        goesOn = _answer(_commands.run(*words));
    }
}

bool PXPrivilegedServer::_answer(const PXPrivilegedAnswer &answer) const
{
    return _write(std::to_string(answer.status) + ' ' + answer.text + '\n');
}

bool PXPrivilegedServer::_write(const std::string &line) const
{
    for (std::size_t done = 0; done < line.size();) {
        const ssize_t written = ::write(_output, line.data() + done, line.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    return true;
}

bool PXPrivilegedServer::_readByte(char &byte)
{
    for (;;) {
        pollfd input = {_input, POLLIN, 0};
        const long long left = std::max(0LL, _deadline - nowMs());
        const int ready = ::poll(&input, 1, static_cast<int>(left));
        if (ready == 0)
            return false;
        const ssize_t read = ready < 0 ? -1 : ::read(_input, &byte, 1);
        if (read >= 0 || errno != EINTR)
            return read == 1;
    }
}

std::optional<std::size_t> PXPrivilegedServer::_readLength()
{
    std::size_t length = 0;
    std::size_t digits = 0;
    for (char byte = 0; _readByte(byte); ++digits) {
        if (byte == '\n')
            return digits > 0 ? std::optional(length) : std::nullopt;
        if (byte < '0' || byte > '9' || digits == kMostDigits)
            return std::nullopt;
        length = length * 10 + static_cast<std::size_t>(byte - '0');
    }
    return std::nullopt;
}

std::optional<std::string> PXPrivilegedServer::_readPayload()
{
    const auto length = _readLength();
    if (!length || *length > PXPrivilegedProtocol::kLongestPayload)
        return std::nullopt;
    // Byte by byte: nothing of the next request is taken, and a few hundred of them cost nothing.
    std::string payload(*length, '\0');
    const bool isWhole = std::all_of(payload.begin(), payload.end(),
                                     [this](char &byte) { return _readByte(byte); });
    return isWhole ? std::optional(std::move(payload)) : std::nullopt;
}
