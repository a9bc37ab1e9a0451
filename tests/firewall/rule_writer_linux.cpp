// rule_writer_linux.cpp - see the header.
#include "tests/firewall/rule_writer.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>

#include <algorithm>
#include <cstring>

#include "firewall/chain_walk.h"
#include "firewall/netlink_bytes.h"

namespace pennywort::tests {

namespace {

std::string big_endian(std::uint64_t number, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[size - 1 - i] = static_cast<char>(number >> (8 * i) & 0xff);
    }
    return bytes;
}

std::string list_element(const std::string& attributes) {
    return nested(NFTA_LIST_ELEM, attributes);
}

expressions payload(std::uint32_t base, std::uint32_t offset, std::uint32_t length) {
    return raw("payload", attribute_number(NFTA_PAYLOAD_DREG, NFT_REG_1) +
                              attribute_number(NFTA_PAYLOAD_BASE, base) +
                              attribute_number(NFTA_PAYLOAD_OFFSET, offset) +
                              attribute_number(NFTA_PAYLOAD_LEN, length));
}

firewall::way_in way(bool is_ip6, const char* address, const char* interface_name) {
    firewall::way_in made;
    made.is_ip6 = is_ip6;
    made.interface_name = interface_name;
    made.interface_index = 2;
    made.has_address = true;
    const std::string bytes = address_bytes(address);
    std::copy(bytes.begin(), bytes.end(), made.address.begin());
    return made;
}

}  // namespace

std::string attribute_text(std::uint16_t type, std::string_view value) {
    nlattr head{};
    head.nla_len = static_cast<std::uint16_t>(sizeof head + value.size());
    head.nla_type = type;
    std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
    bytes += value;
    bytes.append(NLMSG_ALIGN(value.size()) - value.size(), '\0');
    return bytes;
}

std::string attribute_name(std::uint16_t type, std::string_view name) {
    return attribute_text(type, std::string(name) + '\0');
}

std::string attribute_number(std::uint16_t type, std::uint32_t number) {
    return attribute_text(type, big_endian(number, sizeof number));
}

std::string nested(std::uint16_t type, const std::string& attributes) {
    return attribute_text(type | NLA_F_NESTED, attributes);
}

std::string message_text(std::uint16_t kind, std::uint8_t family, const std::string& attributes) {
    std::string bytes = firewall::nftables_request(kind, 0, family) + attributes;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(bytes.data(), &length, sizeof length);
    return bytes;
}

std::string port_bytes(std::uint16_t port) { return big_endian(port, sizeof port); }

std::string address_bytes(const char* address) {
    const bool is_ip6 = std::strchr(address, ':') != nullptr;
    std::string bytes(is_ip6 ? 16 : 4, '\0');
    ::inet_pton(is_ip6 ? AF_INET6 : AF_INET, address, bytes.data());
    return bytes;
}

expressions raw(std::string_view name, const std::string& data) {
    return list_element(attribute_name(NFTA_EXPR_NAME, name) + nested(NFTA_EXPR_DATA, data));
}

expressions load_port() { return payload(NFT_PAYLOAD_TRANSPORT_HEADER, 2, 2); }
expressions load_sender() { return payload(NFT_PAYLOAD_NETWORK_HEADER, 12, 4); }
expressions load_receiver() { return payload(NFT_PAYLOAD_NETWORK_HEADER, 16, 4); }

expressions load_meta(std::uint32_t key) {
    return raw("meta",
               attribute_number(NFTA_META_DREG, NFT_REG_1) + attribute_number(NFTA_META_KEY, key));
}

expressions load_conntrack(std::uint32_t key) {
    return raw("ct",
               attribute_number(NFTA_CT_DREG, NFT_REG_1) + attribute_number(NFTA_CT_KEY, key));
}

std::string value_data(const std::string& value) { return attribute_text(NFTA_DATA_VALUE, value); }

expressions compare(std::uint32_t operation, const std::string& with) {
    return raw("cmp", attribute_number(NFTA_CMP_SREG, NFT_REG_1) +
                          attribute_number(NFTA_CMP_OP, operation) +
                          nested(NFTA_CMP_DATA, value_data(with)));
}

expressions mask(const std::string& mask, const std::string& flips) {
    return raw("bitwise",
               attribute_number(NFTA_BITWISE_SREG, NFT_REG_1) +
                   attribute_number(NFTA_BITWISE_DREG, NFT_REG_1) +
                   attribute_number(NFTA_BITWISE_LEN, static_cast<std::uint32_t>(mask.size())) +
                   nested(NFTA_BITWISE_MASK, value_data(mask)) +
                   nested(NFTA_BITWISE_XOR, value_data(flips)));
}

expressions range(const std::string& low, const std::string& high, bool is_inverted) {
    return raw("range",
               attribute_number(NFTA_RANGE_SREG, NFT_REG_1) +
                   attribute_number(NFTA_RANGE_OP, is_inverted ? NFT_RANGE_NEQ : NFT_RANGE_EQ) +
                   nested(NFTA_RANGE_FROM_DATA, value_data(low)) +
                   nested(NFTA_RANGE_TO_DATA, value_data(high)));
}

expressions look_up(std::string_view set, bool is_inverted) {
    return raw("lookup",
               attribute_name(NFTA_LOOKUP_SET, set) +
                   attribute_number(NFTA_LOOKUP_SREG, NFT_REG_1) +
                   attribute_number(NFTA_LOOKUP_FLAGS, is_inverted ? NFT_LOOKUP_F_INV : 0));
}

expressions look_up_verdict(std::string_view map) {
    return raw("lookup", attribute_name(NFTA_LOOKUP_SET, map) +
                             attribute_number(NFTA_LOOKUP_SREG, NFT_REG_1) +
                             attribute_number(NFTA_LOOKUP_DREG, NFT_REG_VERDICT));
}

std::string verdict_data(std::int32_t code, std::string_view chain) {
    std::string data = attribute_number(NFTA_VERDICT_CODE, static_cast<std::uint32_t>(code));
    if (!chain.empty()) data += attribute_name(NFTA_VERDICT_CHAIN, chain);
    return nested(NFTA_DATA_VERDICT, data);
}

expressions verdict_is(std::int32_t code, std::string_view chain) {
    return raw("immediate", attribute_number(NFTA_IMMEDIATE_DREG, NFT_REG_VERDICT) +
                                nested(NFTA_IMMEDIATE_DATA, verdict_data(code, chain)));
}

expressions accept() { return verdict_is(NF_ACCEPT); }
expressions drop() { return verdict_is(NF_DROP); }
expressions jump(std::string_view chain) { return verdict_is(NFT_JUMP, chain); }
expressions go_to(std::string_view chain) { return verdict_is(NFT_GOTO, chain); }
expressions back() { return verdict_is(NFT_RETURN); }
expressions to_port(std::uint16_t port) {
    return load_port() + compare(NFT_CMP_EQ, port_bytes(port));
}
expressions from(const char* address) {
    return load_sender() + compare(NFT_CMP_EQ, address_bytes(address));
}
expressions on(const char* interface_name) {
    std::string padded(interface_name);
    padded.resize(16, '\0');
    return load_meta(NFT_META_IIFNAME) + compare(NFT_CMP_EQ, padded);
}

rule_writer& rule_writer::table(std::uint8_t family, std::string_view name, std::uint32_t flags) {
    m_family = family;
    m_table = name;
    m_messages += message_text(
        NFT_MSG_NEWTABLE, family,
        attribute_name(NFTA_TABLE_NAME, name) + attribute_number(NFTA_TABLE_FLAGS, flags));
    return *this;
}

rule_writer& rule_writer::base(std::string_view name, std::uint32_t hook, std::int32_t priority,
                               bool is_dropping, std::string_view device) {
    m_chain = name;
    std::string place = attribute_number(NFTA_HOOK_HOOKNUM, hook) +
                        attribute_number(NFTA_HOOK_PRIORITY, static_cast<std::uint32_t>(priority));
    if (!device.empty()) place += attribute_name(NFTA_HOOK_DEV, device);
    m_messages +=
        message_text(NFT_MSG_NEWCHAIN, m_family,
                     attribute_name(NFTA_CHAIN_TABLE, m_table) +
                         attribute_name(NFTA_CHAIN_NAME, name) + nested(NFTA_CHAIN_HOOK, place) +
                         attribute_number(NFTA_CHAIN_POLICY, is_dropping ? NF_DROP : NF_ACCEPT));
    return *this;
}

rule_writer& rule_writer::chain(std::string_view name) {
    m_chain = name;
    m_messages += message_text(
        NFT_MSG_NEWCHAIN, m_family,
        attribute_name(NFTA_CHAIN_TABLE, m_table) + attribute_name(NFTA_CHAIN_NAME, name));
    return *this;
}

rule_writer& rule_writer::rule(std::initializer_list<expressions> parts) {
    std::string all;
    for (const expressions& part : parts) all += part;
    m_messages += message_text(
        NFT_MSG_NEWRULE, m_family,
        attribute_name(NFTA_RULE_TABLE, m_table) + attribute_name(NFTA_RULE_CHAIN, m_chain) +
            attribute_text(NFTA_RULE_HANDLE, big_endian(++m_handle, sizeof m_handle)) +
            nested(NFTA_RULE_EXPRESSIONS, all));
    return *this;
}

rule_writer& rule_writer::set(std::string_view name, std::uint32_t flags,
                              const std::vector<std::string>& elements,
                              const std::vector<std::uint32_t>& fields) {
    std::string description;
    for (const std::uint32_t length : fields) {
        description += list_element(attribute_number(NFTA_SET_FIELD_LEN, length));
    }
    if (!fields.empty()) {
        description = nested(NFTA_SET_DESC, nested(NFTA_SET_DESC_CONCAT, description));
    }
    m_messages +=
        message_text(NFT_MSG_NEWSET, m_family,
                     attribute_name(NFTA_SET_TABLE, m_table) + attribute_name(NFTA_SET_NAME, name) +
                         attribute_number(NFTA_SET_FLAGS, flags) + description);
    std::string all;
    for (const std::string& one : elements) all += list_element(one);
    m_messages += message_text(NFT_MSG_NEWSETELEM, m_family,
                               attribute_name(NFTA_SET_ELEM_LIST_TABLE, m_table) +
                                   attribute_name(NFTA_SET_ELEM_LIST_SET, name) +
                                   nested(NFTA_SET_ELEM_LIST_ELEMENTS, all));
    return *this;
}

firewall::rule_set rule_writer::made() const {
    firewall::rule_set rules;
    rules.add(m_messages);
    rules.finish();
    return rules;
}

firewall::port_state rule_writer::state(std::uint16_t port) const {
    std::vector<firewall::way_in> ways(2);
    ways.back().is_ip6 = true;
    return answer(port, ways).state;
}

firewall::port_answer rule_writer::answer(std::uint16_t port,
                                          const std::vector<firewall::way_in>& ways) const {
    return firewall::judge(made(), ways, port);
}

std::string element(const std::string& key, const std::string& more) {
    return nested(NFTA_SET_ELEM_KEY, value_data(key)) + more;
}

std::string element_end(const std::string& key) {
    return element(key, attribute_number(NFTA_SET_ELEM_FLAGS, NFT_SET_ELEM_INTERVAL_END));
}

std::string element_to_verdict(const std::string& key, std::int32_t code, std::string_view chain) {
    return element(key, nested(NFTA_SET_ELEM_DATA, verdict_data(code, chain)));
}

firewall::way_in ip4_way(const char* address, const char* interface_name) {
    return way(false, address, interface_name);
}

firewall::way_in ip6_way(const char* address, const char* interface_name) {
    return way(true, address, interface_name);
}

}  // namespace pennywort::tests
