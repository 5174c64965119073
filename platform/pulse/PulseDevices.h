#pragma once

#include "platform/PXSoundPlatform.h"

#include <pulse/pulseaudio.h>

#include <QByteArray>
#include <QString>

#include <cstdint>

/// Of our virtual output.
inline constexpr char kPulseVirtualSinkName[] = "tolvane_audio";

// What the server says about its things, as far as it matters here. Their numbers are never used
// again while the server runs.

/// An output.
struct PulseSink {
    explicit PulseSink(const pa_sink_info &info);
    [[nodiscard]] QString uid() const;
    /// Never 0, and in the lower half: sinks and sources count apart, or even together.
    [[nodiscard]] PXAudioDeviceID deviceID() const { return index + 1; }

    std::uint32_t index;
    std::uint32_t ownerModule;
    QByteArray name;
    QString description;
    int sampleRate;
    int channels;
    bool isVirtual; ///< Ours, or one that the sound server's configuration loads in its place.
};

/// An input.
struct PulseSource {
    explicit PulseSource(const pa_source_info &info);
    [[nodiscard]] QString uid() const;
    /// In the upper half.
    [[nodiscard]] PXAudioDeviceID deviceID() const { return 0x80000000U | (index + 1); }

    std::uint32_t index;
    std::uint32_t monitoredSink; ///< PA_INVALID_INDEX for a microphone.
    QByteArray name;
    QString description;
    pa_sample_spec sampleSpec;
    pa_channel_map channelMap;
    bool isVirtual; ///< The monitor of a virtual sink.
};

/// The argument that each loopback of ours is loaded with; the user may have loaded others.
inline constexpr char kPulseLoopbackMark[] = "sink_input_properties=tolvane.loopback=1";

/// One of its parts that can be loaded and unloaded.
struct PulseModule {
    explicit PulseModule(const pa_module_info &info);

    std::uint32_t index;
    QByteArray name;
    QByteArray arguments;
};

/// What each stream of a recording of ours has.
inline constexpr char kPulseRecordingProperty[] = "tolvane.recording";

/// Somebody records from a source.
struct PulseRecording {
    explicit PulseRecording(const pa_source_output_info &info);

    std::uint32_t source;
    std::uint32_t client; ///< PA_INVALID_INDEX where the server itself records.
    std::int64_t processID; ///< 0 where it is not known.
    bool isTolvanes; ///< Of this program, or another of its kind.
};

/// Somebody plays to a sink.
struct PulsePlayback {
    explicit PulsePlayback(const pa_sink_input_info &info);

    std::uint32_t index;
    std::uint32_t ownerModule;
    int channels;
};

/// A program that is connected.
struct PulseClient {
    explicit PulseClient(const pa_client_info &info);

    std::uint32_t index;
    std::int64_t processID; ///< 0 where it is not known.
};
