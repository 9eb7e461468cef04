// `sanitized`: whether this build is under a sanitizer, where memory is not given back for use, the
// sanitizer's own is counted, and all is slower. Relies on the compiler.
#pragma once

namespace TestSupport {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
      __has_feature(memory_sanitizer)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif
#else
inline constexpr bool sanitized = false;
#endif

// Whether it is the thread sanitizer.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool threadSanitized = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
inline constexpr bool threadSanitized = true;
#else
inline constexpr bool threadSanitized = false;
#endif
#else
inline constexpr bool threadSanitized = false;
#endif

// Seconds of processor time that an answer may take which users wait for: 1 where the tested
// libraries are optimised, 10 where they are not or run under a sanitizer.
extern const double patience;

} // namespace TestSupport
