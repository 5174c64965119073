#pragma once

#include "foundation/PXObservation.h"
#include "platform/PXKeyEvent.h"

#include <QVariantMap>

/// Hears of the keys that the user presses in other programs. What it does with them is up to
/// whoever inherits. Main thread, on which the events are posted.
class KPKeyboardVisualizer {
public:
    KPKeyboardVisualizer();
    virtual ~KPKeyboardVisualizer();
    KPKeyboardVisualizer(const KPKeyboardVisualizer &) = delete;
    KPKeyboardVisualizer &operator=(const KPKeyboardVisualizer &) = delete;

    /// `userInfo` has the event under "NSEvent".
    void externalKeyboardEventNotification(const QVariantMap &userInfo);

protected:
    virtual void externalKeyboardEvent(const PXKeyEvent &) { }

private:
    PXObservation _observation;
};
