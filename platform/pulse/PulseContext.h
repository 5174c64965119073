#pragma once

#include "platform/pulse/PulseMainLoop.h"

#include "foundation/PXError.h"

#include <QString>

/// A connection to the sound server. It goes on while its loop handles events, and ends for good
/// when the server goes.
class PulseContext final {
public:
    /// Begins to connect: to `serverName`, or to what libpulse finds in the environment
    /// (PULSE_SERVER, XDG_RUNTIME_DIR, …) where that is empty. Starts no server.
    PulseContext(const PulseMainLoop &loop, const QString &serverName);
    ~PulseContext();
    PulseContext(const PulseContext &) = delete;
    PulseContext &operator=(const PulseContext &) = delete;

    [[nodiscard]] pa_context *get() const { return _context.get(); }
    [[nodiscard]] bool isReady() const;
    /// It could not connect, or the server has gone.
    [[nodiscard]] bool isLost() const;
    /// Why; to be asked when it is lost.
    [[nodiscard]] PXError error() const;

    /// The server tells of these from now on; of nothing when `mask` is 0.
    void subscribe(int mask, pa_context_subscribe_cb_t callback, void *userData);

private:
    PulseContextHandle _context;
    bool _wasReady = false;
};
