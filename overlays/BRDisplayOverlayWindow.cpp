#include "overlays/BRDisplayOverlayWindow.h"

#include "foundation/PXMainThread.h"

BRDisplayOverlayWindow::BRDisplayOverlayWindow(PXWindowServer &server, PXMainDisplay &mainDisplay)
    : BROverlayWindow(server, mainDisplay.bounds())
{
    setIgnoresMouseEvents(true);
    setCanBecomeKeyWindow(false);
    setCanBecomeMainWindow(false);
    setSticky(true);
    _display = mainDisplay.addChangedObserver([this, &mainDisplay] {
        PXMainThread::post(this, [this, &mainDisplay] { setFrame(mainDisplay.bounds()); });
    });
}

BRDisplayOverlayWindow::~BRDisplayOverlayWindow()
{
    _display.end();
}
