#pragma once

#include "foundation/PXAnimation.h"
#include "foundation/PXTimerTarget.h"
#include "overlays/KPDefaultKeystrokeCell.h"
#include "overlays/KPKeystroke.h"

#include <QRect>
#include <QSize>
#include <QWidget>

#include <deque>
#include <optional>

class KPDefaultKeyboardVisualizer;

/// Keeps the lines of keystrokes and lays them out, the newest lowest; old ones go by themselves.
/// There are never more than the recorded rectangle has room for: then the oldest go early.
///
/// A new line slides in from below, one that gets longer grows, one that goes fades; nothing of
/// that where the user wants nothing to move. Widths, heights and offsets are pixels. Main thread.
class KPDefaultKeystrokeStackerView final : public QWidget, private PXAnimationDelegate {
public:
    /// The visualizer's window has been made; it owns this view.
    KPDefaultKeystrokeStackerView(const QRect &frame, KPDefaultKeyboardVisualizer &visualizer);

    /// Each is a line of its own, or is run together with the newest line, or, the repeat of a key
    /// that is held, counted there; as the settings say ("showMultipleKeyboardEvents",
    /// "showKeyboardCommandsSeparately", "keyboardEventNewLineDelay"). Times are those of the
    /// events.
    void addKeystroke(const KPKeystroke &keystroke);
    /// Newest first.
    [[nodiscard]] const std::deque<KPKeystroke> &keystrokes() const { return mKeystrokes; }

    /// The recorded rectangle, or what the desktop can do, has changed.
    void roomChanged();
    /// It faded out; what was left of the last line is not needed any more.
    void windowHasGone();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    enum class Animation { None, Addition, Resize, Removal };

    [[nodiscard]] static bool _mustNotStay(const KPKeystroke &line);
    [[nodiscard]] bool _runsTogether(const KPKeystroke &keystroke) const;
    void _addKeystroke(const KPKeystroke &keystroke);
    /// Takes the oldest lines away until there is room for one of that height.
    void _makeRoom(float height);
    void _removeLastKeystroke();
    void _takeLastLine();
    void _keystrokeTimer();

    void _layout();
    [[nodiscard]] KPKeystrokeStyle _currentStyle() const;
    PXSize _sizeOfKeystrokeCell(KPDefaultKeystrokeCell &cell);
    void _resizeKeystrokeCell(KPDefaultKeystrokeCell &cell);
    [[nodiscard]] QSize _sizeOfLines() const;

    /// From what is seen to `_sizeOfLines()`.
    void _animateAdditionOfShortcut(float height);
    void _animateResizeOfShortcut(float fromWidth, float toWidth);
    void _animateRemovalOfShortcut();
    void _animate(Animation description, float startingOffset, float endingOffset);
    void _endAnimation();
    void animationDidSetCurrentProgress(PXAnimation &animation, float progress) override;
    void animationDidEnd(PXAnimation &animation) override;
    [[nodiscard]] float _currentOffset() const;

    /// In the window's pixels.
    [[nodiscard]] QRect _rectOfCell(const KPDefaultKeystrokeCell &cell, float offset,
                                    float width) const;
    [[nodiscard]] QRect _rectOfNewestCell() const;

    KPDefaultKeyboardVisualizer &mVisualizer;
    std::deque<KPKeystroke> mKeystrokes; ///< Newest first.
    std::deque<KPDefaultKeystrokeCell> mKeystrokeCells; ///< One each, in that order.
    double mTimeOfLastKeystroke = 0; ///< Of its event.
    PXTimerTarget mTimer; ///< Runs while there are lines.
    PXAnimation mCurrentAnimation;
    Animation mCurrentAnimationDescription = Animation::None;
    float mCurrentAnimationProgress = 1;
    /// The interior's; where it stands follows from its size.
    QSize mWindowStartSize;
    QSize mWindowEndSize;
    /// Of an addition: how far all lines stand from their places. Of a resizing: the newest line's
    /// width.
    float mStartingOffset = 0;
    float mEndingOffset = 0;
    std::optional<KPDefaultKeystrokeCell> _leavingCell; ///< Above the others, still seen.
};
