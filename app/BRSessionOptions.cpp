#include "app/BRSessionOptions.h"

#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kCameraModeFixed = 0;
constexpr int kCameraModeFollowsPointer = 1;

constexpr int kOptimizeWithLZO = 0;
constexpr int kOptimizeWithRLE = 1;
constexpr int kCompressionLZO = 1;
constexpr int kCompressionRLE = 2;

} // namespace

namespace BRSessionOptions {

void fill(BRScreenRecordingOptions &options, const PXDefaults &defaults)
{
    options.cameraMode = defaults.intValue(u"cameraMode"_s);
    if (options.cameraMode == kCameraModeFixed) {
        options.screenSelectionRect
            = PXRectFromString(defaults.stringValue(u"screenSelectionRect"_s));
        options.screenSelectionSize = options.screenSelectionRect.size();
    } else if (options.cameraMode == kCameraModeFollowsPointer) {
        options.screenSelectionSize
            = {static_cast<float>(defaults.intValue(u"cursorCameraWidth"_s)),
               static_cast<float>(defaults.intValue(u"cursorCameraHeight"_s))};
    }
    options.numberOfFramesPerSecond = defaults.floatValue(u"captureRate"_s);
    options.displayMovieBounds = defaults.boolValue(u"showCameraBounds"_s);
    options.showCursor = defaults.boolValue(u"showMouseCursor"_s);
    options.scale = defaults.floatValue(u"captureScale"_s) / 100.0F;
    const int optimizeFor = defaults.intValue(u"optimizeFor"_s);
    if (optimizeFor == kOptimizeWithLZO) {
        options.videoCompression = kCompressionLZO;
        options.lossyLevel = 0;
    } else if (optimizeFor == kOptimizeWithRLE) {
        options.videoCompression = kCompressionRLE;
        options.lossyLevel = defaults.intValue(u"lossyLevel"_s);
    }
}

QVariantMap movieInfo(const QString &uuid, const BRScreenRecordingOptions &options,
                      const PXDefaults &defaults, bool hasAudio, const QDateTime &date)
{
    const auto whole = [](float number) { return PXClampToInt(static_cast<double>(number)); };
    return {
        {u"uuid"_s, uuid},
        {u"captureRate"_s, whole(options.numberOfFramesPerSecond)},
        {u"scale"_s, whole(defaults.floatValue(u"captureScale"_s))},
        {u"width"_s, whole(options.screenSelectionSize.width)},
        {u"height"_s, whole(options.screenSelectionSize.height)},
        {u"date"_s, date},
        {u"hasVideo"_s, true},
        {u"hasAudio"_s, hasAudio},
        // The raw capture's lowest row comes first.
        {u"isUpsideDown"_s, true},
    };
}

PXExpected<void> writeMovieInfo(const QVariantMap &info, const QString &movieFolder)
{
    return PXPropertyList::write(info, movieFolder + u"/Info.plist"_s, PXPropertyList::Format::XML);
}

} // namespace BRSessionOptions
