#include "foundation/PXTimerTarget.h"

#include <chrono>
#include <utility>

void PXTimerTarget::scheduleTimerWithTimeInterval(double interval, Action action, QVariant userInfo,
                                                  bool repeats)
{
    _action = std::move(action);
    _userInfo = std::move(userInfo);
    QObject::disconnect(_connection);
    _connection = QObject::connect(&_timer, &QTimer::timeout, &_timer, [this] { fire(); });
    _timer.setTimerType(Qt::PreciseTimer);
    _timer.setSingleShot(!repeats);
    _timer.start(std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(interval)));
}

void PXTimerTarget::fire()
{
    // A copy: the action may schedule another one in its own place.
    if (const Action action = _action)
        action(*this);
}
