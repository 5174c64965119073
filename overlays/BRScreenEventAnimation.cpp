#include "overlays/BRScreenEventAnimation.h"

#include "foundation/PXClock.h"
#include "foundation/PXDefaults.h"
#include "input/PXShortcut.h"

#include <cmath>
#include <numbers>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

double durationOf(BRScreenEventType type)
{
    const PXDefaults &defaults = PXDefaults::standardUserDefaults();
    switch (type) {
    case BRScreenEventType::LeftMouseDown:
    case BRScreenEventType::LeftMouseUp:
    case BRScreenEventType::RightMouseDown:
    case BRScreenEventType::RightMouseUp:
        return defaults.secondsValue(u"mouseClickDuration"_s);
    case BRScreenEventType::KeyCombo:
        return defaults.secondsValue(u"keyboardEventDuration"_s);
    case BRScreenEventType::LeftMouseDragged:
    case BRScreenEventType::RightMouseDragged:
        break;
    }
    return 0;
}

} // namespace

BRScreenEventAnimation
BRScreenEventAnimation::eventAnimationWithEventType(BRScreenEventType eventType, PXPoint location,
                                                    BRScreenEventProperties properties)
{
    return {eventType, location, std::move(properties)};
}

BRScreenEventAnimation::BRScreenEventAnimation(BRScreenEventType eventType, PXPoint location,
                                               BRScreenEventProperties properties)
    : mEventType(eventType),
      mEventTime(PXTimeIntervalSinceReferenceDate()),
      mEventProperties(std::move(properties)),
      mEventLocation(location),
      mAnimationDuration(durationOf(eventType))
{
}

bool BRScreenEventAnimation::isDone() const
{
    return PXTimeIntervalSinceReferenceDate() - mEventTime > mAnimationDuration;
}

float BRScreenEventAnimation::progress() const
{
    const auto t = static_cast<float>((PXTimeIntervalSinceReferenceDate() - mEventTime)
                                      / mAnimationDuration);
    return 1 + std::sin(-std::numbers::pi_v<float> / 2 * (t + 1));
}

QString BRScreenEventAnimation::stringForKeyCombo() const
{
    if (!mEventProperties.NSEvent)
        return {};
    return PXShortcut::shortcutFromEvent(*mEventProperties.NSEvent).displayString();
}
