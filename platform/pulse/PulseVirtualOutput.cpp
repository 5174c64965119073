#include "platform/pulse/PulseVirtualOutput.h"

#include "platform/pulse/PulseError.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// Both servers read this quoting. norewinds: without it PulseAudio renders up to two seconds
/// ahead, and what is recorded begins as much too late.
QByteArray argumentsFor(int sampleRate)
{
    return QByteArray("sink_name=") + kPulseVirtualSinkName
        + " sink_properties=\"device.description='Tolvane Audio' tolvane.virtual=1"
          " tolvane.uid='"
        + kPXVirtualAudioDeviceUID + "'\" channels=2 rate=" + QByteArray::number(sampleRate)
        + " norewinds=1";
}

} // namespace

PXExpected<std::optional<PulseSink>> PulseVirtualOutput::_sink()
{
    const auto sinks = _server.sinks();
    if (!sinks)
        return PXFail(sinks.error());
    const auto found = std::find_if(sinks->begin(), sinks->end(),
                                    [](const PulseSink &sink) { return sink.isVirtual; });
    return found == sinks->end() ? std::nullopt : std::optional(*found);
}

PXExpected<std::optional<PulseSink>> PulseVirtualOutput::_defaultSink()
{
    std::optional<PulseSink> result;
    const auto isSettled = _server.waitUntil([&]() -> PXExpected<bool> {
        const auto sinks = _server.sinks();
        if (!sinks)
            return PXFail(sinks.error());
        const auto defaults = _server.defaults();
        if (!defaults)
            return PXFail(defaults.error());
        const auto found = std::find_if(sinks->begin(), sinks->end(), [&](const PulseSink &sink) {
            return sink.name == defaults->sink;
        });
        if (found != sinks->end())
            result = *found;
        return result || sinks->empty();
    });
    if (!isSettled)
        return PXFail(isSettled.error());
    return result;
}

PXExpected<std::optional<PulseSource>> PulseVirtualOutput::source()
{
    const auto sources = _server.sources();
    if (!sources)
        return PXFail(sources.error());
    const auto found = std::find_if(sources->begin(), sources->end(),
                                    [](const PulseSource &source) { return source.isVirtual; });
    return found == sources->end() ? std::nullopt : std::optional(*found);
}

PXExpected<void> PulseVirtualOutput::load()
{
    const auto existing = _sink();
    if (!existing)
        return PXFail(existing.error());
    // What was played to it while the user had it turned down or muted would not be heard again:
    // the servers remember that for ever, and its monitor gives what comes after its volume.
    if (*existing)
        return _server.setVolumeOf(**existing, 1.0);
    const auto defaultSink = _defaultSink();
    if (!defaultSink)
        return PXFail(defaultSink.error());
    // Both servers remember the name of the default output, and would choose ours again when one
    // of that name appears: it was the default when a program crashed. Named again, the present
    // one is what they remember.
    if (*defaultSink) {
        if (auto named = _server.setDefaultSink((*defaultSink)->name); !named)
            return named;
    }
    constexpr int kUsualRate = 48000;
    const auto module = _server.loadModule(
        "module-null-sink", argumentsFor(*defaultSink ? (*defaultSink)->sampleRate : kUsualRate));
    if (!module)
        return PXFail(module.error());
    // PipeWire shows it some time later. The volume that a user gave it in an earlier session,
    // with the keys for the volume for example, would otherwise come back.
    const auto isThere = _server.waitUntil([this]() -> PXExpected<bool> {
        const auto sink = _sink();
        if (!sink)
            return PXFail(sink.error());
        const auto monitor = source();
        if (!monitor)
            return PXFail(monitor.error());
        if (!*sink || !*monitor)
            return false;
        return _server.setVolumeOf(**sink, 1.0).map([] { return true; });
    });
    if (!isThere)
        return PXFail(isThere.error());
    return *isThere
        ? PXExpected<void>()
        : PXFail(PulseError::refused(u"The virtual sound output did not appear"_s, PA_ERR_TIMEOUT));
}

PXExpected<void> PulseVirtualOutput::unload()
{
    const auto sink = _sink();
    if (!sink)
        return PXFail(sink.error());
    if (!*sink)
        return {};
    if (auto unloaded = _server.unloadModule((*sink)->ownerModule); !unloaded)
        return unloaded;
    const auto isGone
        = _server.waitUntil([this] { return _sink().map([](const auto &left) { return !left; }); });
    if (!isGone)
        return PXFail(isGone.error());
    if (!*isGone)
        return PXFail(
            PulseError::refused(u"The virtual sound output did not go"_s, PA_ERR_TIMEOUT));
    // So that there is a default output again when this returns, where it was ours.
    return _defaultSink().map([](const auto &) {});
}
