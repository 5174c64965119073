#pragma once

// Clang tells by features, GCC by macros.
#if defined(__SANITIZE_THREAD__)
#define PX_IS_SANITIZED 2
#elif defined(__SANITIZE_ADDRESS__)
#define PX_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define PX_IS_SANITIZED 2
#elif __has_feature(address_sanitizer)
#define PX_IS_SANITIZED 1
#endif
#endif
#ifndef PX_IS_SANITIZED
#define PX_IS_SANITIZED 0
#endif

/// Whether the tests run under a sanitizer, which takes more address space than a limit leaves.
inline constexpr bool kIsSanitized = PX_IS_SANITIZED != 0;
/// Whether it is ThreadSanitizer, which does not see the atomics inside Debian's libraries.
inline constexpr bool kIsThreadSanitized = PX_IS_SANITIZED == 2;
