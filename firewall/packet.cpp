// packet.cpp - see the header for the contract.
#include "firewall/packet.h"

#include <net/if.h>
#include <netinet/in.h>
// Behind those of the C library, whose names they then leave alone.
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_conntrack_common.h>
#include <linux/netfilter/nf_conntrack_tuple_common.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>

namespace pennywort::firewall {

namespace {

constexpr std::size_t k_word = 4;
constexpr std::uint8_t k_syn = 0x02;
// The flags of a first segment but for the two of congestion, which a sender may set.
constexpr std::uint8_t k_known_flags = 0x3f;
// How many bytes a load that is not known may have changed.
constexpr std::size_t k_longest_load = 16;

// A load fills whole words: what stands behind it in its last one is 0.
void store(registers& all, std::uint32_t number, const void* value, std::size_t length,
           const void* mask = nullptr) {
    const std::size_t whole = (length + k_word - 1) / k_word * k_word;
    const auto at = registers::place(number, whole);
    if (!at) return;
    const auto* from = static_cast<const std::uint8_t*>(value);
    const auto* bits = static_cast<const std::uint8_t*>(mask);
    for (std::size_t i = 0; i < whole; ++i) {
        const std::uint8_t is_known = bits != nullptr && i < length ? bits[i] : 0xff;
        const std::uint8_t byte = i < length ? from[i] : 0;
        all[*at + i] = {static_cast<std::uint8_t>(byte & is_known), is_known};
    }
}

template <typename kind>
void store_value(registers& all, std::uint32_t number, kind value) {
    store(all, number, &value, sizeof value);
}

void store_unknown(registers& all, std::uint32_t number) {
    for (std::size_t length = k_longest_load; length > 0; length -= k_word) {
        const auto at = registers::place(number, length);
        if (!at) continue;
        for (std::size_t i = 0; i < length; ++i) all[*at + i] = {};
        return;
    }
}

}  // namespace

packet::packet(const way_in& way, std::uint16_t port, bool is_tracked)
    : m_way(way), m_port(port), m_is_tracked(is_tracked) {
    if (way.is_ip6) {
        fill_ip6();
    } else {
        fill_ip4();
    }
    fill_tcp();
}

void packet::header::put(std::size_t at, const void* from, std::size_t length) {
    const auto* value = static_cast<const std::uint8_t*>(from);
    for (std::size_t i = 0; i < length; ++i) bytes[at + i] = known(value[i]);
}

void packet::fill_ip4() {
    constexpr std::size_t k_protocol = 9;
    constexpr std::size_t k_sender = 12;
    constexpr std::size_t k_receiver = 16;
    m_network.bytes[0] = {0x40, 0xf0};
    m_network.bytes[k_protocol] = known(IPPROTO_TCP);
    m_network.bytes[k_sender].is_sender = true;
    if (m_way.has_address) m_network.put(k_receiver, m_way.address.data(), sizeof(in_addr));
}

void packet::fill_ip6() {
    constexpr std::size_t k_next_header = 6;
    constexpr std::size_t k_receiver = 24;
    m_network.bytes[0] = {0x60, 0xf0};
    m_network.bytes[k_next_header] = known(IPPROTO_TCP);
    if (m_way.has_address) m_network.put(k_receiver, m_way.address.data(), sizeof(in6_addr));
}

void packet::fill_tcp() {
    constexpr std::size_t k_receiver_port = 2;
    constexpr std::size_t k_flags = 13;
    const std::uint16_t port = htons(m_port);
    m_transport.put(k_receiver_port, &port, sizeof port);
    m_transport.bytes[k_flags] = {k_syn, k_known_flags};
}

void packet::load_payload(bytes_view load, registers& all) const {
    const auto number = number_of(load, NFTA_PAYLOAD_DREG).value_or(0);
    const auto base = number_of(load, NFTA_PAYLOAD_BASE).value_or(NFT_PAYLOAD_INNER_HEADER);
    const std::size_t offset = number_of(load, NFTA_PAYLOAD_OFFSET).value_or(header::k_size);
    const std::size_t length = number_of(load, NFTA_PAYLOAD_LEN).value_or(0);
    const bool is_read = base == NFT_PAYLOAD_NETWORK_HEADER || base == NFT_PAYLOAD_TRANSPORT_HEADER;
    const std::size_t whole = (length + k_word - 1) / k_word * k_word;
    const auto at = registers::place(number, whole);
    if (!is_read || offset > header::k_size || length > header::k_size - offset || !at) {
        return store_unknown(all, number);
    }
    const header& from = base == NFT_PAYLOAD_NETWORK_HEADER ? m_network : m_transport;
    for (std::size_t i = 0; i < whole; ++i) {
        all[*at + i] = i < length ? from.bytes[offset + i] : known(0);
    }
}

void packet::load_meta(bytes_view load, registers& all) const {
    const auto number = number_of(load, NFTA_META_DREG).value_or(0);
    switch (number_of(load, NFTA_META_KEY).value_or(UINT32_MAX)) {
        case NFT_META_PROTOCOL:
            return store_value(all, number,
                               htons(m_way.is_ip6 ? std::uint16_t(ETH_P_IPV6) : ETH_P_IP));
        case NFT_META_NFPROTO:
            return store_value(
                all, number, static_cast<std::uint8_t>(m_way.is_ip6 ? NFPROTO_IPV6 : NFPROTO_IPV4));
        case NFT_META_L4PROTO:
            return store_value(all, number, static_cast<std::uint8_t>(IPPROTO_TCP));
        case NFT_META_PKTTYPE:
            return store_value(all, number, static_cast<std::uint8_t>(PACKET_HOST));
        case NFT_META_IIF:
            if (m_way.interface_index == 0) break;
            return store_value(all, number, m_way.interface_index);
        case NFT_META_IIFNAME: {
            if (m_way.interface_name.empty()) break;
            char name[IF_NAMESIZE] = {};
            m_way.interface_name.copy(name, sizeof name - 1);
            return store(all, number, name, sizeof name);
        }
        default:
            break;
    }
    store_unknown(all, number);
}

// The numbers here are those of the kernel's own machine, in its own order of bytes.
void packet::load_conntrack(bytes_view load, registers& all) const {
    constexpr std::uint32_t k_new = 1u << (IP_CT_NEW + 1);
    // Of a first packet none of these has come to be: expected, answered, assured, confirmed,
    // translated. An expected one would be related, and its port known to somebody else.
    constexpr std::uint32_t k_not_yet =
        IPS_EXPECTED | IPS_SEEN_REPLY | IPS_ASSURED | IPS_CONFIRMED | IPS_SRC_NAT | IPS_DST_NAT;
    const auto number = number_of(load, NFTA_CT_DREG).value_or(0);
    if (!m_is_tracked) return store_unknown(all, number);
    const std::uint32_t nothing = 0;
    switch (number_of(load, NFTA_CT_KEY).value_or(UINT32_MAX)) {
        case NFT_CT_STATE:
            return store_value(all, number, k_new);
        case NFT_CT_DIRECTION:
            return store_value(all, number, static_cast<std::uint8_t>(IP_CT_DIR_ORIGINAL));
        case NFT_CT_STATUS:
            return store(all, number, &nothing, sizeof nothing, &k_not_yet);
        default:
            return store_unknown(all, number);
    }
}

// The receiver is this machine. Of the sender nothing is known.
void packet::load_fib(bytes_view load, registers& all) const {
    const auto number = number_of(load, NFTA_FIB_DREG).value_or(0);
    const auto flags = number_of(load, NFTA_FIB_FLAGS).value_or(0);
    const bool is_type = number_of(load, NFTA_FIB_RESULT).value_or(0) == NFT_FIB_RESULT_ADDRTYPE;
    const bool is_own = (flags & NFTA_FIB_F_DADDR) != 0 && (flags & NFTA_FIB_F_PRESENT) == 0;
    if (!is_type || !is_own) return store_unknown(all, number);
    store_value(all, number, static_cast<std::uint32_t>(RTN_LOCAL));
}

}  // namespace pennywort::firewall
