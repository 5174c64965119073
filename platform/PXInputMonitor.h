#pragma once

#include "platform/PXKeyEvent.h"

enum class PXMouseButton { Primary, Secondary };
enum class PXMouseEventType { Down, Up, Dragged };

struct PXMouseEvent {
    PXMouseEventType type = PXMouseEventType::Down;
    PXMouseButton button = PXMouseButton::Primary; ///< As the user has arranged them.
    // The pointer's place in the desktop's pixels.
    int x = 0;
    int y = 0;
};

/// Hears what the user does with keyboard and mouse, whichever program it is for; that program
/// gets it all the same. On one thread of the back end, "tolvane-input".
class PXInputMonitorDelegate {
public:
    /// Each key once, and again, as a repeat, while it is held.
    virtual void inputMonitorKeyEvent(const PXKeyEvent &event) = 0;
    /// Drags come while one of the two buttons is held, and only the newest place of those that
    /// come at once. Buttons other than the two are left out.
    virtual void inputMonitorMouseEvent(const PXMouseEvent &event) = 0;

protected:
    ~PXInputMonitorDelegate() = default;
};

/// Watches for as long as it lives, also while a menu or another program keeps keyboard and pointer
/// to itself. Costs nothing while the user touches nothing. What it sees is kept nowhere and never
/// logged. Destroying it waits for a call that is under way; not from such a call.
class PXInputMonitor {
public:
    virtual ~PXInputMonitor() = default;
};
