// known_bytes.cpp - see the header for the contract.
#include "firewall/known_bytes.h"

#include <linux/netfilter/nf_tables.h>

namespace pennywort::firewall {

namespace {

constexpr std::size_t k_word = 4;
constexpr std::size_t k_long_register = 16;
constexpr std::uint8_t k_loopback_net = 127;

std::uint8_t byte_of(bytes_view data, std::size_t at) {
    return static_cast<std::uint8_t>(data[at]);
}

truth is_equal(const known_byte& byte, std::uint8_t other) {
    if (byte.is_sender && other == k_loopback_net) return truth::no;
    if (byte.value != (other & byte.known)) return truth::no;
    return byte.known == 0xff ? truth::yes : truth::maybe;
}

// The least and the greatest that bytes can be, beside `data`: -1, 0 or 1.
struct bounds {
    int least = 0;
    int greatest = 0;
};

int sign_of(int difference) { return (difference > 0) - (difference < 0); }

bounds compare(const registers& all, std::size_t place, bytes_view data) {
    bounds found;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const known_byte& byte = all[place + i];
        const int least = byte.value;
        const int greatest = byte.value | static_cast<std::uint8_t>(~byte.known);
        if (found.least == 0) found.least = sign_of(least - byte_of(data, i));
        if (found.greatest == 0) found.greatest = sign_of(greatest - byte_of(data, i));
    }
    return found;
}

}  // namespace

std::optional<std::size_t> registers::place(std::uint32_t number, std::size_t length) {
    std::size_t at = k_size;
    if (number >= NFT_REG_1 && number <= NFT_REG_4) at = (number - NFT_REG_1) * k_long_register;
    if (number >= NFT_REG32_00 && number <= NFT_REG32_15) at = (number - NFT_REG32_00) * k_word;
    return at < k_size && length <= k_size - at ? std::optional(at) : std::nullopt;
}

void registers::forget() {
    for (known_byte& byte : m_bytes) byte = {};
}

truth is_equal(const registers& all, std::size_t place, bytes_view data) {
    truth so = truth::yes;
    for (std::size_t i = 0; i < data.size() && so != truth::no; ++i) {
        so = both(so, is_equal(all[place + i], byte_of(data, i)));
    }
    return so;
}

truth is_less(const registers& all, std::size_t place, bytes_view data) {
    const bounds found = compare(all, place, data);
    if (found.greatest < 0) return truth::yes;
    return found.least >= 0 ? truth::no : truth::maybe;
}

truth is_greater(const registers& all, std::size_t place, bytes_view data) {
    const bounds found = compare(all, place, data);
    if (found.least > 0) return truth::yes;
    return found.greatest <= 0 ? truth::no : truth::maybe;
}

truth is_between(const registers& all, std::size_t place, bytes_view low, bytes_view high) {
    return both(not_so(is_less(all, place, low)), not_so(is_greater(all, place, high)));
}

}  // namespace pennywort::firewall
