#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <functional>

/// Lets events come until it is true; false after a minute.
[[nodiscard]] inline bool waitUntil(const std::function<bool()> &isTrue)
{
    QTimer timer; // What happens on other threads and on the screen brings no event.
    timer.start(10);
    const QDeadlineTimer deadline(60'000);
    while (!isTrue()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}
