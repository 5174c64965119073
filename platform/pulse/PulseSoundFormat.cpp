#include "platform/pulse/PulseSoundFormat.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace {

/// In the order of the mask's bits.
constexpr pa_channel_position_t kPlaces[] = {
    PA_CHANNEL_POSITION_FRONT_LEFT,
    PA_CHANNEL_POSITION_FRONT_RIGHT,
    PA_CHANNEL_POSITION_FRONT_CENTER,
    PA_CHANNEL_POSITION_LFE,
    PA_CHANNEL_POSITION_REAR_LEFT,
    PA_CHANNEL_POSITION_REAR_RIGHT,
    PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER,
    PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER,
    PA_CHANNEL_POSITION_REAR_CENTER,
    PA_CHANNEL_POSITION_SIDE_LEFT,
    PA_CHANNEL_POSITION_SIDE_RIGHT,
    PA_CHANNEL_POSITION_TOP_CENTER,
    PA_CHANNEL_POSITION_TOP_FRONT_LEFT,
    PA_CHANNEL_POSITION_TOP_FRONT_CENTER,
    PA_CHANNEL_POSITION_TOP_FRONT_RIGHT,
    PA_CHANNEL_POSITION_TOP_REAR_LEFT,
    PA_CHANNEL_POSITION_TOP_REAR_CENTER,
    PA_CHANNEL_POSITION_TOP_REAR_RIGHT,
};
constexpr std::uint64_t kFrontCenter = 4;

/// The places of `map` in the mask's order; fewer than it has channels when some have no bit or
/// share a place.
std::pair<pa_channel_map, std::uint64_t> sorted(const pa_channel_map &map)
{
    pa_channel_map result = {};
    std::uint64_t mask = 0;
    for (std::size_t bit = 0; bit < std::size(kPlaces); ++bit) {
        if (std::count(map.map, map.map + map.channels, kPlaces[bit]) != 1)
            continue;
        result.map[result.channels++] = kPlaces[bit];
        mask |= std::uint64_t{1} << bit;
    }
    return {result, mask};
}

} // namespace

PulseSoundFormat PulseSoundFormat::of(const PulseSource &source)
{
    PulseSoundFormat result;
    result.format.sampleRate = static_cast<int>(source.sampleSpec.rate);
    result.format.channels = source.sampleSpec.channels;
    result.channelMap = source.channelMap;
    const auto [map, mask] = sorted(source.channelMap);
    if (map.channels == source.channelMap.channels) {
        result.channelMap = map;
        result.format.channelMask = mask;
    } else if (source.channelMap.channels == 1
               && source.channelMap.map[0] == PA_CHANNEL_POSITION_MONO) {
        result.format.channelMask = kFrontCenter;
    }
    return result;
}

PulseSoundFormat PulseSoundFormat::of(const PXSoundFormat &format)
{
    PulseSoundFormat result{format, {}};
    result.format.sampleType = PXSampleType::Float32;
    if (const pa_sample_spec spec = result.sampleSpec();
        format.channels > static_cast<int>(PA_CHANNELS_MAX) || !pa_sample_spec_valid(&spec))
        throw std::logic_error("PulseSoundFormat: no sound has such a format");
    pa_channel_map &map = result.channelMap;
    for (std::size_t bit = 0; bit < std::size(kPlaces); ++bit)
        if ((format.channelMask >> bit & 1) != 0)
            map.map[map.channels++] = kPlaces[bit];
    if (format.channels == 1)
        pa_channel_map_init_mono(&map);
    else if (map.channels != format.channels)
        pa_channel_map_init_extend(&map, static_cast<unsigned>(format.channels),
                                   PA_CHANNEL_MAP_WAVEEX);
    return result;
}

pa_sample_spec PulseSoundFormat::sampleSpec() const
{
    return {PA_SAMPLE_FLOAT32NE, static_cast<std::uint32_t>(format.sampleRate),
            static_cast<std::uint8_t>(format.channels)};
}
