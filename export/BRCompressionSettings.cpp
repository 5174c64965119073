#include "export/BRCompressionSettings.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kSpatial = PXFourCharCode("sptl");
constexpr std::uint32_t kTemporal = PXFourCharCode("tprl");
constexpr std::uint32_t kDataRate = PXFourCharCode("drat");
constexpr std::uint32_t kOwn = PXFourCharCode("tvlv");

} // namespace

PXExpected<BRCompressionSettings>
BRCompressionSettings::fromAtomContainer(const QByteArray &container)
{
    auto atoms = BRSettingsAtoms::fromContainer(container);
    if (!atoms)
        return PXFail(atoms.error());
    BRCompressionSettings settings;
    SCSpatialSettings &spatial = settings.spatial;
    SCTemporalSettings &temporal = settings.temporal;
    auto fullChroma = static_cast<std::uint8_t>(settings.fullChroma);
    auto isFast = static_cast<std::uint8_t>(settings.speed == PXEncoderSpeed::Fast);
    auto read = atoms->read(kSpatial, spatial.codecType, spatial.codec, spatial.depth,
                            spatial.spatialQuality);
    if (read) {
        read = atoms->read(kTemporal, temporal.temporalQuality, temporal.frameRate,
                           temporal.keyFrameRate);
    }
    if (read)
        read = atoms->read(kDataRate, settings.dataRate);
    if (read)
        read = atoms->read(kOwn, fullChroma, isFast);
    if (!read)
        return PXFail(read.error());
    settings.fullChroma = fullChroma != 0;
    settings.speed = isFast != 0 ? PXEncoderSpeed::Fast : PXEncoderSpeed::Medium;
    settings.atoms = *std::move(atoms);
    return settings;
}

QByteArray BRCompressionSettings::atomContainer() const
{
    BRSettingsAtoms written = atoms;
    written.put(kSpatial, spatial.codecType, spatial.codec, spatial.depth, spatial.spatialQuality);
    written.put(kTemporal, temporal.temporalQuality, temporal.frameRate, temporal.keyFrameRate);
    written.put(kDataRate, dataRate);
    written.put(kOwn, static_cast<std::uint8_t>(fullChroma),
                static_cast<std::uint8_t>(speed == PXEncoderSpeed::Fast));
    return written.container();
}

PXCompressionSessionOptions BRCompressionSettings::sessionOptions() const
{
    PXCompressionSessionOptions options;
    options.quality
        = static_cast<int>(std::min<std::uint32_t>(spatial.spatialQuality, kPXBestQuality));
    options.keyFrameInterval = std::max(0, temporal.keyFrameRate);
    options.bitRate = std::max<std::int64_t>(0, std::int64_t{dataRate} * 8);
    options.fullChroma = fullChroma;
    options.speed = speed;
    return options;
}
