// known_bytes.h - bytes of a packet of which only some bits are known, and questions about them
// whose answer may be "maybe".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "firewall/netlink_bytes.h"

namespace pennywort::firewall {

enum class truth : std::uint8_t { no, maybe, yes };

inline truth not_so(truth one) {
    if (one == truth::maybe) return truth::maybe;
    return one == truth::yes ? truth::no : truth::yes;
}
inline truth both(truth one, truth other) { return one < other ? one : other; }
inline truth certain(bool is_so) { return is_so ? truth::yes : truth::no; }

// One byte. Of its value only the bits in `known` mean something; the others are 0.
struct known_byte {
    std::uint8_t value = 0;
    std::uint8_t known = 0;
    // Whether it is the first byte of an IPv4 sender, whole: what comes from another machine never
    // has a sender of 127.
    bool is_sender = false;
};
inline known_byte known(std::uint8_t value) { return {value, 0xff}; }

// The registers of the packet filter's machine: sixteen words, or four that hold four each.
class registers {
public:
    // Where a register begins, in bytes; nothing where it is none, or `length` does not fit.
    static std::optional<std::size_t> place(std::uint32_t number, std::size_t length);

    known_byte& operator[](std::size_t place) { return m_bytes[place]; }
    const known_byte& operator[](std::size_t place) const { return m_bytes[place]; }
    void forget();

private:
    static constexpr std::size_t k_size = 64;
    known_byte m_bytes[k_size];
};

// Compares what begins at `place` with as many bytes as `data` has.
truth is_equal(const registers& all, std::size_t place, bytes_view data);
// As big-endian numbers.
truth is_less(const registers& all, std::size_t place, bytes_view data);
truth is_greater(const registers& all, std::size_t place, bytes_view data);
truth is_between(const registers& all, std::size_t place, bytes_view low, bytes_view high);

}  // namespace pennywort::firewall
