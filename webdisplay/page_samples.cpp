// page_samples.cpp - see the header for the contract.
#include "webdisplay/page_samples.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <functional>
#include <string>

#include "core/limits.h"

namespace pennywort::webdisplay {

namespace {

// Numbers of a script are whole up to here. Nothing that is added to one overflows.
constexpr std::int64_t k_last_position = std::int64_t(1) << 53;

constexpr std::string_view k_digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::uint8_t, 256> values_of_digits() {
    std::array<std::uint8_t, 256> values{};
    values.fill(255);
    for (std::size_t i = 0; i < k_digits.size(); ++i) {
        values[static_cast<unsigned char>(k_digits[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

constexpr auto k_values = values_of_digits();

// Without the bits that are left over; nothing for what is no base64.
std::optional<std::string> bytes_of_base64(std::string_view text) {
    while (!text.empty() && text.back() == '=') text.remove_suffix(1);
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char digit : text) {
        const std::uint8_t value = k_values[static_cast<unsigned char>(digit)];
        if (value == 255) return {};
        bits = bits << 6 | value;
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<char>(bits >> count & 255));
    }
    return bytes;
}

// Their lowest byte comes first.
std::vector<float> floats_of(const std::string& bytes) {
    std::vector<float> floats(bytes.size() / sizeof(float));
    for (std::size_t i = 0; i < floats.size(); ++i) {
        std::uint32_t bits = 0;
        for (std::size_t byte = sizeof bits; byte-- > 0;) {
            bits = bits << 8 | static_cast<unsigned char>(bytes[i * sizeof bits + byte]);
        }
        floats[i] = std::bit_cast<float>(bits);
    }
    return floats;
}

}  // namespace

std::optional<page_samples> page_samples_of(std::string_view text) {
    constexpr std::size_t k_both = 2 * sizeof(float);
    constexpr std::size_t k_most =
        std::size_t(k_max_page_sound_seconds) * 1000 * k_page_samples_of_a_millisecond * k_both;
    const std::size_t colon = text.find(':');
    if (colon == text.npos || text.size() - colon > k_most / 3 * 4 + 8) return {};
    std::int64_t position = 0;
    const char* const end = text.data() + colon;
    const auto [rest, error] = std::from_chars(text.data(), end, position);
    const bool is_number =
        error == std::errc() && rest == end && position >= 0 && position <= k_last_position;
    if (!is_number || position % k_page_samples_of_a_millisecond != 0) return {};
    const auto bytes = bytes_of_base64(text.substr(colon + 1));
    if (!bytes || bytes->empty() || bytes->size() % k_both != 0) return {};
    return page_samples{position / k_page_samples_of_a_millisecond, floats_of(*bytes)};
}

std::optional<page_samples> together(std::optional<page_samples> one,
                                     std::optional<page_samples> other) {
    if (!one) return other;
    if (!other) return one;
    const bool is_same =
        one->milliseconds == other->milliseconds && one->samples.size() == other->samples.size();
    if (!is_same) return other;
    std::transform(one->samples.begin(), one->samples.end(), other->samples.begin(),
                   one->samples.begin(), std::plus<>());
    return one;
}

}  // namespace pennywort::webdisplay
