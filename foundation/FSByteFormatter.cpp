#include "foundation/FSByteFormatter.h"

#include <algorithm>
#include <limits>

QString FSByteFormatter::stringForObjectValue(quint64 bytes) const
{
    constexpr quint64 kLargestUnit = 1'000'000'000'000'000'000;
    // QLocale would write 999 999 as "1000.0 kB": its unit is chosen before it rounds.
    for (quint64 unit = 1'000'000; unit <= kLargestUnit; unit *= 1000) {
        const quint64 roundedUp = unit - unit / 20'000;
        if (bytes >= roundedUp && bytes < unit)
            bytes = unit;
        if (unit == kLargestUnit)
            break; // The next one has no place in 64 bits.
    }
    constexpr auto kMost = static_cast<quint64>(std::numeric_limits<qint64>::max());
    return _locale.formattedDataSize(static_cast<qint64>(std::min(bytes, kMost)), 1,
                                     QLocale::DataSizeSIFormat);
}
