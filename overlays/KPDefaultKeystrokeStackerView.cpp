#include "overlays/KPDefaultKeystrokeStackerView.h"

#include "foundation/PXClock.h"
#include "foundation/PXDefaults.h"
#include "overlays/KPDefaultKeyboardVisualizer.h"
#include "widgets/PXPixelPainter.h"

#include <QPaintEvent>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr double kExpiryInterval = 0.1;
constexpr double kAnimationDuration = 0.18;
constexpr float kFirstAlpha = 0.35F; ///< A new line is seen from its first step on.

const PXDefaults &defaults()
{
    return PXDefaults::standardUserDefaults();
}

/// Fast at first, so that nobody waits for what he has typed.
float eased(float progress)
{
    const float rest = 1 - progress;
    return 1 - rest * rest * rest;
}

float between(float start, float end, float value)
{
    return start + (end - start) * value;
}

int toPixels(float length)
{
    return static_cast<int>(std::lround(length));
}

} // namespace

KPDefaultKeystrokeStackerView::KPDefaultKeystrokeStackerView(
    const QRect &frame, KPDefaultKeyboardVisualizer &visualizer)
    : mVisualizer(visualizer), mCurrentAnimation(kAnimationDuration, PXAnimationCurve::Linear)
{
    setGeometry(frame);
    mCurrentAnimation.setDelegate(this);
    _layout();
}

// Lines.

void KPDefaultKeystrokeStackerView::addKeystroke(const KPKeystroke &keystroke)
{
    const bool isCounted = !mKeystrokes.empty() && !_mustNotStay(mKeystrokes.front())
        && mKeystrokes.front().countRepeat(keystroke);
    if (isCounted || _runsTogether(keystroke)) {
        if (!isCounted)
            mKeystrokes.front().appendKeystroke(keystroke);
        mKeystrokeCells.front().setKeystroke(mKeystrokes.front());
        _resizeKeystrokeCell(mKeystrokeCells.front());
    } else {
        if (!defaults().boolValue(u"showMultipleKeyboardEvents"_s))
            _removeLastKeystroke();
        _addKeystroke(keystroke);
    }
    mTimeOfLastKeystroke = keystroke.eventTime();
}

/// What was typed before the user asked for no characters is not to stay any longer.
bool KPDefaultKeystrokeStackerView::_mustNotStay(const KPKeystroke &line)
{
    return line.hasType(KPKeystrokeType::Character)
        && !defaults().boolValue(u"showKeyboardCharacters"_s);
}

bool KPDefaultKeystrokeStackerView::_runsTogether(const KPKeystroke &keystroke) const
{
    if (mKeystrokes.empty() || !defaults().boolValue(u"showMultipleKeyboardEvents"_s))
        return false;
    if (keystroke.type() == KPKeystrokeType::Shortcut
        && defaults().boolValue(u"showKeyboardCommandsSeparately"_s))
        return false;
    if (_mustNotStay(mKeystrokes.front()))
        return false;
    const double delay = defaults().secondsValue(u"keyboardEventNewLineDelay"_s);
    return keystroke.eventTime() - mTimeOfLastKeystroke < delay;
}

void KPDefaultKeystrokeStackerView::_addKeystroke(const KPKeystroke &keystroke)
{
    _endAnimation();
    KPDefaultKeystrokeCell cell(keystroke);
    const PXSize size = _sizeOfKeystrokeCell(cell);
    cell.setCachedCellFrame({0, -size.height, size.width, size.height});
    _makeRoom(size.height);
    mKeystrokes.push_front(keystroke);
    mKeystrokeCells.push_front(std::move(cell));
    _layout();
    if (mKeystrokes.size() == 1) {
        _leavingCell.reset();
        mVisualizer.window().setInteriorSize(_sizeOfLines(), true);
        mVisualizer.fadeIn();
    } else {
        _animateAdditionOfShortcut(size.height);
    }
    if (!mTimer.isValid())
        mTimer.scheduleTimerWithTimeInterval(kExpiryInterval,
                                             [this](PXTimerTarget &) { _keystrokeTimer(); });
}

void KPDefaultKeystrokeStackerView::_makeRoom(float height)
{
    const float room = mVisualizer.roomForLines().height;
    while (!mKeystrokes.empty() && static_cast<float>(_sizeOfLines().height()) + height > room) {
        _leavingCell = mKeystrokeCells.back();
        PXRect frame = _leavingCell->cachedCellFrame();
        frame.y += height; // It goes up with the others.
        _leavingCell->setCachedCellFrame(frame);
        _takeLastLine();
    }
}

void KPDefaultKeystrokeStackerView::_takeLastLine()
{
    mKeystrokes.pop_back();
    mKeystrokeCells.pop_back();
}

void KPDefaultKeystrokeStackerView::_removeLastKeystroke()
{
    if (mKeystrokes.empty())
        return;
    const bool isLast = mKeystrokes.size() == 1;
    const bool stays = !isLast || defaults().boolValue(u"showKeyboardAlways"_s);
    _endAnimation();
    if (!stays)
        mVisualizer.fadeOut();
    _leavingCell = mKeystrokeCells.back();
    _takeLastLine();
    if (stays) {
        _layout();
        _animateRemovalOfShortcut();
    }
    update();
}

void KPDefaultKeystrokeStackerView::_keystrokeTimer()
{
    const double duration = defaults().secondsValue(u"keyboardEventDuration"_s);
    if (!mKeystrokes.empty()
        && PXTimeIntervalSinceReferenceDate() - mKeystrokes.back().time() > duration)
        _removeLastKeystroke();
    if (mKeystrokes.empty())
        mTimer.invalidate();
}

void KPDefaultKeystrokeStackerView::roomChanged()
{
    if (_currentStyle() == mVisualizer.window().style())
        return;
    _layout();
    _endAnimation();
    mVisualizer.window().setInteriorSize(_sizeOfLines(), true);
}

void KPDefaultKeystrokeStackerView::windowHasGone()
{
    _endAnimation();
}

// Layout.

KPKeystrokeStyle KPDefaultKeystrokeStackerView::_currentStyle() const
{
    return KPKeystrokeStyle::currentStyle(mVisualizer.roomForLines(),
                                          mVisualizer.window().isCompositing()
                                              ? KPKeystrokeStyle::Blending::Translucent
                                              : KPKeystrokeStyle::Blending::Opaque);
}

PXSize KPDefaultKeystrokeStackerView::_sizeOfKeystrokeCell(KPDefaultKeystrokeCell &cell)
{
    return cell.sizeWithStyle(_currentStyle());
}

void KPDefaultKeystrokeStackerView::_layout()
{
    const KPKeystrokeStyle style = _currentStyle();
    mVisualizer.window().setStyle(style);
    float bottom = 0;
    for (KPDefaultKeystrokeCell &cell : mKeystrokeCells) {
        const PXSize size = cell.sizeWithStyle(style);
        cell.setCachedCellFrame({0, bottom, size.width, size.height});
        bottom += size.height;
    }
}

QSize KPDefaultKeystrokeStackerView::_sizeOfLines() const
{
    if (mKeystrokeCells.empty())
        return {mVisualizer.window().interiorSize().width(), 0};
    float width = 0;
    for (const KPDefaultKeystrokeCell &cell : mKeystrokeCells)
        width = std::max(width, cell.cachedCellFrame().width);
    return {toPixels(width), toPixels(mKeystrokeCells.back().cachedCellFrame().maxY())};
}

void KPDefaultKeystrokeStackerView::_resizeKeystrokeCell(KPDefaultKeystrokeCell &cell)
{
    const float before = cell.cachedCellFrame().width;
    _layout();
    _animateResizeOfShortcut(before, cell.cachedCellFrame().width);
}

// Animations.

void KPDefaultKeystrokeStackerView::_animateAdditionOfShortcut(float height)
{
    _animate(Animation::Addition, -height, 0);
}

void KPDefaultKeystrokeStackerView::_animateResizeOfShortcut(float fromWidth, float toWidth)
{
    float seen = fromWidth;
    if (mCurrentAnimationDescription == Animation::Resize)
        seen = _currentOffset(); // It goes on from there.
    else
        _endAnimation();
    _animate(Animation::Resize, seen, toWidth);
}

void KPDefaultKeystrokeStackerView::_animateRemovalOfShortcut()
{
    _animate(Animation::Removal, 0, 0);
}

void KPDefaultKeystrokeStackerView::_animate(Animation description, float startingOffset,
                                             float endingOffset)
{
    KPDefaultWindow &window = mVisualizer.window();
    mCurrentAnimation.stopAnimation();
    mWindowStartSize = window.shownInteriorSize();
    mWindowEndSize = _sizeOfLines();
    const bool moves = window.isVisible() && !window.windowServer().prefersReducedMotion();
    if (moves)
        window.setShownInteriorSize(mWindowStartSize);
    window.setInteriorSize(mWindowEndSize, mWindowStartSize != mWindowEndSize);
    mCurrentAnimationDescription = description;
    mCurrentAnimation.setFrameRate(mVisualizer.refreshRate());
    mStartingOffset = startingOffset;
    mEndingOffset = endingOffset;
    if (moves)
        mCurrentAnimation.startAnimation();
    else
        _endAnimation();
}

float KPDefaultKeystrokeStackerView::_currentOffset() const
{
    return between(mStartingOffset, mEndingOffset, eased(mCurrentAnimationProgress));
}

void KPDefaultKeystrokeStackerView::animationDidSetCurrentProgress(PXAnimation &, float progress)
{
    mCurrentAnimationProgress = progress;
    const float value = eased(progress);
    if (mCurrentAnimationDescription == Animation::Addition && !mKeystrokeCells.empty())
        mKeystrokeCells.front().setAlphaValue(static_cast<double>(between(kFirstAlpha, 1, value)));
    if (_leavingCell)
        _leavingCell->setAlphaValue(static_cast<double>(1 - value));
    const auto length = [&](int start, int end) {
        return toPixels(between(static_cast<float>(start), static_cast<float>(end), value));
    };
    mVisualizer.window().setShownInteriorSize(
        QSize(length(mWindowStartSize.width(), mWindowEndSize.width()),
              length(mWindowStartSize.height(), mWindowEndSize.height())));
    // Whatever changes the bezel has it painted.
    if (mWindowStartSize == mWindowEndSize && mCurrentAnimationDescription == Animation::Resize)
        PXPixels::update(*this, _rectOfNewestCell());
    else
        mVisualizer.window().update();
}

void KPDefaultKeystrokeStackerView::animationDidEnd(PXAnimation &)
{
    _endAnimation();
}

void KPDefaultKeystrokeStackerView::_endAnimation()
{
    mCurrentAnimation.stopAnimation();
    mCurrentAnimationDescription = Animation::None;
    mCurrentAnimationProgress = 1;
    _leavingCell.reset();
    for (KPDefaultKeystrokeCell &cell : mKeystrokeCells)
        cell.setAlphaValue(1);
    mVisualizer.window().setShownInteriorSize(std::nullopt);
    update();
}

// Painting.

QRect KPDefaultKeystrokeStackerView::_rectOfCell(const KPDefaultKeystrokeCell &cell, float offset,
                                                 float width) const
{
    const QRect interior = mVisualizer.window().interiorRect();
    const PXRect &frame = cell.cachedCellFrame();
    const int x
        = KPAnchoredOffset(mVisualizer.window().fixedPoint().x, interior.width(), toPixels(width));
    const int top = interior.y() + interior.height() - toPixels(frame.maxY() + offset);
    return {interior.x() + x, top, toPixels(width), toPixels(frame.height)};
}

QRect KPDefaultKeystrokeStackerView::_rectOfNewestCell() const
{
    const KPDefaultKeystrokeCell &cell = mKeystrokeCells.front();
    return _rectOfCell(cell, 0, std::max(mStartingOffset, mEndingOffset));
}

void KPDefaultKeystrokeStackerView::paintEvent(QPaintEvent *event)
{
    const bool isAddition = mCurrentAnimationDescription == Animation::Addition;
    const bool isResize = mCurrentAnimationDescription == Animation::Resize;
    const float offset = isAddition ? _currentOffset() : 0;
    PXPixelPainter painter(this);
    // Lines that come and go do so inside of the bezel's border.
    const int border = KPBezelWindow::kInset - 1;
    painter.setClipRect(
        mVisualizer.window().interiorRect().adjusted(-border, -border, border, border));
    const auto draw = [&](KPDefaultKeystrokeCell &cell, float width) {
        const QRect rect = _rectOfCell(cell, offset, width);
        if (event->region().intersects(PXPixels::widgetRect(rect, *this)))
            cell.drawWithFrame(rect, painter);
    };
    bool isNewest = true;
    for (KPDefaultKeystrokeCell &cell : mKeystrokeCells) {
        draw(cell, isNewest && isResize ? _currentOffset() : cell.cachedCellFrame().width);
        isNewest = false;
    }
    if (_leavingCell)
        draw(*_leavingCell, _leavingCell->cachedCellFrame().width);
}
