// tests/support/effort.h - how much of a long test is done where a sanitizer looks on.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PENNYWORT_TESTS_ARE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PENNYWORT_TESTS_ARE_SANITIZED 1
#endif
#endif

namespace pennywort::tests {

// `all`, or `some` under a sanitizer: that takes several times as long and sees a fault at its
// first occurrence, where the plain build needs many to see what they leave.
template <typename number>
constexpr number effort([[maybe_unused]] number all, [[maybe_unused]] number some) {
#ifdef PENNYWORT_TESTS_ARE_SANITIZED
    return some;
#else
    return all;
#endif
}

}  // namespace pennywort::tests
