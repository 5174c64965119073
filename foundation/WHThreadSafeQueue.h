#pragma once

#include "foundation/PXMutex.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <optional>
#include <stop_token>
#include <utility>

/// A first-in first-out queue between threads; whoever takes from an empty one waits.
template <typename T> class WHThreadSafeQueue final {
public:
    void enqueue(T object)
    {
        {
            const PXLock lock(_lock);
            _objects.push_back(std::move(object));
            ++_size;
        }
        _arrived.notify_one();
    }

    /// Waits for as long as the queue is empty.
    T dequeue() { return *dequeue(std::stop_token()); }

    /// Empty when `stop` was requested while nothing was there.
    std::optional<T> dequeue(const std::stop_token &stop)
    {
        PXLock lock(_lock);
        if (!_arrived.wait(lock, stop,
                           [this]() PX_NO_THREAD_ANALYSIS { return !_objects.empty(); }))
            return std::nullopt;
        std::optional<T> object(std::move(_objects.front()));
        _objects.pop_front();
        --_size;
        return object;
    }

    [[nodiscard]] bool empty() const
    {
        const PXLock lock(_lock);
        return _objects.empty();
    }
    /// Without the lock: right when nobody else is at work, near enough for a display.
    [[nodiscard]] std::size_t unsafeSize() const { return _size.load(std::memory_order_relaxed); }

private:
    mutable PXMutex _lock;
    std::condition_variable_any _arrived;
    std::deque<T> _objects PX_GUARDED_BY(_lock);
    std::atomic<std::size_t> _size = 0;
};
