#include "platform/pulse/PulseLoopbacks.h"

#include "platform/pulse/PulseError.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

constexpr char kModule[] = "module-loopback";
/// With less PulseAudio's loopback breaks up on a busy machine; the rest of the way adds some.
constexpr int kLatencyMs = 30;

bool hasArgument(const PulseModule &module, const QByteArray &argument)
{
    return module.arguments.split(' ').contains(argument);
}

/// The server may not have noticed yet that one was killed. A dead process that its parent has not
/// asked about runs no more, though a signal still finds it.
bool isRunning(std::int64_t processID)
{
    const auto process
        = static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(processID), 0));
    if (process < 0)
        return errno != ESRCH;
    pollfd end = {process, POLLIN, 0};
    const bool hasEnded = ::poll(&end, 1, 0) > 0;
    ::close(process);
    return !hasEnded;
}

} // namespace

PXExpected<std::vector<std::uint32_t>>
PulseLoopbacks::_modules(Loaders loaders, const QByteArray &source, const QByteArray &sink)
{
    const auto modules = _server.modules();
    if (!modules)
        return PXFail(modules.error());
    std::vector<std::uint32_t> result;
    for (const PulseModule &module : *modules) {
        if (module.name == kModule && hasArgument(module, "source=" + source)
            && (sink.isEmpty() || hasArgument(module, "sink=" + sink))
            && (loaders == Loaders::All || hasArgument(module, kPulseLoopbackMark)))
            result.push_back(module.index);
    }
    return result;
}

PXExpected<void> PulseLoopbacks::retain(const PulseSource &source, const PulseSink &sink,
                                        double volume)
{
    const auto existing = _modules(Loaders::All, source.name, sink.name);
    if (!existing)
        return PXFail(existing.error());
    if (existing->empty()) {
        if (auto loaded = _load(source, sink, volume); !loaded)
            return loaded;
    }
    _retained.emplace(source.name, sink.name);
    return {};
}

void PulseLoopbacks::release(const PulseSource &source, const PulseSink &sink, End end)
{
    const std::pair key(source.name, sink.name);
    _retained.erase(_retained.find(key));
    if (_retained.contains(key) || end == Left)
        return;
    // What fails here was logged; with the server the loopback has gone anyway.
    const auto isUsed = isRecorded(source, Ours::DoNotCount);
    if (!isUsed || *isUsed)
        return;
    if (const auto modules = _modules(Loaders::Tolvane, source.name, sink.name))
        (void)_unload(*modules);
}

bool PulseLoopbacks::isPlaying(const PulseSource &source, const PulseSink &sink)
{
    const auto modules = _modules(Loaders::All, source.name, sink.name);
    return modules && !modules->empty();
}

PXExpected<void> PulseLoopbacks::unloadAll(const QByteArray &source)
{
    return _modules(Loaders::Tolvane, source, {}).and_then([this](const auto &modules) {
        return _unload(modules);
    });
}

PXExpected<void> PulseLoopbacks::_load(const PulseSource &source, const PulseSink &sink,
                                       double volume)
{
    // Else it would follow when the default output changes: into the very output that it reads.
    const auto module = _server.loadModule(kModule,
                                           "source=" + source.name + " sink=" + sink.name
                                               + " latency_msec=" + QByteArray::number(kLatencyMs)
                                               + " source_dont_move=true sink_dont_move=true "
                                               + kPulseLoopbackMark);
    if (!module)
        return PXFail(module.error());
    const auto isSet = _server.waitUntil([&]() -> PXExpected<bool> {
        const auto playbacks = _server.playbacks();
        if (!playbacks)
            return PXFail(playbacks.error());
        const auto ours = std::find_if(
            playbacks->begin(), playbacks->end(),
            [&](const PulsePlayback &playback) { return playback.ownerModule == *module; });
        if (ours == playbacks->end())
            return false;
        return _server.setVolumeOf(*ours, volume).map([] { return true; });
    });
    if (isSet && *isSet)
        return {};
    (void)_server.unloadModule(*module);
    if (!isSet)
        return PXFail(isSet.error());
    return PXFail(
        PulseError::refused(u"Could not play \"%1\" on"_s.arg(source.description), PA_ERR_TIMEOUT));
}

PXExpected<void> PulseLoopbacks::_unload(const std::vector<std::uint32_t> &modules)
{
    PXExpected<void> result;
    for (const std::uint32_t module : modules) {
        if (auto unloaded = _server.unloadModule(module); !unloaded)
            result = std::move(unloaded);
    }
    if (!result || modules.empty())
        return result;
    // The server lists it a little longer than it answers.
    return _server
        .waitUntil([&] {
            return _server.modules().map([&](const std::vector<PulseModule> &left) {
                return std::none_of(left.begin(), left.end(), [&](const PulseModule &module) {
                    return std::find(modules.begin(), modules.end(), module.index) != modules.end();
                });
            });
        })
        .map([](bool) {});
}

PXExpected<bool> PulseLoopbacks::isRecorded(const PulseSource &source, Ours ours)
{
    const auto recordings = _server.recordings();
    if (!recordings)
        return PXFail(recordings.error());
    const auto clients = _server.clients();
    if (!clients)
        return PXFail(clients.error());
    // A program may tell its number with the stream or only once, when it connects.
    const auto processOf = [&](const PulseRecording &recording) {
        const auto client
            = std::find_if(clients->begin(), clients->end(), [&](const PulseClient &entry) {
                  return entry.index == recording.client;
              });
        return recording.processID == 0 && client != clients->end() ? client->processID
                                                                    : recording.processID;
    };
    return std::any_of(
        recordings->begin(), recordings->end(), [&](const PulseRecording &recording) {
            if (recording.source != source.index || !recording.isTolvanes)
                return false;
            const std::int64_t process = processOf(recording);
            return process == getpid() ? ours == Ours::Count : process == 0 || isRunning(process);
        });
}
