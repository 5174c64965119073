#pragma once

#include "app/cli/BRGeometry.h"
#include "app/cli/BRRecordCommand.h"
#include "app/cli/BRUsageError.h"
#include "capture/BRScreenRecordingOptions.h"
#include "foundation/PXGeometry.h"

#include <optional>

/// The arguments of `tolvane record` laid over what the defaults say. Borrows them.
class BRRecordOptionsBuilder final {
public:
    explicit BRRecordOptionsBuilder(const BRRecordArguments &arguments);

    /// What the words alone say, right or wrong whatever the display.
    BRUsageExpected<void> readArguments();

    /// A fixed area that the user has just chosen, in the display's coordinates.
    void setSelection(const PXRect &selection);

    /// The options in the display's coordinates, after `readArguments()`.
    BRUsageExpected<BRScreenRecordingOptions> optionsOn(const PXPixelRect &display);

private:
    BRUsageExpected<void> _readRate();
    void _setCompression();
    BRUsageExpected<void> _setArea(const PXPixelRect &display);
    BRUsageExpected<void> _setFixedArea(const PXPixelRect &area, const QString &name,
                                        const PXPixelRect &display);
    void _cutCameraTo(const PXPixelRect &display);

    const BRRecordArguments &_arguments;
    std::optional<BRGeometry> _geometry;
    BRScreenRecordingOptions _options;
};
