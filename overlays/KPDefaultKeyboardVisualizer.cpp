#include "overlays/KPDefaultKeyboardVisualizer.h"

#include "capture/BRScreenRecorder.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXNotificationCenter.h"
#include "overlays/KPDefaultKeystrokeStackerView.h"
#include "overlays/KPKeyboardPosition.h"
#include "overlays/KPKeystroke.h"

#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr double kFadeInterval = 1.0 / 60;
constexpr PXPixelRect kFirstFrame = {0, 0, 200, 16};

bool isWanted(KPKeystrokeType type)
{
    const PXDefaults &defaults = PXDefaults::standardUserDefaults();
    switch (type) {
    case KPKeystrokeType::Shortcut:
        return defaults.boolValue(u"showKeyboardCommands"_s);
    case KPKeystrokeType::Character:
        return defaults.boolValue(u"showKeyboardCharacters"_s);
    case KPKeystrokeType::SpecialKey:
        return defaults.boolValue(u"showKeyboardOtherKeys"_s);
    }
    return false;
}

} // namespace

KPDefaultKeyboardVisualizer::KPDefaultKeyboardVisualizer(PXWindowServer &windowServer,
                                                         PXMainDisplay &mainDisplay,
                                                         KPKeyboardVisualizerDelegate &delegate)
    : _mainDisplay(mainDisplay),
      _delegate(delegate),
      mWindow(std::make_unique<KPDefaultWindow>(
          windowServer, kFirstFrame, [this](const PXPixelRect &proposed, bool display) {
              setWindowFrameRespectingPosition(PXRectFromPixels(proposed, _mainDisplay.bounds()),
                                               display);
          }))
{
    mWindow->setInteriorSize({mWindow->interiorSize().width(), 0}, false);
    // In the middle of the display, for a position that leaves it where it is.
    const PXPixelRect display = _mainDisplay.bounds();
    const PXPixelRect frame = mWindow->frame();
    mWindow->setBezelFrame({display.x + (display.width - frame.width) / 2,
                            display.y + (display.height - frame.height) / 2, frame.width,
                            frame.height});
    QWidget &interiorView = mWindow->interiorView();
    mStackerView = new KPDefaultKeystrokeStackerView(interiorView.rect(), *this);
    auto *layout = new QVBoxLayout(&interiorView);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(mStackerView);
    mWindow->setCompositingDidChange([this] { _compositingDidChange(); });
    _selectionObservation = PXNotificationCenter::defaultCenter().addObserver(
        kBRScreenRecorderScreenSelectionRectChangedNotification, nullptr,
        [this](const QString &, const void *, const QVariantMap &) {
            _screenSelectionRectChangedSoon();
        });
}

KPDefaultKeyboardVisualizer::~KPDefaultKeyboardVisualizer() = default;

void KPDefaultKeyboardVisualizer::externalKeyboardEvent(const PXKeyEvent &event)
{
    if (event.type != PXKeyEventType::KeyDown)
        return;
    const KPKeystroke keystroke = KPKeystroke::keystrokeFromEvent(event);
    if (keystroke.displayString().isEmpty() || !isWanted(keystroke.type()))
        return;
    // By their keys: what a layout has on them differs where the exceptions were made elsewhere, or
    // while another of the user's layouts is active.
    const PXShortcut pressed = PXShortcut::shortcutFromEvent(event);
    const std::vector<PXShortcut> &exceptions = _delegate.keyboardShortcutExceptions();
    if (std::any_of(exceptions.begin(), exceptions.end(), [&](const PXShortcut &exception) {
            return exception.keyCode() == pressed.keyCode()
                && exception.modifiers() == pressed.modifiers();
        }))
        return;
    mStackerView->addKeystroke(keystroke);
}

// The window's place.

PXRect KPDefaultKeyboardVisualizer::_screenSelectionRect() const
{
    const PXRect selection = _delegate.currentScreenSelectionRect();
    const PXPixelRect display = _mainDisplay.bounds();
    return selection.isEmpty() ? PXRectFromPixels(display, display) : selection;
}

PXRect KPDefaultKeyboardVisualizer::_windowFrame() const
{
    return PXRectFromPixels(mWindow->frame(), _mainDisplay.bounds());
}

PXSize KPDefaultKeyboardVisualizer::roomForLines() const
{
    constexpr auto kEdges
        = static_cast<float>(2 * (KPKeyboardPosition::kMargin + KPBezelWindow::kInset));
    const PXRect selection = _screenSelectionRect();
    return {std::max(selection.width - kEdges, 1.0F), std::max(selection.height - kEdges, 1.0F)};
}

void KPDefaultKeyboardVisualizer::setWindowFrameRespectingPosition(const PXRect &frame,
                                                                   bool display)
{
    PXRect placed = frame;
    const int code = PXDefaults::standardUserDefaults().intValue(u"keyboardEventPosition"_s);
    if (const auto position = KPKeyboardPosition::positionWithCode(code)) {
        const PXPoint origin = position->originOf(frame.size(), _screenSelectionRect());
        placed.x = origin.x;
        placed.y = origin.y;
    }
    mWindow->setBezelFrame(PXPixelsFromRect(placed, _mainDisplay.bounds()));
    if (display)
        mWindow->update();
}

void KPDefaultKeyboardVisualizer::_screenSelectionRectChangedSoon()
{
    if (_isMovePosted.exchange(true))
        return;
    PXMainThread::post(mWindow.get(), [this] {
        // First: a change from now on is not in what is read below.
        _isMovePosted = false;
        screenRecorderScreenSelectionRectChanged();
    });
}

void KPDefaultKeyboardVisualizer::screenRecorderScreenSelectionRectChanged()
{
    mStackerView->roomChanged();
    setWindowFrameRespectingPosition(_windowFrame(), false);
    if (!mWindow->isVisible()
        && PXDefaults::standardUserDefaults().boolValue(u"showKeyboardAlways"_s)) {
        mWindow->setAlphaValue(1);
        orderFront();
    }
}

void KPDefaultKeyboardVisualizer::orderFront()
{
    setWindowFrameRespectingPosition(_windowFrame(), true);
    mWindow->orderFront();
}

void KPDefaultKeyboardVisualizer::orderOut()
{
    mWindow->orderOut();
}

// Fading.

void KPDefaultKeyboardVisualizer::fadeIn()
{
    const bool isFadingOut = mWindowFadingTimerTarget.isValid() && mWindowFadingOut;
    if (!isFadingOut && mWindow->isVisible())
        return;
    mWindowFadingOut = false;
    if (!mWindow->isVisible())
        mWindow->setAlphaValue(0);
    mWindowFadingTimerTarget.scheduleTimerWithTimeInterval(
        kFadeInterval, [this](PXTimerTarget &) { windowFadingTimer(); });
    windowFadingTimer(); // Whoever has pressed a key waits for it.
    if (!mWindow->isVisible())
        orderFront();
}

void KPDefaultKeyboardVisualizer::fadeOut()
{
    mWindowFadingOut = true;
    mWindowFadingTimerTarget.scheduleTimerWithTimeInterval(
        kFadeInterval, [this](PXTimerTarget &) { windowFadingTimer(); });
}

void KPDefaultKeyboardVisualizer::windowFadingTimer()
{
    if (!(mWindowFadingOut ? mWindow->fadeOut() : mWindow->fadeIn()))
        return;
    mWindowFadingTimerTarget.invalidate();
    if (!mWindowFadingOut)
        return;
    mWindowFadingOut = false;
    orderOut();
    mStackerView->windowHasGone();
}

void KPDefaultKeyboardVisualizer::_compositingDidChange()
{
    mWindow->followCompositing();
    mStackerView->roomChanged();
}
