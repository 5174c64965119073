#pragma once

#include <QTimer>
#include <QVariant>

#include <functional>

/// A timer whose owner it does not keep alive: it ends with this object, and with it goes what it
/// was to call. Lives on the thread that schedules it, which needs an event loop.
class PXTimerTarget final {
public:
    using Action = std::function<void(PXTimerTarget &)>;

    PXTimerTarget() = default;
    PXTimerTarget(const PXTimerTarget &) = delete;
    PXTimerTarget &operator=(const PXTimerTarget &) = delete;

    /// Calls `action` every `interval` seconds, or once after it. What was scheduled before is
    /// over. The action may invalidate or schedule anew, but not destroy the timer.
    void scheduleTimerWithTimeInterval(double interval, Action action, QVariant userInfo = {},
                                       bool repeats = true);
    /// Calls the action now, valid or not; nothing before the first scheduling.
    void fire();
    /// A call is still to come.
    [[nodiscard]] bool isValid() const { return _timer.isActive(); }
    void invalidate() { _timer.stop(); }
    [[nodiscard]] const QVariant &userInfo() const { return _userInfo; }

private:
    QTimer _timer;
    Action _action;
    QVariant _userInfo;
    QMetaObject::Connection _connection;
};
