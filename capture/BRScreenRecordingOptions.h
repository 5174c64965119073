#pragma once

#include "foundation/PXGeometry.h"

#include <cstdint>

/// The options of one recording, filled from the user defaults and handed over by value.
struct BRScreenRecordingOptions {
    std::int32_t cameraMode = 0; ///< 0 a fixed area, 1 an area that follows the pointer.
    PXSize screenSelectionSize; ///< Size of the frames in pixels.
    /// The recorded area in global coordinates; while recording, where the camera is now.
    PXRect screenSelectionRect;
    float scale = 0; ///< Carried for later stages; 1 is full size.
    float numberOfFramesPerSecond = 0;
    bool displayMovieBounds = false; ///< Show a frame around the recorded area.
    bool showCursor = false; ///< Draw the mouse cursor into the frames.
    std::int32_t videoCompression = 0; ///< A `BRRawCompression`.
    std::int32_t lossyLevel = 0; ///< 0 to 4, for run-length compression.
};
