#pragma once

#include "input/BRApplication.h"
#include "input/PXShortcut.h"
#include "overlays/BRDisplayOverlayWindow.h"
#include "overlays/KPKeyboardVisualizerDelegate.h"
#include "platform/PXMainDisplay.h"
#include "platform/PXWindowServer.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class BRScreenEventView;
class KPDefaultKeyboardVisualizer;

/// Shows on the screen, for as long as a recording runs, what mouse and keyboard do. Main thread.
class BRScreenEventController final : private BRMouseEventReceiver,
                                      private KPKeyboardVisualizerDelegate {
public:
    /// `currentScreenSelectionRect` is asked on any thread where the recorded area is now. All
    /// outlive it.
    BRScreenEventController(PXWindowServer &windowServer, PXMainDisplay &mainDisplay,
                            BRApplication &application,
                            std::function<PXRect()> currentScreenSelectionRect);
    ~BRScreenEventController();

    void displayScreenEventView();
    void removeScreenEventView();
    void setShowMouseClicks(bool showMouseClicks) { mShowMouseClicks = showMouseClicks; }
    [[nodiscard]] BROverlayWindow &window() { return mOverlayWindow; }

    void mouseEventAtPoint(BRMouseEventType type, PXPoint point) override;

    /// Combinations that are never shown; the settings' when first asked for.
    std::vector<PXShortcut> &keyboardShortcutExceptions() override;
    /// Writes them back.
    void updateKeyboardShortcutExceptionsInUserDefaults();

private:
    [[nodiscard]] PXRect currentScreenSelectionRect() const override
    {
        return _currentScreenSelectionRect();
    }

    PXWindowServer &_windowServer;
    PXMainDisplay &_mainDisplay;
    BRApplication &_application;
    const std::function<PXRect()> _currentScreenSelectionRect;
    BRDisplayOverlayWindow mOverlayWindow;
    BRScreenEventView *mScreenEventView; ///< The window's.
    std::unique_ptr<KPDefaultKeyboardVisualizer> mKeyboardVisualizer; ///< While events are shown.
    bool mShowMouseClicks = false;
    std::optional<std::vector<PXShortcut>> mKeyboardShortcutExceptions;
};
