#pragma once

#include "foundation/PXTimerTarget.h"

#include <QElapsedTimer>

#include <vector>

class QEventLoop;
class PXAnimation;

/// Hears how an animation goes on; on its thread. All calls are optional.
class PXAnimationDelegate {
public:
    /// `progress` is one of the animation's marks, and was reached or passed. In rising order.
    virtual void animationDidReachProgressMark(PXAnimation &, float /*progress*/) { }
    /// At every step, not only at the marks; after those that the step has passed.
    virtual void animationDidSetCurrentProgress(PXAnimation &, float /*progress*/) { }
    virtual void animationDidEnd(PXAnimation &) { }

protected:
    ~PXAnimationDelegate() = default;
};

enum class PXAnimationCurve { Linear, EaseInOut };
enum class PXAnimationBlocking {
    Blocking, ///< `startAnimation()` returns at the end; meanwhile input of the user waits.
    Nonblocking,
};

/// Something that goes from 0 to 1 in a given time, step by step; a step that comes late
/// takes account of it. Lives on one thread with an event loop.
class PXAnimation {
public:
    /// `duration` in seconds; none ends at once.
    PXAnimation(double duration, PXAnimationCurve curve);
    virtual ~PXAnimation();
    PXAnimation(const PXAnimation &) = delete;
    PXAnimation &operator=(const PXAnimation &) = delete;

    /// Not owned; outlives the animation.
    void setDelegate(PXAnimationDelegate *delegate) { _delegate = delegate; }
    /// Steps a second at most; 60 unless set. From the next start on.
    void setFrameRate(double framesPerSecond) { _frameRate = framesPerSecond; }
    void setAnimationBlockingMode(PXAnimationBlocking mode) { _blocking = mode; }
    /// 0 to 1, in any order.
    void setProgressMarks(std::vector<float> marks);

    /// From 0; nothing while it runs.
    void startAnimation();
    /// Where it stands; the delegate hears of the end only if it got there.
    void stopAnimation();
    [[nodiscard]] bool isAnimating() const { return _timer.isValid(); }
    [[nodiscard]] float currentProgress() const { return _progress; }

    /// Tells the delegate of the marks that lie between and then of the progress itself.
    virtual void setCurrentProgress(float progress);
    /// What the curve makes of a progress, 0 to 1.
    [[nodiscard]] float valueAt(float progress) const;
    [[nodiscard]] float currentValue() const { return valueAt(_progress); }

private:
    void _step();

    const double _duration;
    const PXAnimationCurve _curve;
    double _frameRate = 60;
    PXAnimationBlocking _blocking = PXAnimationBlocking::Nonblocking;
    PXAnimationDelegate *_delegate = nullptr;
    std::vector<float> _progressMarks; ///< In rising order.
    std::size_t _nextMark = 0;
    float _progress = 0;
    QElapsedTimer _clock;
    PXTimerTarget _timer;
    QEventLoop *_loop = nullptr; ///< Of a blocking run.
};
