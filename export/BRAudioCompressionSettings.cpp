#include "export/BRAudioCompressionSettings.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kAudio = PXFourCharCode("audi");
constexpr std::uint32_t kHighestRate = 384000;
constexpr std::uint32_t kMostChannels = 8;
constexpr std::uint32_t kHighestBitRate = 10'000'000;
constexpr std::uint32_t kBestQuality = 1024;

int orNone(std::uint32_t value, std::uint32_t most)
{
    return value <= most ? static_cast<int>(value) : 0;
}

} // namespace

PXExpected<BRAudioCompressionSettings>
BRAudioCompressionSettings::fromAtomContainer(const QByteArray &container)
{
    auto atoms = BRSettingsAtoms::fromContainer(container);
    if (!atoms)
        return PXFail(atoms.error());
    BRAudioCompressionSettings settings;
    const auto read = atoms->read(kAudio, settings.codec, settings.sampleRate, settings.channels,
                                  settings.bitRate, settings.quality);
    if (!read)
        return PXFail(read.error());
    settings.atoms = *std::move(atoms);
    return settings;
}

QByteArray BRAudioCompressionSettings::atomContainer() const
{
    BRSettingsAtoms written = atoms;
    written.put(kAudio, codec, sampleRate, channels, bitRate, quality);
    return written.container();
}

PXSoundEncoding BRAudioCompressionSettings::encoding() const
{
    return {.codec = codec,
            .sampleRate = orNone(sampleRate, kHighestRate),
            .channels = orNone(channels, kMostChannels),
            .bitRate = orNone(bitRate, kHighestBitRate),
            .quality = static_cast<int>(std::min(quality, kBestQuality))};
}
