#pragma once

#include "foundation/PXGeometry.h"
#include "foundation/PXTimerTarget.h"
#include "overlays/KPDefaultWindow.h"
#include "overlays/KPKeyboardVisualizer.h"
#include "overlays/KPKeyboardVisualizerDelegate.h"
#include "platform/PXMainDisplay.h"
#include "platform/PXWindowServer.h"

#include <atomic>
#include <memory>

class KPDefaultKeystrokeStackerView;

/// Shows the keys that the user presses in other programs, line by line in a bezel inside of the
/// recorded rectangle, so that they are recorded with it. The bezel fades in with the first line
/// and out with the last, and moves with the recorded rectangle. While it shows nothing it costs
/// nothing.
///
/// Shown are keys that go down, and those that are held, as far as the settings want their kind
/// ("showKeyboardCommands", "showKeyboardCharacters", "showKeyboardOtherKeys") and unless they are
/// among the owner's exceptions. Of typed characters nothing is shown while they are not wanted,
/// nor is a line that still has some made longer.
///
/// Main thread. All settings are read when they are used.
class KPDefaultKeyboardVisualizer final : public KPKeyboardVisualizer {
public:
    /// All of them outlive it.
    KPDefaultKeyboardVisualizer(PXWindowServer &windowServer, PXMainDisplay &mainDisplay,
                                KPKeyboardVisualizerDelegate &delegate);
    ~KPDefaultKeyboardVisualizer() override;

    [[nodiscard]] KPDefaultWindow &window() const { return *mWindow; }
    [[nodiscard]] KPDefaultKeystrokeStackerView &stackerView() const { return *mStackerView; }

    void orderFront();
    void orderOut();
    /// Shows the window, step by step; nothing where it is shown and stays.
    void fadeIn();
    /// The window goes, beginning soon: a line that comes at once finds it there.
    void fadeOut();

    /// Gives the window that frame, in global coordinates, but at the place that
    /// "keyboardEventPosition" says; where that is none, as proposed.
    void setWindowFrameRespectingPosition(const PXRect &frame, bool display);
    /// What there is for lines in the recorded rectangle. In pixels.
    [[nodiscard]] PXSize roomForLines() const;
    /// Of the main display, in hertz.
    [[nodiscard]] double refreshRate() const { return _mainDisplay.refreshRate(); }

protected:
    void externalKeyboardEvent(const PXKeyEvent &event) override;

private:
    [[nodiscard]] PXRect _screenSelectionRect() const;
    [[nodiscard]] PXRect _windowFrame() const;
    /// Any thread; never waits.
    void _screenSelectionRectChangedSoon();
    void screenRecorderScreenSelectionRectChanged();
    void windowFadingTimer();
    void _compositingDidChange();

    PXMainDisplay &_mainDisplay;
    KPKeyboardVisualizerDelegate &_delegate;
    const std::unique_ptr<KPDefaultWindow> mWindow;
    KPDefaultKeystrokeStackerView *mStackerView = nullptr; ///< The interior view's.
    PXTimerTarget mWindowFadingTimerTarget; ///< Valid while the window fades.
    bool mWindowFadingOut = false;
    /// The camera is faster than windows move: one call under way, for the newest place.
    std::atomic<bool> _isMovePosted = false;
    // Last: its function uses the rest.
    PXObservation _selectionObservation;
};
