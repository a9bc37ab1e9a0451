// loam/base64_text.cpp - see the header for the contract.
#include "loam/base64_text.h"

#include <array>
#include <cstdint>

#include "loam/ascii.h"

namespace loam {
namespace {

constexpr std::string_view k_alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
// Above the six bits of a digit.
constexpr std::uint8_t k_space_mark = 64;
constexpr std::uint8_t k_padding_mark = 65;
constexpr std::uint8_t k_wrong_mark = 66;

constexpr std::array<std::uint8_t, 256> digit_values() {
    std::array<std::uint8_t, 256> values{};
    for (std::uint8_t& value : values) value = k_wrong_mark;
    for (std::size_t i = 0; i < k_alphabet.size(); ++i) {
        values[static_cast<unsigned char>(k_alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    for (const char c : k_space) values[static_cast<unsigned char>(c)] = k_space_mark;
    values['='] = k_padding_mark;
    return values;
}
constexpr std::array<std::uint8_t, 256> k_values = digit_values();

std::uint32_t byte_at(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

class reader {
public:
    explicit reader(std::size_t size) { m_bytes.reserve(size / 4 * 3 + 3); }

    bool take(char c) {
        const std::uint8_t value = k_values[static_cast<unsigned char>(c)];
        if (value == k_space_mark) return true;
        if (value == k_wrong_mark) return false;
        if (value == k_padding_mark) return ++m_paddings <= 2;
        if (m_paddings > 0) return false;
        m_bits = m_bits << 6 | value;
        if (++m_digits % 4 == 0) put(m_bits);
        return true;
    }

    // What the last digits stand for, whose missing ones are told by the padding.
    bool finish() {
        if ((m_digits + m_paddings) % 4 != 0) return false;
        if (m_paddings == 0) return true;
        const std::uint32_t bits = m_bits << 6 * m_paddings;
        m_bytes.push_back(static_cast<char>(bits >> 16));
        if (m_paddings == 1) m_bytes.push_back(static_cast<char>(bits >> 8));
        return true;
    }

    std::string& bytes() { return m_bytes; }

private:
    void put(std::uint32_t bits) {
        const char three[] = {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
                              static_cast<char>(bits)};
        m_bytes.append(three, sizeof three);
    }

    std::string m_bytes;
    std::uint32_t m_bits = 0;
    std::size_t m_digits = 0;
    std::size_t m_paddings = 0;
};

}  // namespace

std::string base64_from(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    const auto put = [&text](std::uint32_t bits, std::size_t digits) {
        for (std::size_t i = 0; i < 4; ++i) {
            text.push_back(i < digits ? k_alphabet[bits >> (18 - 6 * i) & 63] : '=');
        }
    };
    std::size_t at = 0;
    for (; bytes.size() - at >= 3; at += 3) {
        put(byte_at(bytes, at) << 16 | byte_at(bytes, at + 1) << 8 | byte_at(bytes, at + 2), 4);
    }
    if (bytes.size() - at == 2) put(byte_at(bytes, at) << 16 | byte_at(bytes, at + 1) << 8, 3);
    if (bytes.size() - at == 1) put(byte_at(bytes, at) << 16, 2);
    return text;
}

std::optional<std::string> bytes_from_base64(std::string_view text) {
    reader one(text.size());
    for (const char c : text) {
        if (!one.take(c)) return std::nullopt;
    }
    if (!one.finish()) return std::nullopt;
    return std::move(one.bytes());
}

}  // namespace loam
