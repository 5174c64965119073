#include "export/BRCompressionSettings.h"

#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kSpatial = PXFourCharCode("sptl");
constexpr std::uint32_t kTemporal = PXFourCharCode("tprl");
constexpr std::uint32_t kDataRate = PXFourCharCode("drat");
constexpr std::uint32_t kOwn = PXFourCharCode("tvlv");
constexpr qsizetype kAtomHeader = 8;

PXError noAtoms()
{
    return PXPOSIXError(EINVAL, u"Could not read the stored compression settings"_s);
}

/// Reads fields one after the other; remembers when there were too few bytes.
class FieldReader {
public:
    explicit FieldReader(const QByteArray &bytes) : _bytes(bytes) { }

    template <typename T> void read(T &field)
    {
        if (_bytes.size() - _position < qsizetype{sizeof(T)}) {
            _wasShort = true;
            return;
        }
        field = qFromBigEndian<T>(_bytes.constData() + _position);
        _position += sizeof(T);
    }
    [[nodiscard]] bool wasShort() const { return _wasShort; }

private:
    const QByteArray &_bytes;
    qsizetype _position = 0;
    bool _wasShort = false;
};

template <typename... Fields> QByteArray packed(Fields... fields)
{
    QByteArray bytes;
    const auto append = [&](auto field) {
        char buffer[sizeof field];
        qToBigEndian(field, buffer);
        bytes.append(buffer, sizeof buffer);
    };
    (append(fields), ...);
    return bytes;
}

bool readAtom(BRCompressionSettings &settings, std::uint32_t type, const QByteArray &payload)
{
    FieldReader reader(payload);
    if (type == kSpatial) {
        reader.read(settings.spatial.codecType);
        reader.read(settings.spatial.codec);
        reader.read(settings.spatial.depth);
        reader.read(settings.spatial.spatialQuality);
    } else if (type == kTemporal) {
        reader.read(settings.temporal.temporalQuality);
        reader.read(settings.temporal.frameRate);
        reader.read(settings.temporal.keyFrameRate);
    } else if (type == kDataRate) {
        reader.read(settings.dataRate);
    } else if (type == kOwn) {
        std::uint8_t fullChroma = 0;
        std::uint8_t isFast = 0;
        reader.read(fullChroma);
        reader.read(isFast);
        settings.fullChroma = fullChroma != 0;
        settings.speed = isFast != 0 ? PXEncoderSpeed::Fast : PXEncoderSpeed::Medium;
    }
    return !reader.wasShort();
}

} // namespace

PXExpected<BRCompressionSettings>
BRCompressionSettings::fromAtomContainer(const QByteArray &container)
{
    BRCompressionSettings settings;
    for (qsizetype position = 0; position < container.size();) {
        const qsizetype left = container.size() - position;
        if (left < kAtomHeader)
            return PXFail(noAtoms());
        const auto size = qFromBigEndian<std::uint32_t>(container.constData() + position);
        const auto type = qFromBigEndian<std::uint32_t>(container.constData() + position + 4);
        if (size < kAtomHeader || size > left)
            return PXFail(noAtoms());
        const QByteArray payload = container.mid(position + kAtomHeader, size - kAtomHeader);
        if (!readAtom(settings, type, payload))
            return PXFail(noAtoms());
        settings.atoms.emplace_back(type, payload);
        position += size;
    }
    return settings;
}

QByteArray BRCompressionSettings::atomContainer() const
{
    auto written = atoms;
    const auto put = [&](std::uint32_t type, const QByteArray &fields) {
        // The last one, which is the one that is read.
        auto found = std::find_if(written.rbegin(), written.rend(),
                                  [&](const auto &atom) { return atom.first == type; });
        if (found == written.rend()) {
            written.emplace_back(type, QByteArray());
            found = written.rbegin();
        }
        found->second.replace(0, fields.size(), fields);
    };
    put(kSpatial, packed(spatial.codecType, spatial.codec, spatial.depth, spatial.spatialQuality));
    put(kTemporal, packed(temporal.temporalQuality, temporal.frameRate, temporal.keyFrameRate));
    put(kDataRate, packed(dataRate));
    put(kOwn,
        packed(static_cast<std::uint8_t>(fullChroma),
               static_cast<std::uint8_t>(speed == PXEncoderSpeed::Fast)));

    QByteArray container;
    for (const auto &[type, payload] : written)
        container
            += packed(static_cast<std::uint32_t>(kAtomHeader + payload.size()), type) + payload;
    return container;
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
