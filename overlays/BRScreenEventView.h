#pragma once

#include "foundation/PXGeometry.h"
#include "foundation/PXTimerTarget.h"
#include "input/BRApplication.h"
#include "overlays/BRScreenEventAnimation.h"
#include "platform/PXMainDisplay.h"

#include <QRect>
#include <QRegion>
#include <QWidget>

#include <vector>

class BROverlayWindow;

/// Marks clicks: a small filled circle under the pointer while a button is held, and one that grows
/// from where it was released and fades. Fills an overlay over the main display; of that only the
/// marks' surroundings are there for the desktop, so that nothing else has to be blended. Where the
/// desktop cannot blend, the marks are cut out, without their shadows, and fade in four steps: with
/// ever fewer of their pixels. No wake-ups while nothing fades. Main thread.
class BRScreenEventView final : public QWidget {
public:
    /// Both outlive it.
    BRScreenEventView(BROverlayWindow &window, PXMainDisplay &mainDisplay);

    /// `point`: the main display's coordinates.
    void showMouseEventAtPoint(BRMouseEventType eventType, PXPoint point);
    /// No mark at all.
    void clear();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void redraw(); ///< Thirty times a second while something fades.
    void drawMouseClick(QPainter &painter, const BRScreenEventAnimation &animation, bool isRight);
    void drawMouseDownAtLocation(QPainter &painter, PXPoint location, float progress, bool isRight);

    [[nodiscard]] bool _isHeld() const { return mDrawLeftMouseDown || mDrawRightMouseDown; }
    /// A mark's circle in the window's pixels.
    [[nodiscard]] QRectF _circleAt(PXPoint location, float progress) const;
    /// All that a mark can reach from now on.
    [[nodiscard]] QRect _surroundingsOf(PXPoint location, float progress) const;
    void _followPointer();
    void _marksChanged();

    BROverlayWindow &_window;
    PXMainDisplay &_mainDisplay;
    PXTimerTarget mAnimationTimer;
    std::vector<BRScreenEventAnimation> mAnimations; ///< Oldest first.
    bool mDrawLeftMouseDown = false;
    bool mDrawRightMouseDown = false;
    PXPoint mMouseLocation;
    QRegion _shape; ///< The window's.
    QRegion _painted; ///< What marks may have left on the window.
};
