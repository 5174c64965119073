#include "app/BRCountdownController.h"

#include "app/BRCountdownView.h"
#include "foundation/PXColor.h"
#include "widgets/BROverlayWindow.h"
#include "widgets/PXPixelPainter.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr double kStep = 1.0;
constexpr float kBlackness = 0.8F; ///< Of the background, and then of the window with all on it.

} // namespace

BRCountdownController::BRCountdownController(PXWindowServer &windowServer,
                                             PXMainDisplay &mainDisplay, PXSoundPlayer &soundPlayer)
    : _windowServer(windowServer), _mainDisplay(mainDisplay), _soundPlayer(soundPlayer)
{
}

BRCountdownController::~BRCountdownController()
{
    cancel();
}

void BRCountdownController::startCountdown(BRCountdownDelegate &delegate)
{
    cancel();
    _delegate = &delegate;
    _soundPlayer.prepare();
    _countdownWindow = std::make_unique<BROverlayWindow>(_windowServer, _mainDisplay.bounds());
    _countdownWindow->setBackgroundColor(
        PXColorForPainting(PXColor::calibratedWhite(0, kBlackness)));
    _countdownWindow->setAlphaValue(static_cast<double>(kBlackness));
    // Where it is cut to its shape clicks reach what is below, and the keyboard follows them.
    _countdownWindow->setCanBecomeKeyWindow(_windowServer.isCompositing());
    _countdownView = new BRCountdownView(*_countdownWindow);
    _countdownWindow->setContentView(_countdownView);
    _startCount = _count = 3;
    // Before it is shown: where it must be cut, it would be all black at first.
    _countdownView->setTimerCount(_count);
    _countdownWindow->makeKeyAndOrderFront();
    countdown();
}

void BRCountdownController::cancel()
{
    _timer.invalidate();
    _closeWindow();
}

void BRCountdownController::countdown()
{
    _countdownView->setTimerCount(_count);
    _soundPlayer.play(_count >= 1 ? u"Morse"_s : u"Blow"_s);
    --_count;
    if (_count >= 0) {
        _timer.scheduleTimerWithTimeInterval(
            kStep, [this](PXTimerTarget &) { countdown(); }, {}, false);
        return;
    }
    _closeWindow();
    _timer.scheduleTimerWithTimeInterval(
        kStep, [this](PXTimerTarget &) { _delegate->countdownDidEnd(); }, {}, false);
}

void BRCountdownController::_closeWindow()
{
    if (!_countdownWindow)
        return;
    const bool tookKeyboard = _countdownWindow->canBecomeKeyWindow();
    _countdownView = nullptr;
    _countdownWindow.reset();
    if (tookKeyboard)
        _windowServer.giveFocusBack();
}
