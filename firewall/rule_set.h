// rule_set.h - the packet filter's rules as the kernel lists them: tables, chains, rules, sets.
// No I/O. What a message says is kept as its bytes, and read when a packet comes by.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "firewall/netlink_bytes.h"

namespace pennywort::firewall {

enum class expression_kind : std::uint8_t {
    bitwise,
    byteorder,
    compare,
    conntrack,
    counter,
    dynamic_set,
    fib,
    immediate,
    limit,
    load_unknown,
    lookup,
    meta,
    notrack,
    object,
    payload,
    queue,
    range,
    redirect,
    reject,
    xt_match,
    xt_target,
    unknown,
};

struct expression {
    expression_kind kind = expression_kind::unknown;
    bytes_view data;
};

struct rule {
    std::uint64_t handle = 0;
    std::vector<expression> expressions;
};

// A name is one within a family and a table.
struct rule_name {
    std::uint8_t family = 0;
    bytes_view table;
    bytes_view name;
    bool operator<(const rule_name& other) const {
        return std::tie(family, table, name) < std::tie(other.family, other.table, other.name);
    }
};

struct chain {
    rule_name name;
    std::optional<std::uint32_t> hook;  // without one, only other chains lead here
    std::int32_t priority = 0;
    bool drops_by_policy = false;
    std::vector<bytes_view> devices;  // of ingress hooks
    std::vector<rule> rules;
};

struct set_element {
    bytes_view key;  // empty for the one that stands for all others
    bytes_view key_end;
    std::uint32_t flags = 0;
    bytes_view data;  // of a map: a list of attributes
    bool has_condition = false;
};

struct rule_element_set {
    std::uint32_t flags = 0;
    std::vector<std::size_t> fields;  // bytes of each part of a joined key; none for a plain key
    std::size_t key_length = 0;       // of the longest
    // Of intervals: in order, each beginning before the end that follows it.
    std::vector<set_element> elements;
};

class rule_set {
public:
    rule_set() = default;
    rule_set(rule_set&&) = default;
    rule_set& operator=(rule_set&&) = default;
    // The bytes of the messages are the rules.
    rule_set(const rule_set&) = delete;
    rule_set& operator=(const rule_set&) = delete;

    // Takes a list of messages, in the order tables, chains, rules, sets, elements. False when it
    // is cut.
    bool add(std::string messages);
    // After the last list: brings the intervals of each set in order, and measures the keys.
    void finish();

    const chain* find_chain(const rule_name& name) const;
    const rule_element_set* find_set(const rule_name& name) const;
    // Those that packets come to without being sent by another chain, in the kernel's order.
    std::vector<const chain*> base_chains() const;
    std::vector<rule_name> set_names() const;
    // Whether a rule takes packets away from connection tracking, whose state is unknown then.
    bool has_notrack() const { return m_has_notrack; }

private:
    void add_message(const netlink_message& message);
    void add_table(std::uint8_t family, bytes_view list);
    void add_chain(std::uint8_t family, bytes_view list);
    void add_rule(std::uint8_t family, bytes_view list);
    void add_set(std::uint8_t family, bytes_view list);
    void add_elements(std::uint8_t family, bytes_view list);
    bool is_dormant(const chain& one) const;

    std::deque<std::string> m_bytes;
    std::map<rule_name, std::uint32_t> m_table_flags;  // by a name without a name
    std::map<rule_name, chain> m_chains;
    std::map<rule_name, rule_element_set> m_sets;
    bool m_has_notrack = false;
};

}  // namespace pennywort::firewall
