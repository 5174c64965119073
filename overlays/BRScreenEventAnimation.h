#pragma once

#include "foundation/PXGeometry.h"
#include "input/BRApplication.h"
#include "platform/PXKeyEvent.h"

#include <QString>

#include <optional>

/// What kind of event a record is about: the mouse's, by the numbers of stored events, and one of
/// our own.
enum class BRScreenEventType {
    LeftMouseDown = static_cast<int>(BRMouseEventType::LeftMouseDown),
    LeftMouseUp = static_cast<int>(BRMouseEventType::LeftMouseUp),
    RightMouseDown = static_cast<int>(BRMouseEventType::RightMouseDown),
    RightMouseUp = static_cast<int>(BRMouseEventType::RightMouseUp),
    LeftMouseDragged = static_cast<int>(BRMouseEventType::LeftMouseDragged),
    RightMouseDragged = static_cast<int>(BRMouseEventType::RightMouseDragged),
    KeyCombo = 10,
};

/// What else belongs to a record.
struct BRScreenEventProperties {
    std::optional<PXKeyEvent> NSEvent; ///< Of a key combination.
};

/// Something that happened on the screen and is shown for a moment: knows how far it has got.
/// How long it lasts is read from the settings when it is made. Main thread.
class BRScreenEventAnimation final {
public:
    static BRScreenEventAnimation
    eventAnimationWithEventType(BRScreenEventType eventType, PXPoint location,
                                BRScreenEventProperties properties = {});
    BRScreenEventAnimation(BRScreenEventType eventType, PXPoint location,
                           BRScreenEventProperties properties);

    [[nodiscard]] BRScreenEventType eventType() const { return mEventType; }
    /// Of the reference-date clock.
    [[nodiscard]] double eventTime() const { return mEventTime; }
    [[nodiscard]] PXPoint eventLocation() const { return mEventLocation; }
    /// Seconds.
    [[nodiscard]] double duration() const { return mAnimationDuration; }
    [[nodiscard]] bool isDone() const;
    /// 0 when it was made, 1 at its end, slow at first: 1 - cos(pi/2 t), the first quarter of a
    /// cosine wave.
    [[nodiscard]] float progress() const;
    /// Of the key combination; empty without one.
    [[nodiscard]] QString stringForKeyCombo() const;

private:
    BRScreenEventType mEventType;
    double mEventTime;
    BRScreenEventProperties mEventProperties;
    PXPoint mEventLocation;
    double mAnimationDuration;
};
