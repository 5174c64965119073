#include "platform/pulse/PulseDevices.h"

#include <cstring>

namespace {

QString textOf(const char *text)
{
    return text ? QString::fromUtf8(text) : QString();
}

bool isMarkedVirtual(pa_proplist *properties, const char *sinkName)
{
    const char *mark = pa_proplist_gets(properties, "tolvane.virtual");
    return (mark && std::strcmp(mark, "1") == 0)
        || (sinkName && std::strcmp(sinkName, kPulseVirtualSinkName) == 0);
}

std::int64_t processIDOf(pa_proplist *properties)
{
    for (const char *key : {PA_PROP_APPLICATION_PROCESS_ID, "pipewire.sec.pid"})
        if (const qint64 id = QByteArray(pa_proplist_gets(properties, key)).toLongLong(); id > 0)
            return id;
    return 0;
}

} // namespace

PulseSink::PulseSink(const pa_sink_info &info)
    : index(info.index),
      ownerModule(info.owner_module),
      name(info.name),
      description(textOf(info.description)),
      sampleRate(static_cast<int>(info.sample_spec.rate)),
      channels(info.volume.channels),
      isVirtual(isMarkedVirtual(info.proplist, info.name))
{
}

QString PulseSink::uid() const
{
    return isVirtual ? QString::fromLatin1(kPXVirtualAudioDeviceUID) : QString::fromUtf8(name);
}

PulseSource::PulseSource(const pa_source_info &info)
    : index(info.index),
      monitoredSink(info.monitor_of_sink),
      name(info.name),
      description(textOf(info.description)),
      sampleSpec(info.sample_spec),
      channelMap(info.channel_map),
      isVirtual(info.monitor_of_sink != PA_INVALID_INDEX
                && isMarkedVirtual(info.proplist, info.monitor_of_sink_name))
{
}

QString PulseSource::uid() const
{
    return isVirtual ? QString::fromLatin1(kPXVirtualAudioDeviceUID) : QString::fromUtf8(name);
}

PulseModule::PulseModule(const pa_module_info &info)
    : index(info.index), name(info.name), arguments(info.argument)
{
}

PulseRecording::PulseRecording(const pa_source_output_info &info)
    : source(info.source),
      client(info.client),
      processID(processIDOf(info.proplist)),
      isTolvanes(pa_proplist_contains(info.proplist, kPulseRecordingProperty) > 0)
{
}

PulsePlayback::PulsePlayback(const pa_sink_input_info &info)
    : index(info.index), ownerModule(info.owner_module), channels(info.volume.channels)
{
}

PulseClient::PulseClient(const pa_client_info &info)
    : index(info.index), processID(processIDOf(info.proplist))
{
}
