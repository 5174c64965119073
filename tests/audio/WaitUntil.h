#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <chrono>
#include <functional>
#include <thread>

/// Runs the event loop until something is true that tells nobody; fails the test after a minute.
inline void waitUntil(const std::function<bool()> &isTrue)
{
    const QDeadlineTimer deadline(60'000);
    while (!isTrue()) {
        ASSERT_FALSE(deadline.hasExpired()) << "waited in vain";
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
