#include "capture/BRRecordingStatus.h"

#include "foundation/FSByteFormatter.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXGeometry.h"

using namespace Qt::StringLiterals;

QString BRStringFromDuration(double duration)
{
    const std::uint32_t seconds = PXClampToUInt32(duration);
    const std::uint32_t minutes = seconds / 60;
    const std::uint32_t hours = minutes / 60;
    if (hours == 0)
        return QString::asprintf("%02u:%02u", minutes % 60, seconds % 60);
    return QString::asprintf("%02u:%02u:%02u", hours, minutes % 60, seconds % 60);
}

std::optional<QString> BRRecordingStatusText(double duration, std::uint64_t bytes)
{
    const PXDefaults &defaults = PXDefaults::standardUserDefaults();
    const bool showsDuration = defaults.boolValue(u"showRecordingDurationInMenubar"_s);
    const bool showsSize = defaults.boolValue(u"showRecordingSizeInMenubar"_s);
    const QString durationText = showsDuration ? BRStringFromDuration(duration) : QString();
    const QString sizeText = showsSize ? FSByteFormatter().stringForObjectValue(bytes) : QString();
    if (showsDuration && showsSize)
        return durationText + u", "_s + sizeText;
    if (showsDuration)
        return durationText;
    if (showsSize)
        return sizeText;
    return std::nullopt;
}
