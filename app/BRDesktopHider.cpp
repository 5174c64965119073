#include "app/BRDesktopHider.h"

#include "app/BRDesktopHidingView.h"
#include "foundation/PXMainThread.h"
#include "widgets/BROverlayWindow.h"

BRDesktopHider::BRDesktopHider(PXWindowServer &windowServer, PXMainDisplay &mainDisplay)
    : _mainDisplay(mainDisplay),
      overlayWindow(std::make_unique<BROverlayWindow>(windowServer, mainDisplay.bounds())),
      desktopHidingView(new BRDesktopHidingView(*overlayWindow))
{
    overlayWindow->setContentView(desktopHidingView);
    overlayWindow->setLevel(PXWindowLevel::DesktopIconPlusOne);
    overlayWindow->setCanBecomeKeyWindow(false);
    overlayWindow->setCanBecomeMainWindow(false);
    overlayWindow->setSticky(true);
}

BRDesktopHider::~BRDesktopHider() = default;

void BRDesktopHider::hideDesktop()
{
    if (!overlayWindow->isVisible())
        _displayChanges = _mainDisplay.addChangedObserver([this] {
            PXMainThread::post(overlayWindow.get(),
                               [this] { overlayWindow->setFrame(_mainDisplay.bounds()); });
        });
    overlayWindow->setFrame(_mainDisplay.bounds());
    overlayWindow->orderFront();
}

void BRDesktopHider::unhideDesktop()
{
    _displayChanges.end();
    overlayWindow->orderOut();
}
