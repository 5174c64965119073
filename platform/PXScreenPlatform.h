#pragma once

#include "platform/PXCursorSource.h"
#include "platform/PXDamageSource.h"
#include "platform/PXDisplayLink.h"
#include "platform/PXFrameBufferReader.h"
#include "platform/PXFrontProcess.h"
#include "platform/PXInputMonitor.h"
#include "platform/PXKeyboard.h"
#include "platform/PXMainDisplay.h"
#include "platform/PXWindowServer.h"

#include "foundation/PXError.h"

#include <memory>

/// One door to everything that a recording asks of the desktop. A back end whose desktop pushes
/// whole frames with damage (a portal) keeps the latest frame and serves reads from it.
class PXScreenPlatform {
public:
    virtual ~PXScreenPlatform() = default;

    virtual PXMainDisplay &mainDisplay() = 0;
    virtual PXExpected<std::unique_ptr<PXDamageSource>> makeDamageSource() = 0;
    virtual PXExpected<std::unique_ptr<PXFrameBufferReader>> makeFrameBufferReader() = 0;
    virtual PXExpected<std::unique_ptr<PXCursorSource>> makeCursorSource() = 0;
    virtual PXExpected<std::unique_ptr<PXDisplayLink>> makeDisplayLink() = 0;
    virtual PXExpected<std::unique_ptr<PXWindowServer>> makeWindowServer() = 0;
    virtual PXExpected<std::unique_ptr<PXKeyboard>> makeKeyboard() = 0;
    /// Watches from now on; the delegate outlives it.
    virtual PXExpected<std::unique_ptr<PXInputMonitor>>
    makeInputMonitor(PXInputMonitorDelegate &delegate) = 0;
    virtual PXExpected<std::unique_ptr<PXFrontProcess>> makeFrontProcess() = 0;
};
