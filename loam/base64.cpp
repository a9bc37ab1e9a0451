// loam/base64.cpp - see the header for the contract.
#include "loam/base64.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace {

constexpr char k_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Writes the four characters that stand for 1 to 3 bytes.
void encode_group(char* out, const unsigned char* in, int count) {
    const unsigned first = in[0];
    const unsigned second = count > 1 ? in[1] : 0u;
    const unsigned third = count > 2 ? in[2] : 0u;
    const unsigned bits = first << 16 | second << 8 | third;
    out[0] = k_alphabet[bits >> 18];
    out[1] = k_alphabet[bits >> 12 & 63];
    out[2] = count > 1 ? k_alphabet[bits >> 6 & 63] : '=';
    out[3] = count > 2 ? k_alphabet[bits & 63] : '=';
}

}  // namespace

int Base64encode_len(int length) {
    const std::int64_t groups = (std::max<std::int64_t>(length, 0) + 2) / 3;
    const std::int64_t bytes = groups * 4 + 1;
    return bytes <= std::numeric_limits<int>::max() ? static_cast<int>(bytes) : -1;
}

int Base64encode(char* out, const char* in, int length) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(in);
    int written = 0;
    for (int at = 0; at < length; at += 3) {
        encode_group(out + written, bytes + at, std::min(length - at, 3));
        written += 4;
    }
    out[written] = '\0';
    return written + 1;
}
