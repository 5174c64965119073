#pragma once

#include "foundation/PXAnimation.h"

#include <QPointer>
#include <QRect>
#include <QWidget>

#include <optional>
#include <vector>

class QGraphicsOpacityEffect;

/// What becomes of one view in a `PXViewAnimation`.
struct PXViewChange {
    enum class Effect { None, FadeIn, FadeOut };

    QPointer<QWidget> target; ///< May go meanwhile.
    std::optional<QRect> startFrame = {}; ///< Where it is, unless given.
    std::optional<QRect> endFrame = {}; ///< Where it is, unless given.
    Effect effect = Effect::None; ///< One that fades out is hidden at the end, the other shown.
};

/// Moves, resizes and fades views together. Main thread.
class PXViewAnimation : public PXAnimation {
public:
    PXViewAnimation(double duration, PXAnimationCurve curve, std::vector<PXViewChange> changes);
    ~PXViewAnimation() override;

    void setCurrentProgress(float progress) override;

private:
    void _apply(const PXViewChange &change, double value) const;

    std::vector<PXViewChange> _viewAnimations;
};
