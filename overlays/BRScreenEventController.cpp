#include "overlays/BRScreenEventController.h"

#include "foundation/BRLog.h"
#include "foundation/PXDefaults.h"
#include "overlays/BRScreenEventView.h"
#include "overlays/KPDefaultKeyboardVisualizer.h"

#include <QVariantList>

#include <utility>

using namespace Qt::StringLiterals;

namespace {
const QString kExceptionsKey = u"keyboardEventExceptions"_s;
}

BRScreenEventController::BRScreenEventController(PXWindowServer &windowServer,
                                                 PXMainDisplay &mainDisplay,
                                                 BRApplication &application,
                                                 std::function<PXRect()> currentScreenSelectionRect)
    : _windowServer(windowServer),
      _mainDisplay(mainDisplay),
      _application(application),
      _currentScreenSelectionRect(std::move(currentScreenSelectionRect)),
      mOverlayWindow(windowServer, mainDisplay),
      mScreenEventView(new BRScreenEventView(mOverlayWindow, mainDisplay))
{
    mOverlayWindow.setContentView(mScreenEventView);
    _application.setMouseEventReceiver(this);
}

BRScreenEventController::~BRScreenEventController()
{
    removeScreenEventView();
    _application.setMouseEventReceiver(nullptr);
}

void BRScreenEventController::displayScreenEventView()
{
    if (!mKeyboardVisualizer)
        mKeyboardVisualizer = std::make_unique<KPDefaultKeyboardVisualizer>(
            _windowServer, _mainDisplay, static_cast<KPKeyboardVisualizerDelegate &>(*this));
    mOverlayWindow.orderFront();
    _application.installMonitorHandler();
}

void BRScreenEventController::removeScreenEventView()
{
    mKeyboardVisualizer.reset();
    mOverlayWindow.orderOut();
    _application.uninstallMonitorHandler();
    mScreenEventView->clear(); // A button may be held, whose release nobody will tell of.
}

void BRScreenEventController::mouseEventAtPoint(BRMouseEventType type, PXPoint point)
{
    if (mShowMouseClicks)
        mScreenEventView->showMouseEventAtPoint(type, point);
}

std::vector<PXShortcut> &BRScreenEventController::keyboardShortcutExceptions()
{
    if (mKeyboardShortcutExceptions)
        return *mKeyboardShortcutExceptions;
    mKeyboardShortcutExceptions.emplace();
    const QVariantList stored = PXDefaults::standardUserDefaults().value(kExceptionsKey).toList();
    for (const QVariant &dictionary : stored)
        if (auto shortcut = PXShortcut::shortcutFromDictionary(dictionary.toMap()))
            mKeyboardShortcutExceptions->push_back(*std::move(shortcut));
    return *mKeyboardShortcutExceptions;
}

void BRScreenEventController::updateKeyboardShortcutExceptionsInUserDefaults()
{
    QVariantList dictionaries;
    for (const PXShortcut &shortcut : keyboardShortcutExceptions())
        dictionaries.append(shortcut.dictionary());
    // It holds for this run also when it cannot be saved.
    if (const auto saved
        = PXDefaults::standardUserDefaults().setValue(kExceptionsKey, dictionaries);
        !saved)
        BRLog(BRLogWarning, PXErrorLine(saved.error()));
}
