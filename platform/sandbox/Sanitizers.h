#pragma once

namespace platform {

/// Whether this is a build that looks for faults. Such a program takes terabytes of address space, and looks at its own
/// threads from a child of its own when it ends, to which it hands its memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kBuiltWithSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kBuiltWithSanitizer = true;
#else
inline constexpr bool kBuiltWithSanitizer = false;
#endif
#else
inline constexpr bool kBuiltWithSanitizer = false;
#endif

} // namespace platform
