#pragma once

#include "foundation/PXMutex.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

/// Stands between a subject and one observer's function, and is shut by the observer.
class PXObservationGate final {
public:
    /// Runs `call` unless shut. Recursive, because a function may end its own observation or cause
    /// the next call.
    template <typename Function> void pass(Function &&call)
    {
        const std::lock_guard lock(_lock);
        if (_isOpen)
            std::forward<Function>(call)();
    }
    void shut()
    {
        const std::lock_guard lock(_lock);
        _isOpen = false;
    }
    /// Without the lock: a subject asks this while it holds its own.
    [[nodiscard]] bool isOpen() const { return _isOpen; }

private:
    std::recursive_mutex _lock;
    std::atomic<bool> _isOpen = true;
};

/// An observer's side: the function is called for as long as this lives. Destroying it waits for
/// a call that runs on another thread, so the function may use what is destroyed after this; do not
/// destroy it while holding a lock that the function takes. May outlive the subject.
class [[nodiscard]] PXObservation final {
public:
    PXObservation() = default;
    explicit PXObservation(std::shared_ptr<PXObservationGate> gate) : _gate(std::move(gate)) { }
    ~PXObservation() { end(); }
    PXObservation(PXObservation &&) noexcept = default;
    PXObservation &operator=(PXObservation &&other) noexcept
    {
        if (this != &other) {
            end();
            _gate = std::move(other._gate);
        }
        return *this;
    }
    PXObservation(const PXObservation &) = delete;
    PXObservation &operator=(const PXObservation &) = delete;

    void end()
    {
        if (_gate)
            std::exchange(_gate, nullptr)->shut();
    }

private:
    // Shared: both sides may go first, on different threads.
    std::shared_ptr<PXObservationGate> _gate;
};

/// A subject's side: its observers, told in the order in which they came. Any thread.
template <typename... Arguments> class PXObservers final {
public:
    using Function = std::function<void(Arguments...)>;

    PXObservation add(Function function)
    {
        auto gate = std::make_shared<PXObservationGate>();
        const PXLock lock(_lock);
        std::erase_if(_entries, [](const Entry &entry) { return !entry.gate->isOpen(); });
        _entries.push_back({gate, std::make_shared<const Function>(std::move(function))});
        return PXObservation(std::move(gate));
    }

    /// Calls everyone on this thread, with no lock of the subject held.
    void tell(const Arguments &...arguments)
    {
        for (const Entry &entry : _copyOfEntries())
            entry.gate->pass([&] { (*entry.function)(arguments...); });
    }

private:
    struct Entry {
        std::shared_ptr<PXObservationGate> gate;
        // Shared with a `tell` that is under way.
        std::shared_ptr<const Function> function;
    };

    std::vector<Entry> _copyOfEntries()
    {
        const PXLock lock(_lock);
        return _entries;
    }

    PXMutex _lock;
    std::vector<Entry> _entries PX_GUARDED_BY(_lock);
};
