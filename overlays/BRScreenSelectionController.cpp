#include "overlays/BRScreenSelectionController.h"

#include "capture/BRScreenshotTaker.h"
#include "foundation/BRLog.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXMainThread.h"
#include "overlays/BRScreenSelectionPanel.h"
#include "widgets/BROverlayWindow.h"

#include <QLineEdit>

#include <cmath>
#include <stdexcept>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr double kFadeDuration = 0.3;
constexpr double kDimming = 0.5; ///< Of black, at the end of fading in.
constexpr PXSize kFirstSize = {400, 300};
constexpr PXPoint kFirstOffset = {-420, -150}; ///< From the display's centre.
constexpr PXSize kFirstAspect = {4, 3};
constexpr int kPanelGap = 40; ///< Right of the display's centre, where the first selection is not.

const QString kRectKey = u"screenSelectionRect"_s;
const QString kSizingKey = u"screenSelectionSizing"_s;
const QString kWidthKey = u"screenSelectionWidth"_s;
const QString kHeightKey = u"screenSelectionHeight"_s;

PXDefaults &defaults()
{
    return PXDefaults::standardUserDefaults();
}

void store(const QString &key, const QVariant &value, PXSaving saving = PXSaving::Now)
{
    if (const auto stored = defaults().setValue(key, value, saving); !stored)
        BRLog(BRLogWarning, PXErrorLine(stored.error()));
}

/// Twenty steps, 0.05 apart.
std::vector<float> fadeMarks()
{
    std::vector<float> marks;
    for (int i = 0; i <= 20; ++i)
        marks.push_back(static_cast<float>(i) / 20);
    return marks;
}

int wholeNumber(float value)
{
    return PXClampToInt(static_cast<double>(value));
}

} // namespace

BRScreenSelectionController::BRScreenSelectionController(PXScreenPlatform &platform,
                                                         PXWindowServer &windowServer)
    : _platform(platform), _windowServer(windowServer)
{
}

BRScreenSelectionController::~BRScreenSelectionController() = default;

int BRScreenSelectionController::selectionSizing() const
{
    return defaults().intValue(kSizingKey);
}

QWidget *BRScreenSelectionController::window() const
{
    return screenSelectionWindow;
}

PXSize BRScreenSelectionController::_displaySize() const
{
    return {static_cast<float>(_display.width), static_cast<float>(_display.height)};
}

void BRScreenSelectionController::displayWindowWithDelegate(BRScreenSelectionDelegate &delegate,
                                                            const QString &okButtonTitle)
{
    if (isDisplayed())
        throw std::logic_error("BRScreenSelectionController: is displayed already");
    _action = 0;
    _delegate = &delegate;
    _makeWindows();
    _restoreSelection();
    _makePanel(okButtonTitle);
    _fadeIn();
    if (const auto action = std::exchange(_actionAfterFade, std::nullopt))
        return _close(*action);
    _showPanel();
    selectionView->setFocus();
}

void BRScreenSelectionController::_makeWindows()
{
    _display = _platform.mainDisplay().bounds();
    auto picture = BRScreenshotTaker::screenshot(_platform);
    if (!picture)
        BRLog(BRLogError, PXErrorLine(picture.error()));
    _blankingWindow = std::make_unique<BROverlayWindow>(_windowServer, _display);
    selectionView = new BRScreenSelectionView(_displaySize());
    selectionView->setDelegate(this);
    selectionView->setBackgroundImage(picture.value_or(QImage()));
    _blankingWindow->setContentView(selectionView);
    selectionView->hide();
    // Another size or place: the picture is no longer what is there, nor can it be chosen on.
    _displayChanges = _platform.mainDisplay().addChangedObserver([this] {
        PXMainThread::post(&_mainThread, [this] {
            if (_platform.mainDisplay().bounds() != _display)
                cancelButton();
        });
    });
}

void BRScreenSelectionController::_restoreSelection()
{
    const bool isRemembered = defaults().value(kRectKey).isValid();
    PXRect rect = PXRectFromString(defaults().stringValue(kRectKey));
    if (isRemembered && (rect.width < 1 || rect.height < 1))
        store(kSizingKey, 0);
    if (!isRemembered || rect == PXRect{})
        rect = {_displaySize().width / 2 + kFirstOffset.x,
                _displaySize().height / 2 + kFirstOffset.y, kFirstSize.width, kFirstSize.height};
    selectionView->setSelectionAspect(
        {defaults().floatValue(kWidthKey), defaults().floatValue(kHeightKey)});
    selectionView->setSelectionRect(rect);
    selectionView->resetSelectionRect();
}

void BRScreenSelectionController::_makePanel(const QString &okButtonTitle)
{
    screenSelectionWindow = new BRScreenSelectionPanel(
        {[this] { okButton(); }, [this] { cancelButton(); }, [this] { setSizeFromFields(); },
         [this](int tag) { setSizeToPreset(tag); },
         [this](int sizing) {
             if (sizing == selectionSizing())
                 return;
             store(kSizingKey, sizing);
             selectionSizingChanged();
         },
         [this](int tag) {
             const PXRect rect = BRSelectionGeometry::preset(tag, _displaySize());
             return QSize(wholeNumber(rect.width), wholeNumber(rect.height));
         }},
        okButtonTitle, _blankingWindow.get());
    screenSelectionWindow->hide();
    screenSelectionWindow->showSizing(selectionSizing());
    screenSelectionViewRectChanged(selectionView->selectionRect());
    screenSelectionWindow->firstResponder().end(false);
}

/// Beside the first selection, which lies left of the centre.
void BRScreenSelectionController::_showPanel()
{
    screenSelectionWindow->adjustSize();
    const QSize room = _blankingWindow->size() - screenSelectionWindow->size();
    screenSelectionWindow->move(
        std::clamp(_blankingWindow->width() / 2 + kPanelGap, 0, std::max(room.width(), 0)),
        std::max(room.height() / 2, 0));
    screenSelectionWindow->show();
    screenSelectionWindow->raise();
}

void BRScreenSelectionController::_fadeIn()
{
    _fadingOut = false;
    _setDimming(0);
    _blankingWindow->makeKeyAndOrderFront();
    _isFadingIn = true;
    _runFade();
    _isFadingIn = false;
    // From here on the picture stands for the screen; window and picture change in one painting.
    selectionView->setFading(std::nullopt);
    selectionView->show();
}

void BRScreenSelectionController::_fadeOut()
{
    _fadingOut = true;
    selectionView->hide();
    _setDimming(kDimming);
    _runFade();
    _blankingWindow->orderOut();
}

void BRScreenSelectionController::_runFade()
{
    PXAnimation animation(kFadeDuration, PXAnimationCurve::Linear);
    animation.setAnimationBlockingMode(PXAnimationBlocking::Blocking);
    animation.setProgressMarks(fadeMarks());
    animation.setDelegate(this);
    animation.startAnimation();
}

void BRScreenSelectionController::animationDidReachProgressMark(PXAnimation &, float progress)
{
    const double black = kDimming * static_cast<double>(progress);
    _setDimming(_fadingOut ? kDimming - black : black);
}

void BRScreenSelectionController::_setDimming(double black)
{
    // A translucent window lets the living screen through. Where the desktop cannot blend, it would
    // be black: there the picture, which looks the same, is dimmed instead.
    const bool isTranslucent = _blankingWindow->isCompositing();
    _blankingWindow->setBackgroundColor(
        QColor::fromRgbF(0, 0, 0, isTranslucent ? static_cast<float>(black) : 1.0F));
    if (!isTranslucent)
        selectionView->setFading(black);
    selectionView->setVisible(!isTranslucent);
}

void BRScreenSelectionController::okButton()
{
    _close(1);
}

void BRScreenSelectionController::cancelButton()
{
    _close(0);
}

void BRScreenSelectionController::screenSelectionViewDidEnd(int action, const PXRect &rect)
{
    store(kRectKey, PXStringFromRect(rect), PXSaving::Later);
    _close(action);
}

/// The panel closes, and with it all of it.
void BRScreenSelectionController::_close(int action)
{
    if (_isFadingIn)
        _actionAfterFade = action;
    // Or a second click while it fades out.
    if (!isDisplayed() || _isFadingIn || std::exchange(_isClosing, true))
        return;
    _action = action;
    _displayChanges.end();
    if (_action != 1)
        screenSelectionWindow->forgetEdits();
    screenSelectionWindow->hide();
    // The recording follows at once, and must not wait for a fade.
    if (_action == 1)
        _blankingWindow->orderOut();
    else
        _fadeOut();
    _windowServer.giveFocusBack();
    if (const auto saved = defaults().synchronize(); !saved)
        BRLog(BRLogWarning, PXErrorLine(saved.error()));
    selectionView->setDelegate(nullptr);
    // One of its controls may have called us.
    _closedWindow = std::move(_blankingWindow);
    PXMainThread::post(&_mainThread, [this] { _closedWindow.reset(); });
    selectionView = nullptr;
    screenSelectionWindow = nullptr;
    _isClosing = false;
    std::exchange(_delegate, nullptr)->screenSelectionDidEnd(_action);
}

void BRScreenSelectionController::screenSelectionViewRectChanged(const PXRect &rect)
{
    _selectionRect = rect;
    store(kRectKey, PXStringFromRect(rect), PXSaving::Later);
    if (screenSelectionWindow == nullptr)
        return;
    if (selectionSizing() == 0)
        screenSelectionWindow->showFields(wholeNumber(rect.width), wholeNumber(rect.height));
    else if (selectionSizing() == 1)
        screenSelectionWindow->showFields(wholeNumber(selectionView->selectionAspect().width),
                                          wholeNumber(selectionView->selectionAspect().height));
}

std::optional<PXRect> BRScreenSelectionController::screenSelectionViewWindowFrameAt(PXPoint point)
{
    // The point stands on a pixel's upper left corner.
    const int x = _display.x + wholeNumber(point.x);
    const int y = _display.y + _display.height - wholeNumber(point.y);
    const auto frame = _windowServer.windowFrameAt(x, y, _blankingWindow->winId());
    return frame ? std::optional(PXRectFromPixels(*frame, _display)) : std::nullopt;
}

void BRScreenSelectionController::setSizeFromFields()
{
    const int width = screenSelectionWindow->widthOfField();
    const int height = screenSelectionWindow->heightOfField();
    const PXSize size = {static_cast<float>(width), static_cast<float>(height)};
    if (selectionSizing() == 0) {
        const PXRect rect = selectionView->selectionRect();
        selectionView->setSelectionRect({rect.x, rect.y, size.width, size.height});
    } else if (selectionSizing() == 1) {
        selectionView->setSelectionAspect(size);
        selectionView->resetSelectionRect();
        store(kWidthKey, width, PXSaving::Later);
        store(kHeightKey, height);
    }
}

void BRScreenSelectionController::selectionSizingChanged()
{
    const int sizing = selectionSizing();
    screenSelectionWindow->showSizing(sizing);
    if (sizing == 1) {
        selectionView->setSelectionAspect(kFirstAspect);
        store(kWidthKey, wholeNumber(kFirstAspect.width), PXSaving::Later);
        store(kHeightKey, wholeNumber(kFirstAspect.height));
    }
    selectionView->resetSelectionRect();
}

void BRScreenSelectionController::setSizeToPreset(int tag)
{
    if (isDisplayed())
        selectionView->setSelectionRect(BRSelectionGeometry::preset(tag, _displaySize()));
}
