#pragma once

// For the one file of a test program that has its main().

#ifdef __SANITIZE_THREAD__
#include <dlfcn.h>
#include <sched.h>

#include <cstdarg>

/// Qt starts processes in a child that shares our memory until it becomes the other program.
/// ThreadSanitizer marks that child as a thread whose locks do not count, in the same memory, so
/// that from then on it overlooks the locks of our own main thread. The child gets a copy instead.
extern "C" int clone(int (*function)(void *), void *stack, int flags, void *argument, ...) noexcept
{
    using Clone = int (*)(int (*)(void *), void *, int, void *, ...);
    static const auto next = reinterpret_cast<Clone>(dlsym(RTLD_NEXT, "clone"));
    va_list rest;
    va_start(rest, argument);
    auto *parentId = va_arg(rest, void *);
    auto *localStorage = va_arg(rest, void *);
    auto *childId = va_arg(rest, void *);
    va_end(rest);
    return next(function, stack, flags & ~CLONE_VM, argument, parentId, localStorage, childId);
}
#endif
