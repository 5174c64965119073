#include "foundation/PXAnimation.h"

#include <QEventLoop>

#include <algorithm>
#include <utility>

PXAnimation::PXAnimation(double duration, PXAnimationCurve curve)
    : _duration(duration), _curve(curve)
{
}

PXAnimation::~PXAnimation()
{
    stopAnimation();
}

void PXAnimation::setProgressMarks(std::vector<float> marks)
{
    std::sort(marks.begin(), marks.end());
    _progressMarks = std::move(marks);
    _nextMark = 0;
}

void PXAnimation::startAnimation()
{
    if (isAnimating())
        return;
    _nextMark = 0;
    _progress = 0;
    _clock.start();
    _timer.scheduleTimerWithTimeInterval(1 / _frameRate, [this](PXTimerTarget &) { _step(); });
    _step();
    if (_blocking != PXAnimationBlocking::Blocking || !isAnimating())
        return;
    QEventLoop loop;
    _loop = &loop;
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    _loop = nullptr;
}

void PXAnimation::stopAnimation()
{
    _timer.invalidate();
    if (_loop != nullptr)
        _loop->quit();
}

void PXAnimation::_step()
{
    const double elapsed = static_cast<double>(_clock.nsecsElapsed()) / 1e9;
    const bool isAtEnd = elapsed >= _duration;
    setCurrentProgress(isAtEnd ? 1.0F : static_cast<float>(elapsed / _duration));
    if (!isAtEnd || !isAnimating())
        return;
    stopAnimation();
    if (_delegate != nullptr)
        _delegate->animationDidEnd(*this);
}

void PXAnimation::setCurrentProgress(float progress)
{
    _progress = std::clamp(progress, 0.0F, 1.0F);
    while (_nextMark < _progressMarks.size() && _progressMarks[_nextMark] <= _progress) {
        const float mark = _progressMarks[_nextMark++];
        if (_delegate != nullptr)
            _delegate->animationDidReachProgressMark(*this, mark);
    }
    if (_delegate != nullptr)
        _delegate->animationDidSetCurrentProgress(*this, _progress);
}

float PXAnimation::valueAt(float progress) const
{
    if (_curve == PXAnimationCurve::Linear)
        return progress;
    return progress * progress * (3 - 2 * progress); // Slow at both ends.
}
