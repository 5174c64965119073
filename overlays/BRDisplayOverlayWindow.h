#pragma once

#include "foundation/PXObservation.h"
#include "platform/PXMainDisplay.h"
#include "widgets/BROverlayWindow.h"

/// An overlay over the whole main display, wherever that goes, which neither the mouse nor the
/// keyboard ever reaches: for what is drawn over the user's work. Main thread.
class BRDisplayOverlayWindow final : public BROverlayWindow {
public:
    /// Both outlive it.
    BRDisplayOverlayWindow(PXWindowServer &server, PXMainDisplay &mainDisplay);
    ~BRDisplayOverlayWindow() override;

private:
    PXObservation _display;
};
