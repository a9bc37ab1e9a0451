// rule_writer.h - rule sets as the kernel would list them, written by tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "firewall/port_query.h"
#include "firewall/rule_set.h"
#include "firewall/ways_in.h"

namespace pennywort::tests {

// Attributes of netlink, one behind the other.
std::string attribute_text(std::uint16_t type, std::string_view value);
std::string attribute_name(std::uint16_t type, std::string_view name);
std::string attribute_number(std::uint16_t type, std::uint32_t number);
std::string nested(std::uint16_t type, const std::string& attributes);
std::string message_text(std::uint16_t kind, std::uint8_t family, const std::string& attributes);

// A value as it stands in a packet.
std::string port_bytes(std::uint16_t port);
std::string address_bytes(const char* address);

// Expressions. Each is one element of a rule's list; a match is a load and a comparison.
using expressions = std::string;
expressions raw(std::string_view name, const std::string& data);
expressions load_port();
expressions load_sender();
expressions load_receiver();
expressions load_meta(std::uint32_t key);
expressions load_conntrack(std::uint32_t key);
expressions compare(std::uint32_t operation, const std::string& with);
expressions mask(const std::string& mask, const std::string& flips);
expressions range(const std::string& low, const std::string& high, bool is_inverted = false);
expressions look_up(std::string_view set, bool is_inverted = false);
expressions look_up_verdict(std::string_view map);
expressions verdict_is(std::int32_t code, std::string_view chain = {});
std::string verdict_data(std::int32_t code, std::string_view chain = {});
std::string value_data(const std::string& value);
expressions accept();
expressions drop();
expressions jump(std::string_view chain);
expressions go_to(std::string_view chain);
expressions back();
expressions to_port(std::uint16_t port);
expressions from(const char* address);
expressions on(const char* interface_name);

// Writes one table after another; chains, rules and sets go into the last.
class rule_writer {
public:
    explicit rule_writer(std::uint8_t family, std::string_view name = "t",
                         std::uint32_t flags = 0) {
        table(family, name, flags);
    }
    rule_writer& table(std::uint8_t family, std::string_view name, std::uint32_t flags = 0);
    rule_writer& base(std::string_view name, std::uint32_t hook, std::int32_t priority = 0,
                      bool is_dropping = false, std::string_view device = {});
    rule_writer& chain(std::string_view name);
    rule_writer& rule(std::initializer_list<expressions> parts);
    rule_writer& set(std::string_view name, std::uint32_t flags,
                     const std::vector<std::string>& elements,
                     const std::vector<std::uint32_t>& fields = {});

    const std::string& messages() const { return m_messages; }
    firewall::rule_set made() const;
    // What becomes of a packet to this port on ways that are not known, of both protocols.
    firewall::port_state state(std::uint16_t port) const;
    firewall::port_answer answer(std::uint16_t port,
                                 const std::vector<firewall::way_in>& ways) const;

private:
    std::string m_messages;
    std::uint8_t m_family = 0;
    std::string m_table;
    std::string m_chain;
    std::uint64_t m_handle = 0;
};

// An element of a set: its key, then more attributes of it.
std::string element(const std::string& key, const std::string& more = {});
std::string element_end(const std::string& key);
std::string element_to_verdict(const std::string& key, std::int32_t code,
                               std::string_view chain = {});

firewall::way_in ip4_way(const char* address, const char* interface_name = "eth0");
firewall::way_in ip6_way(const char* address, const char* interface_name = "eth0");

}  // namespace pennywort::tests
