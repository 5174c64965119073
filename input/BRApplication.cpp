#include "input/BRApplication.h"

#include "foundation/BRLog.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXNotificationCenter.h"
#include "input/BRShortcutResponder.h"

#include <QGuiApplication>
#include <QKeyEvent>

#include <algorithm>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

const QString kBRExternalKeyboardEventNotification = u"BRExternalKeyboardEventNotification"_s;

PXPoint BRFlipPoint(PXPoint point, float height)
{
    return {point.x, height - point.y};
}

float BRScreenHeightForPoint(const PXMainDisplay &mainDisplay, PXPoint point)
{
    const PXPixelRect main = mainDisplay.bounds();
    const auto display = mainDisplay.displayAt(main.x + static_cast<int>(point.x),
                                               main.y + static_cast<int>(point.y));
    return static_cast<float>(display.value_or(main).height);
}

namespace {

constexpr std::size_t kRememberedPresses = 8;

std::optional<PXShortcut> shortcutInDefaults(const QString &key)
{
    return PXShortcut::shortcutFromDictionary(
        PXDefaults::standardUserDefaults().value(key).toMap());
}

/// The window system's own number for what failed.
int statusOf(const PXError &error)
{
    return error.userInfo.value(u"trueErrorCode"_s, error.code).toInt();
}

BRMouseEventType typeOf(const PXMouseEvent &event)
{
    const bool isPrimary = event.button == PXMouseButton::Primary;
    switch (event.type) {
    case PXMouseEventType::Down:
        return isPrimary ? BRMouseEventType::LeftMouseDown : BRMouseEventType::RightMouseDown;
    case PXMouseEventType::Up:
        return isPrimary ? BRMouseEventType::LeftMouseUp : BRMouseEventType::RightMouseUp;
    case PXMouseEventType::Dragged:
        break;
    }
    return isPrimary ? BRMouseEventType::LeftMouseDragged : BRMouseEventType::RightMouseDragged;
}

bool isModifierKey(int key)
{
    return (key >= Qt::Key_Shift && key <= Qt::Key_NumLock)
        || (key >= Qt::Key_Super_L && key <= Qt::Key_Hyper_R) || key == Qt::Key_AltGr;
}

/// Whether one of our own windows has the keyboard. The toolkit's own opinion of its state stays
/// behind when a window that had it is destroyed, as the countdown's is.
bool isActive()
{
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance()) != nullptr
        && QGuiApplication::focusWindow() != nullptr;
}

} // namespace

BRApplication::BRApplication(PXScreenPlatform &platform, BRApplicationDelegate &delegate,
                             PXAlert *alert)
    : _platform(platform), _delegate(delegate), _alert(alert)
{
}

BRApplication::~BRApplication()
{
    uninstallMonitorHandler();
    _frontProcessObservation.end();
}

void BRApplication::awakeFromNib()
{
    setupHotKeys();
    installProcessSwitchHandler();
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()) != nullptr)
        QCoreApplication::instance()->installEventFilter(this);
}

void BRApplication::_report(const QString &message)
{
    BRLog(BRLogError, message);
    if (_alert != nullptr)
        _alert->beep(message);
}

// Hot keys.

bool BRApplication::_openKeyboard()
{
    if (_keyboard)
        return true;
    auto keyboard = _platform.makeKeyboard();
    if (keyboard)
        _keyboard = *std::move(keyboard);
    else
        _report(u"Could not install event handler %1"_s.arg(statusOf(keyboard.error())));
    return _keyboard != nullptr;
}

void BRApplication::setupHotKeys()
{
    const auto activation = shortcutInDefaults(u"activationShortcut"_s);
    const auto toggleCameraMode = shortcutInDefaults(u"toggleCameraModeShortcut"_s);
    _activationHotKey.registration.reset();
    _toggleCameraModeHotKey.registration.reset();
    if (!_openKeyboard())
        return;
    _registerShortcut(activation, _activationHotKey);
    _registerShortcut(toggleCameraMode, _toggleCameraModeHotKey);
}

void BRApplication::_registerShortcut(const std::optional<PXShortcut> &shortcut, HotKey &hotKey)
{
    if (!shortcut || shortcut->keyCode() > std::numeric_limits<std::uint16_t>::max())
        return;
    hotKey.keyCode = static_cast<std::uint16_t>(shortcut->keyCode());
    hotKey.modifiers = shortcut->modifiers();
    auto registration
        = _keyboard->registerHotKey(hotKey.keyCode, hotKey.modifiers, [this, &hotKey](double time) {
              PXMainThread::post(this, [this, &hotKey, time] {
                  _hotKeyHandler(hotKey, time, &Presses::ofHotKey);
              });
          });
    if (registration)
        hotKey.registration = *std::move(registration);
    else
        _report(u"Could not register hotkey %1"_s.arg(statusOf(registration.error())));
}

BRApplication::HotKey *BRApplication::_hotKeyOf(const PXKeyEvent &event)
{
    for (HotKey *hotKey : {&_activationHotKey, &_toggleCameraModeHotKey})
        if (hotKey->registration && event.keyCode == hotKey->keyCode
            && (event.modifierFlags & PXModifierMask) == hotKey->modifiers)
            return hotKey;
    return nullptr;
}

/// While another program keeps the keyboard to itself only the monitor sees the press; else both
/// tell of it, and the first one counts.
void BRApplication::_hotKeyHandler(HotKey &hotKey, double timestamp, int Presses::*teller)
{
    if (!hotKey.registration)
        return;
    auto presses = std::find_if(hotKey.presses.begin(), hotKey.presses.end(),
                                [&](const Presses &at) { return at.timestamp == timestamp; });
    if (presses == hotKey.presses.end()) {
        if (hotKey.presses.size() == kRememberedPresses)
            hotKey.presses.pop_front();
        presses = hotKey.presses.insert(presses, {timestamp});
    }
    const int before = std::max(presses->ofHotKey, presses->ofMonitor);
    if (++((*presses).*teller) <= before)
        return;
    if (hotKey.id == HotKeyID::Activation)
        activationHotKey();
    else
        toggleCameraModeHotKey();
}

void BRApplication::activationHotKey()
{
    if (_delegate.isRecording()) {
        BRLog(BRLogDebug, "activationHotKey stopRecording");
        _delegate.stopRecording();
        _delegate.activateIgnoringOtherApps();
        return;
    }
    if (!_delegate.isWindowVisible())
        _delegate.switchToPaneWithIdentifier(u"video"_s);
    _delegate.displayWindow();
    _delegate.activateIgnoringOtherApps();
}

void BRApplication::toggleCameraModeHotKey()
{
    _delegate.toggleCameraMode();
}

// What is watched everywhere.

void BRApplication::installMonitorHandler()
{
    if (_monitor)
        return;
    auto monitor = _platform.makeInputMonitor(*this);
    if (monitor)
        _monitor = *std::move(monitor);
    else
        _report(u"Could not install event handler %1"_s.arg(statusOf(monitor.error())));
}

void BRApplication::uninstallMonitorHandler()
{
    _monitor.reset();
    // What is still on its way was meant for what has just been taken away.
    const PXLock lock(_eventsLock);
    _events.clear();
}

void BRApplication::inputMonitorKeyEvent(const PXKeyEvent &event)
{
    _enqueue(event);
}

void BRApplication::inputMonitorMouseEvent(const PXMouseEvent &event)
{
    _enqueue(event);
}

/// One call to the main thread brings all that has come meanwhile, and of a drag the newest place.
void BRApplication::_enqueue(std::variant<PXKeyEvent, PXMouseEvent> event)
{
    const PXLock lock(_eventsLock);
    const auto isDrag = [](const auto &any) {
        const auto *mouse = std::get_if<PXMouseEvent>(&any);
        return mouse != nullptr && mouse->type == PXMouseEventType::Dragged;
    };
    if (!_events.empty() && isDrag(_events.back()) && isDrag(event)) {
        _events.back() = std::move(event);
        return;
    }
    const bool mustPost = _events.empty();
    _events.push_back(std::move(event));
    if (mustPost)
        PXMainThread::post(this, [this] { _handleMonitoredEvents(); });
}

void BRApplication::_handleMonitoredEvents()
{
    std::vector<std::variant<PXKeyEvent, PXMouseEvent>> events;
    {
        const PXLock lock(_eventsLock);
        events.swap(_events);
    }
    for (const auto &event : events) {
        if (!_monitor)
            return; // A key has just ended the recording.
        if (const auto *key = std::get_if<PXKeyEvent>(&event))
            _sendEvent(*key, Origin::Monitor);
        else
            _monitorHandler(std::get<PXMouseEvent>(event));
    }
}

void BRApplication::_monitorHandler(const PXMouseEvent &event)
{
    if (_mouseEventReceiver == nullptr)
        return;
    const PXMainDisplay &display = _platform.mainDisplay();
    const PXPixelRect main = display.bounds();
    const PXPoint point
        = {static_cast<float>(event.x - main.x), static_cast<float>(event.y - main.y)};
    _mouseEventReceiver->mouseEventAtPoint(
        typeOf(event), BRFlipPoint(point, BRScreenHeightForPoint(display, point)));
}

// Who is in front.

void BRApplication::installProcessSwitchHandler()
{
    if (_frontProcess)
        return;
    auto frontProcess = _platform.makeFrontProcess();
    if (!frontProcess) {
        BRLog(BRLogWarning, PXErrorLine(frontProcess.error()));
        return;
    }
    _frontProcess = *std::move(frontProcess);
    mCurrentFrontProcess = _frontProcess->frontProcess();
    _frontProcessObservation = _frontProcess->addSwitchedObserver(
        [this] { PXMainThread::post(this, [this] { processSwitchHandler(); }); });
}

void BRApplication::processSwitchHandler()
{
    const PXProcessSerialNumber front = _frontProcess->frontProcess();
    // Another window of the same program.
    if (!_frontProcess->isSameProcess(front, mCurrentFrontProcess))
        mPreviousFrontProcess = mCurrentFrontProcess;
    mCurrentFrontProcess = front;
}

void BRApplication::deactivateByActivatingProcess(PXProcessSerialNumber process)
{
    // Whoever comes to the front takes the keyboard from us.
    if (_frontProcess)
        _frontProcess->setFrontProcess(process);
}

// Keys.

/// Whether the event has found its end.
bool BRApplication::_sendEvent(const PXKeyEvent &event, Origin origin)
{
    if (origin == Origin::Monitor) {
        if (HotKey *const hotKey = _hotKeyOf(event)) {
            if (event.type == PXKeyEventType::KeyDown && !event.isARepeat)
                _hotKeyHandler(*hotKey, event.timestamp, &Presses::ofMonitor);
            return true;
        }
        // Those of our own windows come from the toolkit.
        if (_delegate.isRecording() && !isActive())
            PXNotificationCenter::defaultCenter().postNotificationName(
                kBRExternalKeyboardEventNotification, nullptr,
                {{u"NSEvent"_s, QVariant::fromValue(event)}});
        return true;
    }
    return event.type == PXKeyEventType::KeyDown && _giveToFirstResponder(event);
}

bool BRApplication::_giveToFirstResponder(const PXKeyEvent &event) const
{
    QObject *const firstResponder = QGuiApplication::focusObject();
    if (auto *picker = dynamic_cast<BRKeyPicker *>(firstResponder)) {
        picker->keyDown(event);
        return true;
    }
    if (auto *responder = dynamic_cast<BRShortcutResponder *>(firstResponder)) {
        const PXShortcut shortcut = PXShortcut::shortcutFromEvent(event);
        return responder->respondsToShortcut(shortcut) && responder->triggerShortcut(shortcut);
    }
    return false;
}

bool BRApplication::_isTakenByFirstResponder(const PXKeyEvent &event) const
{
    QObject *const firstResponder = QGuiApplication::focusObject();
    if (dynamic_cast<BRKeyPicker *>(firstResponder) != nullptr)
        return true;
    const auto *responder = dynamic_cast<BRShortcutResponder *>(firstResponder);
    return responder != nullptr
        && responder->respondsToShortcut(PXShortcut::shortcutFromEvent(event));
}

bool BRApplication::eventFilter(QObject *watched, QEvent *event)
{
    const bool isOverride = event->type() == QEvent::ShortcutOverride;
    // The toolkit gives a key to the window first, and asks the first responder before that
    // whether it wants what would else be a menu's.
    const bool isKey = event->type() == QEvent::KeyPress && watched->isWindowType();
    if (!_keyboard || (!isKey && !isOverride))
        return false;
    const PXKeyEvent key = _eventOf(static_cast<const QKeyEvent &>(*event));
    if (isKey)
        return _sendEvent(key, Origin::OwnWindow);
    if (!_isTakenByFirstResponder(key))
        return false;
    event->accept();
    return true;
}

PXKeyEvent BRApplication::_eventOf(const QKeyEvent &event) const
{
    PXKeyEvent key;
    key.type = isModifierKey(event.key()) ? PXKeyEventType::FlagsChanged : PXKeyEventType::KeyDown;
    constexpr std::pair<Qt::KeyboardModifier, PXModifierFlags> kModifiers[]
        = {{Qt::ShiftModifier, PXModifierShift},
           {Qt::ControlModifier, PXModifierControl},
           {Qt::AltModifier, PXModifierOption},
           {Qt::MetaModifier, PXModifierCommand}};
    for (const auto &[ofToolkit, flag] : kModifiers)
        if (event.modifiers().testFlag(ofToolkit))
            key.modifierFlags |= flag;
    key.keyCode = _keyboard->keyCodeForNativeKey(event.nativeScanCode());
    key.isARepeat = event.isAutoRepeat();
    if (!event.text().isEmpty() && event.text().front().isPrint())
        key.characters = event.text();
    key.timestamp = static_cast<double>(event.timestamp()) / 1000;
    key.layout = _keyboard->layout();
    return key;
}
