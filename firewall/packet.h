// packet.h - what is known of the first packet of a new TCP connection from another machine.
#pragma once

#include <cstdint>

#include "firewall/known_bytes.h"
#include "firewall/rule_set.h"
#include "firewall/ways_in.h"

namespace pennywort::firewall {

class packet {
public:
    packet(const way_in& way, std::uint16_t port, bool is_tracked);

    bool is_ip6() const { return m_way.is_ip6; }
    std::uint16_t port() const { return m_port; }
    const way_in& way() const { return m_way; }
    // Whether connection tracking calls it new; else its state is not known.
    bool is_tracked() const { return m_is_tracked; }

    // Put what they load into registers; of what is not known, bits that are not known.
    void load_payload(bytes_view load, registers& all) const;
    void load_meta(bytes_view load, registers& all) const;
    void load_conntrack(bytes_view load, registers& all) const;
    void load_fib(bytes_view load, registers& all) const;

private:
    struct header {
        static constexpr std::size_t k_size = 40;
        known_byte bytes[k_size];
        void put(std::size_t at, const void* from, std::size_t length);
    };
    void fill_ip4();
    void fill_ip6();
    void fill_tcp();

    way_in m_way;
    std::uint16_t m_port;
    bool m_is_tracked;
    header m_network;
    header m_transport;
};

}  // namespace pennywort::firewall
