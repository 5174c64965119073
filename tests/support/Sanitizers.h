#pragma once

// Clang tells by features, GCC by macros.
#ifdef __has_feature
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PX_IS_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PX_IS_SANITIZED 1
#endif

/// Whether the tests run under a sanitizer, which takes more address space than a limit leaves.
#ifdef PX_IS_SANITIZED
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif
