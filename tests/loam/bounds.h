// tests/loam/bounds.h - how long a wait may take for what comes at once. No test passes because of
// it.
#pragma once

#include <cstdint>

inline constexpr std::int32_t k_long_ms = 30'000;
inline constexpr std::uint32_t k_long_us = 30'000'000;
