#include "foundation/BRLog.h"
#include "foundation/PXColor.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXPropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;
using PXPropertyList::Format;

namespace {

/// What was read and can be stored has to come back as it is.
void storeAndReadAgain(const QVariant &value, Format format)
{
    const auto bytes = PXPropertyList::toData(value, format, u"fuzz"_s);
    if (!bytes)
        return;
    const auto again = PXPropertyList::fromData(*bytes, u"fuzz"_s);
    if (!again || again->typeId() != value.typeId())
        std::abort();
    // Numbers that are none are not equal to themselves, so the bytes are compared.
    if (PXPropertyList::toData(*again, format, u"fuzz"_s).value_or(QByteArray()) != *bytes)
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
