#pragma once

#include "platform/PXSound.h"
#include "platform/pulse/PulseDevices.h"

/// The same format in both languages.
struct PulseSoundFormat {
    /// What a source has, as 32-bit floats, its channels in the order of `PXSoundFormat`'s mask;
    /// in the source's own order where there is no mask for them.
    static PulseSoundFormat of(const PulseSource &source);

    /// The same, asked for by somebody: always 32-bit floats. Throws std::logic_error for what no
    /// sound can have (no channels, a rate of 0).
    static PulseSoundFormat of(const PXSoundFormat &format);

    [[nodiscard]] pa_sample_spec sampleSpec() const;

    PXSoundFormat format;
    pa_channel_map channelMap;
};
