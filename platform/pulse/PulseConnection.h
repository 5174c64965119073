#pragma once

#include "platform/pulse/PulseContext.h"

#include <memory>

/// A connection for questions whose answers are waited for. One thread; nothing happens between
/// its calls.
class PulseConnection final {
public:
    /// No call waits longer for the server: nanoseconds. A server that the system starts when
    /// somebody connects needs a moment.
    static constexpr std::uint64_t kPatience = 3'000'000'000;

    enum class Answer { Given, Refused, Lost };

    static PXExpected<std::unique_ptr<PulseConnection>> open(const QString &serverName);

    [[nodiscard]] pa_context *context() const { return _context.get(); }
    /// Reads what the server sent meanwhile: whether it is still there.
    [[nodiscard]] bool isAlive();

    /// Waits for the answer, or takes the question back. Null, which libpulse gives for what it
    /// cannot even ask, is `Refused` or `Lost`.
    [[nodiscard]] Answer waitFor(PulseOperation operation);
    /// What to say when that was `Lost`; logged.
    [[nodiscard]] PXError lostError() const;

    /// Until this is called with 0 again, `waitForEvent` hears of these.
    void listenTo(int mask);
    /// Returns after the next event of the server, or at `deadline`.
    void waitForEvent(std::uint64_t deadline);

private:
    explicit PulseConnection(const QString &serverName) : _context(_loop, serverName) { }

    PulseMainLoop _loop;
    PulseContext _context;
    bool _hasEvent = false;
};
