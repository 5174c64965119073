#include "widgets/PXViewAnimation.h"

#include <QGraphicsOpacityEffect>

#include <cmath>

namespace {

int between(int start, int end, double value)
{
    return static_cast<int>(std::lround(start + (end - start) * value));
}

void setOpacity(QWidget &view, double opacity)
{
    // An effect costs a picture of the view; none is left behind.
    if (opacity >= 1) {
        view.setGraphicsEffect(nullptr);
        return;
    }
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(view.graphicsEffect());
    if (effect == nullptr) {
        effect = new QGraphicsOpacityEffect(&view);
        view.setGraphicsEffect(effect);
    }
    effect->setOpacity(opacity);
}

} // namespace

PXViewAnimation::PXViewAnimation(double duration, PXAnimationCurve curve,
                                 std::vector<PXViewChange> changes)
    : PXAnimation(duration, curve), _viewAnimations(std::move(changes))
{
    for (PXViewChange &change : _viewAnimations) {
        if (!change.target)
            continue;
        change.startFrame = change.startFrame.value_or(change.target->geometry());
        change.endFrame = change.endFrame.value_or(change.target->geometry());
    }
}

PXViewAnimation::~PXViewAnimation() = default;

void PXViewAnimation::setCurrentProgress(float progress)
{
    // First the views, so that the delegate finds them where they belong.
    for (const PXViewChange &change : _viewAnimations)
        _apply(change, static_cast<double>(valueAt(progress)));
    PXAnimation::setCurrentProgress(progress);
}

void PXViewAnimation::_apply(const PXViewChange &change, double value) const
{
    if (!change.target)
        return;
    QWidget &view = *change.target;
    const QRect &start = *change.startFrame;
    const QRect &end = *change.endFrame;
    view.setGeometry(between(start.x(), end.x(), value), between(start.y(), end.y(), value),
                     between(start.width(), end.width(), value),
                     between(start.height(), end.height(), value));
    if (change.effect == PXViewChange::Effect::FadeIn) {
        setOpacity(view, value);
        view.show();
    } else if (change.effect == PXViewChange::Effect::FadeOut) {
        const bool isGone = value >= 1;
        setOpacity(view, isGone ? 1 : 1 - value);
        view.setVisible(!isGone);
    }
}
