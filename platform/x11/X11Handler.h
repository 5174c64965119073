#pragma once

#include "foundation/PXMutex.h"

#include <condition_variable>
#include <functional>
#include <thread>

/// Somebody's function that a thread of ours calls, with no lock held, and that its owner may
/// change or end from anywhere, the function itself included.
class X11Handler final {
public:
    /// No call of the function before comes after this has returned (from inside that function:
    /// after it has returned).
    void set(std::function<void()> handler);
    void call() { _call(Afterwards::Keep); }
    /// Ends it before it is called, so that it can set the next one.
    void callOnce() { _call(Afterwards::Forget); }

private:
    enum class Afterwards { Keep, Forget };
    void _call(Afterwards afterwards);

    PXMutex _lock;
    std::function<void()> _handler PX_GUARDED_BY(_lock);
    std::thread::id _caller PX_GUARDED_BY(_lock); ///< Who is inside the function now.
    std::condition_variable_any _returned;
};
