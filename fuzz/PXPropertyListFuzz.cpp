#include "foundation/BRLog.h"
#include "foundation/PXColor.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXPropertyList.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;
using PXPropertyList::Format;

namespace {

/// Equal to the last bit: a number that is none is not equal to itself.
bool isSame(const QVariant &one, const QVariant &other)
{
    if (one.typeId() != other.typeId())
        return false;
    switch (one.typeId()) {
    case QMetaType::Double:
        return std::bit_cast<std::uint64_t>(one.toDouble())
            == std::bit_cast<std::uint64_t>(other.toDouble());
    case QMetaType::QVariantList: {
        const QVariantList list = one.toList();
        const QVariantList others = other.toList();
        return std::equal(list.begin(), list.end(), others.begin(), others.end(), isSame);
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = one.toMap();
        const QVariantMap others = other.toMap();
        return map.keys() == others.keys()
            && std::equal(map.begin(), map.end(), others.begin(), isSame);
    }
    default:
        return one == other;
    }
}

/// What can be stored has to come back as it is. The bytes may differ: the library stores equal
/// values once when it notices, which depends on where its memory lies.
void storeAndReadAgain(const QVariant &value, Format format)
{
    const auto bytes = PXPropertyList::toData(value, format, u"fuzz"_s);
    if (!bytes)
        return;
    // What was read may be more than can be stored (a date's microseconds).
    const auto stored = PXPropertyList::fromData(*bytes, u"fuzz"_s);
    if (!stored || stored->typeId() != value.typeId())
        std::abort();
    const auto again = PXPropertyList::toData(*stored, format, u"fuzz"_s);
    if (!again)
        std::abort();
    const auto readAgain = PXPropertyList::fromData(*again, u"fuzz"_s);
    if (!readAgain || !isSame(*readAgain, *stored))
        std::abort();
}

/// Every setting can be asked for as everything.
void readAsSettings(const QVariantMap &values)
{
    static PXDefaults defaults(u"/nonexistent/tolvane/fuzz.plist"_s);
    defaults.registerDefaults(values);
    for (auto item = values.begin(); item != values.end(); ++item) {
        (void)defaults.intValue(item.key());
        (void)defaults.floatValue(item.key());
        (void)defaults.boolValue(item.key());
        (void)PXRectFromString(defaults.stringValue(item.key()));
        (void)defaults.colorValue(item.key());
    }
}

void readAsColor(const QByteArray &bytes)
{
    const auto color = PXColor::fromArchivedData(bytes);
    if (color && PXColor::fromArchivedData(color->archivedData()) != color)
        std::abort();
}

} // namespace

/// Bytes that somebody brought along as their settings, or as one colour in them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    BRSetLogLevel(0);
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    readAsColor(bytes);
    const auto value = PXPropertyList::fromData(bytes, u"fuzz"_s);
    if (!value)
        return 0;
    storeAndReadAgain(*value, Format::Binary);
    storeAndReadAgain(*value, Format::XML);
    readAsSettings(value->toMap());
    return 0;
}
