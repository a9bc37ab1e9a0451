// dnssd_codes.h - the numbers of dns_sd.h that are used here.
#pragma once

#include <cstdint>

namespace pennywort::discovery {

inline constexpr std::int32_t k_dnssd_no_error = 0;
inline constexpr int k_dnssd_unknown_error = -65537;
inline constexpr int k_dnssd_invalid = -65549;

inline constexpr std::uint32_t k_dnssd_flag_add = 2;

inline constexpr std::uint32_t k_any_interface = 0;
inline constexpr std::uint32_t k_local_only = 0xFFFFFFFF;  // -1

}  // namespace pennywort::discovery
