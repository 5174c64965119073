#pragma once

#include "foundation/PXMutex.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <optional>
#include <utility>

/// Hands values from one thread to another, a few at a time, in order.
template <typename T> class BoundedQueue final {
public:
    explicit BoundedQueue(std::size_t capacity) : _capacity(capacity) { }

    /// Waits while the queue is full. False, and the value is lost, once it was given up.
    bool push(T value)
    {
        PXLock lock(_lock);
        while (_values.size() >= _capacity && !_isGivenUp)
            _changed.wait(lock);
        if (_isGivenUp)
            return false;
        _values.push_back(std::move(value));
        _changed.notify_all();
        return true;
    }

    /// Waits for a value. None once the queue is closed and empty, or given up.
    std::optional<T> pop()
    {
        PXLock lock(_lock);
        while (_values.empty() && !_isClosed && !_isGivenUp)
            _changed.wait(lock);
        if (_values.empty() || _isGivenUp)
            return std::nullopt;
        std::optional<T> value(std::move(_values.front()));
        _values.pop_front();
        _changed.notify_all();
        return value;
    }

    /// No value follows; the ones inside are still delivered.
    void close()
    {
        PXLock lock(_lock);
        _isClosed = true;
        _changed.notify_all();
    }

    /// Nobody waits from now on, and nothing more is delivered.
    void giveUp()
    {
        PXLock lock(_lock);
        _isGivenUp = true;
        _changed.notify_all();
    }

    bool isGivenUp()
    {
        PXLock lock(_lock);
        return _isGivenUp;
    }

private:
    const std::size_t _capacity;
    PXMutex _lock;
    std::condition_variable_any _changed;
    std::deque<T> _values PX_GUARDED_BY(_lock);
    bool _isClosed PX_GUARDED_BY(_lock) = false;
    bool _isGivenUp PX_GUARDED_BY(_lock) = false;
};
