#pragma once

#include <mutex>

// Clang's thread-safety analysis reads these; other compilers see nothing.
#if defined(__clang__)
#define PX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define PX_THREAD_ANNOTATION(x)
#endif

#define PX_GUARDED_BY(lock) PX_THREAD_ANNOTATION(guarded_by(lock))
#define PX_REQUIRES(...) PX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define PX_EXCLUDES(...) PX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define PX_NO_THREAD_ANALYSIS PX_THREAD_ANNOTATION(no_thread_safety_analysis)

/// A mutex whose data the compiler can check: `int n PX_GUARDED_BY(_lock);`
class PX_THREAD_ANNOTATION(capability("mutex")) PXMutex final {
public:
    void lock() PX_THREAD_ANNOTATION(acquire_capability()) { _mutex.lock(); }
    void unlock() PX_THREAD_ANNOTATION(release_capability()) { _mutex.unlock(); }
    bool try_lock() PX_THREAD_ANNOTATION(try_acquire_capability(true)) { return _mutex.try_lock(); }

private:
    std::mutex _mutex;
};

/// Holds a `PXMutex` for a scope. Can be given to `std::condition_variable_any::wait`, which
/// unlocks and locks it; the analysis takes it as held throughout, which is what the waiter sees.
class PX_THREAD_ANNOTATION(scoped_lockable) PXLock final {
public:
    explicit PXLock(PXMutex &mutex) PX_THREAD_ANNOTATION(acquire_capability(mutex)) : _mutex(mutex)
    {
        _mutex.lock();
    }
    ~PXLock() PX_THREAD_ANNOTATION(release_capability()) { _mutex.unlock(); }
    PXLock(const PXLock &) = delete;
    PXLock &operator=(const PXLock &) = delete;

    // For condition variables only.
    void lock() PX_NO_THREAD_ANALYSIS { _mutex.lock(); }
    void unlock() PX_NO_THREAD_ANALYSIS { _mutex.unlock(); }

private:
    PXMutex &_mutex;
};
