// sha1.cpp - see the header for the contract.
#include "tests/websocket/sha1.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace {

using digest_state = std::array<std::uint32_t, 5>;

std::uint32_t word_at(std::string_view block, std::size_t at) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        word = word << 8 | static_cast<unsigned char>(block[at * 4 + i]);
    }
    return word;
}

// The function and the constant of a round.
std::uint32_t mix(std::size_t round, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    if (round < 20) return ((b & c) | (~b & d)) + 0x5A827999;
    if (round < 40) return (b ^ c ^ d) + 0x6ED9EBA1;
    if (round < 60) return ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDC;
    return (b ^ c ^ d) + 0xCA62C1D6;
}

void add_block(digest_state& state, std::string_view block) {
    std::array<std::uint32_t, 80> words{};
    for (std::size_t i = 0; i < 16; ++i) words[i] = word_at(block, i);
    for (std::size_t i = 16; i < 80; ++i) {
        words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
    }
    auto [a, b, c, d, e] = state;
    for (std::size_t i = 0; i < 80; ++i) {
        const std::uint32_t next = std::rotl(a, 5) + mix(i, b, c, d) + e + words[i];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    const digest_state added{a, b, c, d, e};
    for (std::size_t i = 0; i < 5; ++i) state[i] += added[i];
}

void append_big_endian(std::string& out, std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

}  // namespace

std::string sha1(std::string_view text) {
    std::string padded(text);
    padded.push_back(static_cast<char>(0x80));
    while (padded.size() % 64 != 56) padded.push_back('\0');
    append_big_endian(padded, std::uint64_t(text.size()) * 8, 8);
    digest_state state{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    for (std::size_t at = 0; at < padded.size(); at += 64) {
        add_block(state, std::string_view(padded).substr(at, 64));
    }
    std::string digest;
    for (const std::uint32_t word : state) append_big_endian(digest, word, 4);
    return digest;
}
