#pragma once

#include "foundation/PXAlert.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXMutex.h"
#include "foundation/PXObservation.h"
#include "platform/PXScreenPlatform.h"

#include <QObject>
#include <QString>

#include <deque>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

class PXShortcut;
class QKeyEvent;

/// Posted for each key that the user presses in another program while a recording runs. Its user
/// info has the `PXKeyEvent` under "NSEvent".
extern const QString kBRExternalKeyboardEventNotification;

/// From an origin at the upper left, y down, to one at the lower left, and back.
PXPoint BRFlipPoint(PXPoint point, float height);
/// The height of the display that shows this point of the global coordinates with y down, whose
/// origin is the main display's upper left corner; the main display's where none does.
float BRScreenHeightForPoint(const PXMainDisplay &mainDisplay, PXPoint point);

/// What the hot keys act on: the window and its recordings. Outlives the application; main thread.
class BRApplicationDelegate {
public:
    [[nodiscard]] virtual bool isRecording() const = 0;
    virtual void stopRecording() = 0;
    /// Of the recorder that runs; nothing without one.
    virtual void toggleCameraMode() = 0;
    /// Brings the program forward.
    virtual void activateIgnoringOtherApps() = 0;
    [[nodiscard]] virtual bool isWindowVisible() const = 0;
    virtual void switchToPaneWithIdentifier(const QString &identifier) = 0;
    virtual void displayWindow() = 0;

protected:
    ~BRApplicationDelegate() = default;
};

/// The numbers of stored events.
enum class BRMouseEventType {
    LeftMouseDown = 1,
    LeftMouseUp = 2,
    RightMouseDown = 3,
    RightMouseUp = 4,
    LeftMouseDragged = 6,
    RightMouseDragged = 7,
};

/// Who shows what the mouse does. Outlives the application; main thread.
class BRMouseEventReceiver {
public:
    /// `point`: y up, flipped with the height of the display that shows it, so that it is right on
    /// each display for itself.
    virtual void mouseEventAtPoint(BRMouseEventType type, PXPoint point) = 0;

protected:
    ~BRMouseEventReceiver() = default;
};

/// What reaches beyond the program's own windows: hot keys, mouse and keys of other programs while
/// a recording runs, and which program was in front before. Main thread.
class BRApplication final : private QObject, private PXInputMonitorDelegate {
public:
    /// `alert` may be null. All outlive it.
    BRApplication(PXScreenPlatform &platform, BRApplicationDelegate &delegate, PXAlert *alert);
    ~BRApplication() override;

    /// Hot keys and the front program are followed from here on, and keys of our own windows looked
    /// at, where there is a toolkit.
    void awakeFromNib();

    /// Reads both shortcuts from the settings and registers them in the place of those before. One
    /// that another program holds is reported with a beep and a line in the log.
    void setupHotKeys();

    /// Who hears of the mouse; none until then.
    void setMouseEventReceiver(BRMouseEventReceiver *receiver) { _mouseEventReceiver = receiver; }
    /// From now on mouse and keys are watched everywhere. Again: nothing.
    void installMonitorHandler();
    void uninstallMonitorHandler();

    void installProcessSwitchHandler();
    /// The program that was in front before the one that is.
    [[nodiscard]] PXProcessSerialNumber previousFrontProcess() const
    {
        return mPreviousFrontProcess;
    }
    /// Gives the keyboard to another program.
    void deactivateByActivatingProcess(PXProcessSerialNumber process);

    /// Null where the display has none.
    [[nodiscard]] const PXKeyboard *keyboard() const { return _keyboard.get(); }

private:
    enum class HotKeyID { Activation = 1, ToggleCameraMode = 2 };
    /// Those of one millisecond, which is as exact as times are, by who has told of them.
    struct Presses {
        double timestamp;
        int ofHotKey = 0;
        int ofMonitor = 0;
    };
    struct HotKey {
        HotKeyID id;
        std::unique_ptr<PXHotKey> registration; ///< Null: not registered.
        std::uint16_t keyCode = 0;
        std::uint32_t modifiers = 0;
        std::deque<Presses> presses = {}; ///< The newest ones, by their time.
    };
    enum class Origin { OwnWindow, Monitor };

    bool _openKeyboard();
    void _registerShortcut(const std::optional<PXShortcut> &shortcut, HotKey &hotKey);
    HotKey *_hotKeyOf(const PXKeyEvent &event);
    void _hotKeyHandler(HotKey &hotKey, double timestamp, int Presses::*teller);
    void activationHotKey();
    void toggleCameraModeHotKey();
    void _report(const QString &message);

    bool _sendEvent(const PXKeyEvent &event, Origin origin);
    bool _giveToFirstResponder(const PXKeyEvent &event) const;
    [[nodiscard]] bool _isTakenByFirstResponder(const PXKeyEvent &event) const;
    bool eventFilter(QObject *watched, QEvent *event) override;
    [[nodiscard]] PXKeyEvent _eventOf(const QKeyEvent &event) const;

    // The monitor's thread.
    void inputMonitorKeyEvent(const PXKeyEvent &event) override;
    void inputMonitorMouseEvent(const PXMouseEvent &event) override;
    void _enqueue(std::variant<PXKeyEvent, PXMouseEvent> event);

    void _handleMonitoredEvents();
    void _monitorHandler(const PXMouseEvent &event);
    void processSwitchHandler();

    PXScreenPlatform &_platform;
    BRApplicationDelegate &_delegate;
    PXAlert *const _alert;
    BRMouseEventReceiver *_mouseEventReceiver = nullptr;

    std::unique_ptr<PXKeyboard> _keyboard;
    HotKey _activationHotKey = {HotKeyID::Activation, nullptr};
    HotKey _toggleCameraModeHotKey = {HotKeyID::ToggleCameraMode, nullptr};

    PXProcessSerialNumber mPreviousFrontProcess;
    PXProcessSerialNumber mCurrentFrontProcess;
    std::unique_ptr<PXFrontProcess> _frontProcess;
    PXObservation _frontProcessObservation;

    PXMutex _eventsLock;
    std::vector<std::variant<PXKeyEvent, PXMouseEvent>> _events PX_GUARDED_BY(_eventsLock);
    std::unique_ptr<PXInputMonitor> _monitor; // Last: its thread uses the rest.
};
