#pragma once

#include "audio/privileged/PXPrivilegedCommands.h"

#include <string>

/// Reads requests and answers them, one after the other, until there are no more: the other end
/// has closed, what came is no request, or nothing came for a while. One thread, no event loop.
class PXPrivilegedServer final {
public:
    /// Borrows the commands and both descriptors. It leaves when no whole request came for
    /// `idleMs`.
    PXPrivilegedServer(const PXPrivilegedCommands &commands, int input, int output, int idleMs);

    /// Says the greeting first.
    void run();

private:
    [[nodiscard]] bool _answer(const PXPrivilegedAnswer &answer) const;
    [[nodiscard]] bool _write(const std::string &line) const;
    bool _readByte(char &byte);
    [[nodiscard]] std::optional<std::size_t> _readLength();
    [[nodiscard]] std::optional<std::string> _readPayload();

    const PXPrivilegedCommands &_commands;
    int _input;
    int _output;
    int _idleMs;
    long long _deadline = 0; ///< Of the next request, milliseconds of CLOCK_MONOTONIC.
};
