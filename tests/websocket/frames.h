// frames.h - frames as a server writes them, right or wrong, byte by byte.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace frames {

inline constexpr int k_continuation = 0x0;
inline constexpr int k_text = 0x1;
inline constexpr int k_binary = 0x2;
inline constexpr int k_close = 0x8;
inline constexpr int k_ping = 0x9;
inline constexpr int k_pong = 0xA;
inline constexpr int k_final = 0x80;

// `first` is the first byte: k_final | k_text, for instance.
inline std::string frame(int first, std::string_view payload, int mask_bit = 0) {
    std::string bytes(1, static_cast<char>(first));
    const std::uint64_t size = payload.size();
    const auto put = [&bytes](std::uint64_t value) { bytes.push_back(static_cast<char>(value)); };
    if (size < 126) {
        put(size | static_cast<unsigned>(mask_bit));
    } else if (size <= 0xFFFF) {
        put(126u | static_cast<unsigned>(mask_bit));
        for (int shift = 8; shift >= 0; shift -= 8) put(size >> shift & 0xFF);
    } else {
        put(127u | static_cast<unsigned>(mask_bit));
        for (int shift = 56; shift >= 0; shift -= 8) put(size >> shift & 0xFF);
    }
    if (mask_bit != 0) bytes.append(4, '\0');
    return bytes.append(payload);
}

inline std::string text(std::string_view payload) { return frame(k_final | k_text, payload); }

inline std::string code_bytes(int code) {
    return {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
}

inline std::string close(int code) { return frame(k_final | k_close, code_bytes(code)); }

}  // namespace frames
