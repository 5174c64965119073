#include "foundation/PXColor.h"

#include <QByteArrayView>
#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace {

constexpr quint8 kShort = 0x81;
constexpr quint8 kLong = 0x82;
constexpr quint8 kReal = 0x83;
constexpr quint8 kNew = 0x84;
constexpr quint8 kNoMore = 0x85;
constexpr quint8 kEnd = 0x86;
/// 0x80…0x91 are reserved for tags; every other byte is a number itself.
constexpr int kLeastByte = -110;
constexpr int kGreatestByte = 127;
constexpr int kSystemVersion = 1000;

std::size_t numberOfComponents(PXColorSpace space)
{
    return space == PXColorSpace::CalibratedRGB || space == PXColorSpace::DeviceRGB ? 4 : 2;
}

/// Takes the archive apart from its front; a step that does not find what it expects spoils it.
class Reader final {
public:
    explicit Reader(QByteArrayView bytes) : _rest(bytes) { }

    void expect(QByteArrayView bytes)
    {
        if (_rest.startsWith(bytes))
            _rest = _rest.sliced(bytes.size());
        else
            _spoil();
    }
    void expectByte(quint8 byte)
    {
        if (_take<quint8>() != byte)
            _spoil();
    }
    void expectNumber(double number)
    {
        if (takeNumber() != number)
            _spoil();
    }
    /// A string that was not met before: the tag, the length, the characters.
    void expectNewString(QByteArrayView text)
    {
        expectByte(kNew);
        expectNumber(static_cast<double>(text.size()));
        expect(text);
    }
    double takeNumber()
    {
        const auto first = _take<quint8>();
        if (first == kShort)
            return _take<qint16>();
        if (first == kLong)
            return _take<qint32>();
        if (first == kReal)
            return static_cast<double>(_take<float>());
        const auto number = static_cast<qint8>(first);
        if (number < kLeastByte)
            _spoil();
        return number;
    }
    [[nodiscard]] bool isDone() const { return _isGood && _rest.isEmpty(); }

private:
    template <typename T> T _take()
    {
        if (_rest.size() < static_cast<qsizetype>(sizeof(T))) {
            _spoil();
            return {};
        }
        const T value = qFromLittleEndian<T>(_rest.data());
        _rest = _rest.sliced(sizeof(T));
        return value;
    }
    void _spoil()
    {
        _isGood = false;
        _rest = {};
    }

    QByteArrayView _rest;
    bool _isGood = true;
};

void appendNumber(QByteArray &bytes, float number)
{
    if (number == std::trunc(number) && number >= kLeastByte && number <= kGreatestByte) {
        bytes.append(static_cast<char>(static_cast<qint8>(number)));
        return;
    }
    char single[sizeof number];
    qToLittleEndian(number, single);
    bytes.append(static_cast<char>(kReal));
    bytes.append(single, sizeof single);
}

} // namespace

QByteArray PXColor::archivedData() const
{
    const std::size_t count = numberOfComponents(space);
    QByteArray bytes = QByteArrayLiteral("\x04\x0Bstreamtyped\x81\xE8\x03\x84\x01@\x84\x84\x84\x07"
                                         "NSColor\0\x84\x84\x08NSObject\0\x85\x84\x01"
                                         "c");
    bytes.append(static_cast<char>(space));
    bytes.append(static_cast<char>(kNew));
    bytes.append(static_cast<char>(count));
    bytes.append(static_cast<qsizetype>(count), 'f');
    for (std::size_t i = 0; i < count; ++i)
        appendNumber(bytes, components.at(i));
    bytes.append(static_cast<char>(kEnd));
    return bytes;
}

std::optional<PXColor> PXColor::fromArchivedData(const QByteArray &data)
{
    Reader reader(data);
    reader.expectByte(4); // The archive's own version.
    reader.expectNumber(11);
    reader.expect("streamtyped");
    reader.expectNumber(kSystemVersion);
    reader.expectNewString("@");
    reader.expectByte(kNew); // An object …
    reader.expectByte(kNew); // … of a class …
    reader.expectNewString("NSColor");
    reader.expectNumber(0);
    reader.expectByte(kNew); // … whose superclass is …
    reader.expectNewString("NSObject");
    reader.expectNumber(0);
    reader.expectByte(kNoMore);
    reader.expectNewString("c");
    const double kind = reader.takeNumber();
    if (kind != std::trunc(kind) || kind < 1 || kind > 4)
        return std::nullopt;
    PXColor color = {static_cast<PXColorSpace>(static_cast<int>(kind)), {}};
    const std::size_t count = numberOfComponents(color.space);
    reader.expectNewString(QByteArrayView("ffff").first(static_cast<qsizetype>(count)));
    for (std::size_t i = 0; i < count; ++i) {
        const double component = reader.takeNumber();
        if (!std::isfinite(component))
            return std::nullopt;
        color.components.at(i) = static_cast<float>(std::clamp(component, 0.0, 1.0));
    }
    reader.expectByte(kEnd);
    return reader.isDone() ? std::optional(color) : std::nullopt;
}
