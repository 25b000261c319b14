#pragma once

namespace zln {

// Which sanitizer the tests are built with, if any. Clang and GCC say so by other words.
#ifdef __has_feature
#define ZLN_HAS_FEATURE(name) __has_feature(name)
#else
#define ZLN_HAS_FEATURE(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || ZLN_HAS_FEATURE(address_sanitizer)
inline constexpr bool kAddressSanitized = true;
#else
inline constexpr bool kAddressSanitized = false;
#endif

#if defined(__SANITIZE_THREAD__) || ZLN_HAS_FEATURE(thread_sanitizer)
inline constexpr bool kThreadSanitized = true;
#else
inline constexpr bool kThreadSanitized = false;
#endif

// That of GCC does not release its own locks in a child that was forked beside other threads.
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
inline constexpr bool kThreadSanitizerMayLockChildren = true;
#else
inline constexpr bool kThreadSanitizerMayLockChildren = false;
#endif

inline constexpr bool kSanitized = kAddressSanitized || kThreadSanitized;

}  // namespace zln
