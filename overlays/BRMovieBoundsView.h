#pragma once

#include "capture/BRScreenRecorder.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXMutex.h"
#include "platform/PXMainDisplay.h"
#include "platform/PXWindowServer.h"

#include <memory>

/// The dashed frame around the recorded area. Stands still while a fixed area is recorded; while
/// the camera follows the pointer it shows where that has come to rest. Any thread.
class BRMovieBoundsView final : public BRMovieBounds {
public:
    /// `mainDisplay`, and the window server that made the frame, outlive it.
    BRMovieBoundsView(std::unique_ptr<PXDashedFrame> frame, const PXMainDisplay &mainDisplay);

    void setScreenSelectionRect(const PXRect &rect) override;
    void selectionWasRead(const PXRect &rect) override;
    /// Shows it at once: for an area that nobody has read yet.
    void orderFront() override;
    void orderOut() override;

private:
    void _show() PX_REQUIRES(_lock);

    const PXMainDisplay &_mainDisplay;
    PXMutex _lock;
    const std::unique_ptr<PXDashedFrame> _frame; // One thread at a time, the lock's.
    PXRect _screenSelectionRect PX_GUARDED_BY(_lock);
    bool _isFront PX_GUARDED_BY(_lock) = false;
};
