#pragma once

#include "foundation/PXObservation.h"
#include "platform/PXMainDisplay.h"
#include "platform/PXWindowServer.h"

#include <memory>

class BRDesktopHidingView;
class BROverlayWindow;

/// Covers the main display's desktop, its icons too, below all ordinary windows, with what the
/// settings say. Follows them and the display while it does. Main thread.
class BRDesktopHider final {
public:
    BRDesktopHider(PXWindowServer &windowServer, PXMainDisplay &mainDisplay);
    ~BRDesktopHider();

    /// Again and again if one likes; the same for `unhideDesktop()`.
    void hideDesktop();
    void unhideDesktop();

private:
    PXMainDisplay &_mainDisplay;
    std::unique_ptr<BROverlayWindow> overlayWindow;
    BRDesktopHidingView *desktopHidingView; ///< The window's.
    PXObservation _displayChanges; // Last: its function uses the rest.
};
