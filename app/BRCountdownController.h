#pragma once

#include "foundation/PXTimerTarget.h"
#include "platform/PXMainDisplay.h"
#include "platform/PXSoundPlayer.h"
#include "platform/PXWindowServer.h"

#include <memory>

class BRCountdownView;
class BROverlayWindow;

class BRCountdownDelegate {
public:
    /// Four seconds after the start, one after the countdown has left the screen: it is not seen
    /// nor heard by what is recorded from now on. May start another countdown; must not destroy
    /// the controller.
    virtual void countdownDidEnd() = 0;

protected:
    ~BRCountdownDelegate() = default;
};

/// Counts 3, 2, 1 over the main display, a second each, with a "Morse" for each; the step that
/// would show 0 takes the window away with a "Blow", and a second later the delegate is told.
/// Main thread. Keeps the display, the server and the player for as long as it lives.
class BRCountdownController final {
public:
    BRCountdownController(PXWindowServer &windowServer, PXMainDisplay &mainDisplay,
                          PXSoundPlayer &soundPlayer);
    ~BRCountdownController();

    /// One that runs is cancelled. The delegate outlives the countdown.
    void startCountdown(BRCountdownDelegate &delegate);
    /// The window goes, and nobody is told. Nothing when none runs.
    void cancel();
    /// From the start until the delegate is told.
    [[nodiscard]] bool isCounting() const { return _timer.isValid(); }

private:
    void countdown();
    void _closeWindow();

    PXWindowServer &_windowServer;
    PXMainDisplay &_mainDisplay;
    PXSoundPlayer &_soundPlayer;
    std::unique_ptr<BROverlayWindow> _countdownWindow;
    BRCountdownView *_countdownView = nullptr; ///< The window's.
    BRCountdownDelegate *_delegate = nullptr;
    int _startCount = 3;
    int _count = 0;
    PXTimerTarget _timer;
};
