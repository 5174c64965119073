#pragma once

#include "platform/pulse/PulseServer.h"

#include <set>
#include <utility>
#include <vector>

/// What the server plays on from an input to an output, all by itself: a module that lives until
/// somebody unloads it, whoever loaded it. So one is shared by all programs that want the same,
/// and by all that want it here, and whoever needs it last ends it. One that the user loaded
/// himself serves as well (a second would double what he hears), and is never ended.
class PulseLoopbacks final {
public:
    explicit PulseLoopbacks(PulseServer &server) : _server(server) { }

    /// Loads one, at that volume, unless there is one. Answers once it plays.
    [[nodiscard]] PXExpected<void> retain(const PulseSource &source, const PulseSink &sink,
                                          double volume);
    enum End { Ended, Left };
    /// Undoes one `retain`. `Ended` unloads it with the last, unless another program records the
    /// source.
    void release(const PulseSource &source, const PulseSink &sink, End end);
    /// Whether the server still has it.
    [[nodiscard]] bool isPlaying(const PulseSource &source, const PulseSink &sink);
    /// Unloads all of ours that read the source of that name.
    [[nodiscard]] PXExpected<void> unloadAll(const QByteArray &source);

    enum class Ours { Count, DoNotCount };
    /// Whether a running Tolvane records from the source. Other programs lose nothing when it falls
    /// silent: they get what its output plays, and nothing plays to it then.
    [[nodiscard]] PXExpected<bool> isRecorded(const PulseSource &source, Ours ours);

private:
    enum class Loaders { All, Tolvane };
    /// The modules that read `source`; with `sink`, those that play it to that one.
    PXExpected<std::vector<std::uint32_t>> _modules(Loaders loaders, const QByteArray &source,
                                                    const QByteArray &sink);
    PXExpected<void> _load(const PulseSource &source, const PulseSink &sink, double volume);
    PXExpected<void> _unload(const std::vector<std::uint32_t> &modules);

    PulseServer &_server;
    std::multiset<std::pair<QByteArray, QByteArray>> _retained; ///< Names of source and sink.
};
