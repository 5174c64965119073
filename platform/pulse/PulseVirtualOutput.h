#pragma once

#include "platform/pulse/PulseServer.h"

/// Our virtual output: a sink that plays to nowhere and whose monitor gives what was played.
class PulseVirtualOutput final {
public:
    explicit PulseVirtualOutput(PulseServer &server) : _server(server) { }

    /// Harmless when it is there. The default output stays what it was.
    [[nodiscard]] PXExpected<void> load();
    /// Harmless when there is none. What is played on from it must have been unloaded.
    [[nodiscard]] PXExpected<void> unload();
    /// Its monitor, where it is loaded.
    [[nodiscard]] PXExpected<std::optional<PulseSource>> source();

private:
    [[nodiscard]] PXExpected<std::optional<PulseSink>> _sink();
    /// What plays by default. PipeWire names for a moment what has gone, or nothing; where it
    /// stays at that, there is none.
    [[nodiscard]] PXExpected<std::optional<PulseSink>> _defaultSink();

    PulseServer &_server;
};
