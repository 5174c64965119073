#include "app/cli/BRRecordOptionsBuilder.h"

#include "app/BRSessionOptions.h"
#include "app/cli/BRTerminal.h"
#include "capture/framefile/BRRawCompression.h"
#include "foundation/PXDefaults.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr double kLowestRate = 0.001;
constexpr double kHighestRate = 1000;

} // namespace

BRRecordOptionsBuilder::BRRecordOptionsBuilder(const BRRecordArguments &arguments)
    : _arguments(arguments)
{
    BRSessionOptions::fill(_options, PXDefaults::standardUserDefaults());
}

BRUsageExpected<void> BRRecordOptionsBuilder::readArguments()
{
    if (auto read = _readRate(); !read)
        return read;
    if (_arguments.geometry) {
        const auto geometry = BRGeometryFromText(*_arguments.geometry);
        if (!geometry)
            return tl::unexpected(geometry.error());
        _geometry = *geometry;
    }
    if (_arguments.follow) {
        const auto size = BRSizeFromText(*_arguments.follow);
        if (!size)
            return tl::unexpected(size.error());
        _options.cameraMode = 1;
        _options.screenSelectionSize = *size;
    }
    return {};
}

void BRRecordOptionsBuilder::setSelection(const PXRect &selection)
{
    _options.cameraMode = 0;
    _options.screenSelectionRect = selection;
}

BRUsageExpected<BRScreenRecordingOptions>
BRRecordOptionsBuilder::optionsOn(const PXPixelRect &display)
{
    if (const auto done = _setArea(display); !done)
        return tl::unexpected(done.error());
    _setCompression();
    if (_arguments.hidesCursor)
        _options.showCursor = false;
    _options.displayMovieBounds = _arguments.showsBounds;
    return _options;
}

BRUsageExpected<void> BRRecordOptionsBuilder::_readRate()
{
    if (_arguments.rate)
        _options.numberOfFramesPerSecond = static_cast<float>(*_arguments.rate);
    const double rate = static_cast<double>(_options.numberOfFramesPerSecond);
    if (rate >= kLowestRate && rate <= kHighestRate)
        return {};
    return BRWrongUsage(
        u"Cannot record %1 frames per second"_s.arg(rate),
        u"Give a rate from 0.001 to %1 (--rate, or the setting captureRate)."_s.arg(kHighestRate));
}

void BRRecordOptionsBuilder::_setCompression()
{
    if (_arguments.codec)
        _options.videoCompression = static_cast<std::int32_t>(
            *_arguments.codec == u"rle" ? BRRawCompression::RLE : BRRawCompression::LZO);
    if (_arguments.codec)
        _options.lossyLevel = *_arguments.codec == u"rle"
            ? PXDefaults::standardUserDefaults().intValue(u"lossyLevel"_s)
            : 0;
    if (_arguments.lossyLevel)
        _options.lossyLevel = *_arguments.lossyLevel;
    const bool isRLE
        = _options.videoCompression == static_cast<std::int32_t>(BRRawCompression::RLE);
    if (_arguments.lossyLevel.value_or(0) != 0 && !isRLE)
        BRTerminal::printWarning(
            u"--lossy has no effect: LZO loses nothing (it is for --codec rle)"_s);
}

BRUsageExpected<void> BRRecordOptionsBuilder::_setArea(const PXPixelRect &display)
{
    if (_geometry)
        return _setFixedArea(_geometry->onDisplay(display), *_arguments.geometry, display);
    if (_options.cameraMode == 1) {
        _cutCameraTo(display);
        return {};
    }
    const PXPixelRect lastSelection = PXPixelsFromRect(_options.screenSelectionRect, display);
    if (_arguments.selects && lastSelection.isEmpty())
        return BRWrongUsage(u"The selection is empty"_s, u"Drag out an area."_s);
    return _setFixedArea(lastSelection.isEmpty() ? display : lastSelection, u"the last selection"_s,
                         display);
}

BRUsageExpected<void> BRRecordOptionsBuilder::_setFixedArea(const PXPixelRect &area,
                                                            const QString &name,
                                                            const PXPixelRect &display)
{
    const PXPixelRect visible = PXIntersection(area, display);
    const QString displayText
        = QString::asprintf("%dx%d+%d+%d", display.width, display.height, display.x, display.y);
    if (visible.isEmpty())
        return BRWrongUsage(u"%1 lies outside the display"_s.arg(name),
                            u"Choose an area inside %1."_s.arg(displayText));
    if (visible != area) {
        BRTerminal::printWarning(u"%1 reaches beyond the display %2; recording %3"_s.arg(
            name, displayText,
            QString::asprintf("%dx%d+%d+%d", visible.width, visible.height, visible.x, visible.y)));
    }
    _options.cameraMode = 0;
    _options.screenSelectionRect = PXRectFromPixels(visible, display);
    _options.screenSelectionSize = _options.screenSelectionRect.size();
    return {};
}

void BRRecordOptionsBuilder::_cutCameraTo(const PXPixelRect &display)
{
    PXSize &size = _options.screenSelectionSize;
    const PXSize whole = {static_cast<float>(display.width), static_cast<float>(display.height)};
    if (size.width <= whole.width && size.height <= whole.height)
        return;
    size = {std::min(size.width, whole.width), std::min(size.height, whole.height)};
    BRTerminal::printWarning(u"the camera is larger than the display; recording %1x%2"_s
                                 .arg(static_cast<double>(size.width))
                                 .arg(static_cast<double>(size.height)));
}
