// rule_set.cpp - see the header for the contract.
#include "firewall/rule_set.h"

#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nf_tables_compat.h>
#include <linux/netfilter/nfnetlink.h>

#include <algorithm>
#include <utility>

namespace pennywort::firewall {

namespace {

struct kind_name {
    std::string_view name;
    expression_kind kind;
};
// The most frequent first. What is not here may do anything.
constexpr kind_name k_kinds[] = {
    {"cmp", expression_kind::compare},         {"payload", expression_kind::payload},
    {"meta", expression_kind::meta},           {"immediate", expression_kind::immediate},
    {"counter", expression_kind::counter},     {"lookup", expression_kind::lookup},
    {"bitwise", expression_kind::bitwise},     {"ct", expression_kind::conntrack},
    {"match", expression_kind::xt_match},      {"target", expression_kind::xt_target},
    {"limit", expression_kind::limit},         {"reject", expression_kind::reject},
    {"range", expression_kind::range},         {"fib", expression_kind::fib},
    {"byteorder", expression_kind::byteorder}, {"dynset", expression_kind::dynamic_set},
    {"objref", expression_kind::object},       {"notrack", expression_kind::notrack},
    {"queue", expression_kind::queue},         {"log", expression_kind::counter},
    {"last", expression_kind::counter},        {"dup", expression_kind::counter},
    {"quota", expression_kind::limit},         {"connlimit", expression_kind::limit},
    {"numgen", expression_kind::load_unknown}, {"hash", expression_kind::load_unknown},
    {"exthdr", expression_kind::load_unknown}, {"socket", expression_kind::load_unknown},
    {"osf", expression_kind::load_unknown},    {"rt", expression_kind::load_unknown},
    {"tunnel", expression_kind::load_unknown}, {"xfrm", expression_kind::load_unknown},
    {"inner", expression_kind::load_unknown},  {"nat", expression_kind::redirect},
    {"redir", expression_kind::redirect},      {"tproxy", expression_kind::redirect},
    {"fwd", expression_kind::redirect},        {"synproxy", expression_kind::redirect},
    {"masq", expression_kind::redirect},
};

expression_kind kind_of(bytes_view name) {
    for (const kind_name& one : k_kinds) {
        if (one.name == name) return one.kind;
    }
    return expression_kind::unknown;
}

bytes_view expression_name(bytes_view list) { return name_of(list, NFTA_EXPR_NAME); }

expression expression_of(bytes_view list) {
    return {kind_of(expression_name(list)), attribute_of(list, NFTA_EXPR_DATA)};
}

std::vector<expression> expressions_of(bytes_view list) {
    std::vector<expression> all;
    attribute_reader elements(list);
    for (attribute one; elements.next(one);) {
        if (one.type == NFTA_LIST_ELEM) all.push_back(expression_of(one.value));
    }
    return all;
}

// A counter in an element only counts; anything else decides whether the element applies.
bool is_condition(const expression& one) { return one.kind != expression_kind::counter; }

bool has_condition(bytes_view element) {
    const bytes_view single = attribute_of(element, NFTA_SET_ELEM_EXPR);
    if (single.data() != nullptr && is_condition(expression_of(single))) return true;
    const auto all = expressions_of(attribute_of(element, NFTA_SET_ELEM_EXPRESSIONS));
    return std::any_of(all.begin(), all.end(), &is_condition);
}

// That of nftables, or one of the two targets of iptables that can do the same.
bool is_notrack(const expression& one) {
    if (one.kind == expression_kind::notrack) return true;
    const bytes_view target =
        one.kind == expression_kind::xt_target ? name_of(one.data, NFTA_TARGET_NAME) : bytes_view();
    return target == "CT" || target == "NOTRACK";
}

bytes_view value_of(bytes_view list, std::uint16_t type) {
    return attribute_of(attribute_of(list, type), NFTA_DATA_VALUE);
}

set_element element_of(bytes_view list) {
    return {value_of(list, NFTA_SET_ELEM_KEY), value_of(list, NFTA_SET_ELEM_KEY_END),
            number_of(list, NFTA_SET_ELEM_FLAGS).value_or(0),
            attribute_of(list, NFTA_SET_ELEM_DATA), has_condition(list)};
}

std::vector<std::size_t> fields_of(bytes_view set) {
    std::vector<std::size_t> lengths;
    const bytes_view description = attribute_of(set, NFTA_SET_DESC);
    attribute_reader fields(attribute_of(description, NFTA_SET_DESC_CONCAT));
    for (attribute one; fields.next(one);) {
        lengths.push_back(number_of(one.value, NFTA_SET_FIELD_LEN).value_or(0));
    }
    return lengths;
}

std::vector<bytes_view> devices_of(bytes_view hook) {
    std::vector<bytes_view> names;
    const bytes_view single = name_of(hook, NFTA_HOOK_DEV);
    if (!single.empty()) names.push_back(single);
    attribute_reader several(attribute_of(hook, NFTA_HOOK_DEVS));
    for (attribute one; several.next(one);) {
        names.push_back(one.value.substr(0, one.value.find('\0')));
    }
    return names;
}

bool is_end(const set_element& one) { return (one.flags & NFT_SET_ELEM_INTERVAL_END) != 0; }

// At one key an interval ends before the next one begins.
bool comes_before(const set_element& one, const set_element& other) {
    if (one.key != other.key) return one.key < other.key;
    return is_end(one) && !is_end(other);
}

// The kernel's order: by the place in a packet's way, then by priority.
int place_of(const chain& one) {
    if (one.name.family == NFPROTO_NETDEV) return -1;
    return *one.hook == NF_INET_INGRESS ? -1 : static_cast<int>(*one.hook);
}

bool is_on_the_way_in(const chain& one) {
    if (!one.hook) return false;
    switch (one.name.family) {
        case NFPROTO_NETDEV:
            return *one.hook == NF_NETDEV_INGRESS;
        case NFPROTO_INET:
        case NFPROTO_IPV4:
        case NFPROTO_IPV6:
            return *one.hook == NF_INET_PRE_ROUTING || *one.hook == NF_INET_LOCAL_IN ||
                   *one.hook == NF_INET_INGRESS;
        default:
            return false;
    }
}

template <typename named>
const named* find_in(const std::map<rule_name, named>& all, const rule_name& name) {
    const auto found = all.find(name);
    return found == all.end() ? nullptr : &found->second;
}

}  // namespace

bool rule_set::add(std::string messages) {
    m_bytes.push_back(std::move(messages));
    message_reader all(m_bytes.back());
    for (netlink_message one; all.next(one);) add_message(one);
    return !all.is_cut();
}

void rule_set::add_message(const netlink_message& message) {
    const auto content = nftables_content_of(message);
    if (!content || message.type >> 8 != NFNL_SUBSYS_NFTABLES) return;
    switch (message.type & 0xff) {
        case NFT_MSG_NEWTABLE:
            return add_table(content->family, content->attributes);
        case NFT_MSG_NEWCHAIN:
            return add_chain(content->family, content->attributes);
        case NFT_MSG_NEWRULE:
            return add_rule(content->family, content->attributes);
        case NFT_MSG_NEWSET:
            return add_set(content->family, content->attributes);
        case NFT_MSG_NEWSETELEM:
            return add_elements(content->family, content->attributes);
        default:
            return;
    }
}

void rule_set::add_table(std::uint8_t family, bytes_view list) {
    const rule_name name{family, name_of(list, NFTA_TABLE_NAME), {}};
    m_table_flags[name] = number_of(list, NFTA_TABLE_FLAGS).value_or(0);
}

void rule_set::add_chain(std::uint8_t family, bytes_view list) {
    const rule_name name{family, name_of(list, NFTA_CHAIN_TABLE), name_of(list, NFTA_CHAIN_NAME)};
    chain& one = m_chains[name];
    one.name = name;
    const bytes_view hook = attribute_of(list, NFTA_CHAIN_HOOK);
    one.hook = number_of(hook, NFTA_HOOK_HOOKNUM);
    one.priority = static_cast<std::int32_t>(number_of(hook, NFTA_HOOK_PRIORITY).value_or(0));
    one.devices = devices_of(hook);
    one.drops_by_policy = number_of(list, NFTA_CHAIN_POLICY).value_or(NF_ACCEPT) == NF_DROP;
}

void rule_set::add_rule(std::uint8_t family, bytes_view list) {
    const auto found =
        m_chains.find({family, name_of(list, NFTA_RULE_TABLE), name_of(list, NFTA_RULE_CHAIN)});
    if (found == m_chains.end()) return;
    rule one;
    one.handle = long_number_of(list, NFTA_RULE_HANDLE).value_or(0);
    one.expressions = expressions_of(attribute_of(list, NFTA_RULE_EXPRESSIONS));
    m_has_notrack =
        m_has_notrack || std::any_of(one.expressions.begin(), one.expressions.end(), &is_notrack);
    found->second.rules.push_back(std::move(one));
}

void rule_set::add_set(std::uint8_t family, bytes_view list) {
    const rule_name name{family, name_of(list, NFTA_SET_TABLE), name_of(list, NFTA_SET_NAME)};
    rule_element_set& one = m_sets[name];
    one.flags = number_of(list, NFTA_SET_FLAGS).value_or(0);
    one.fields = fields_of(list);
}

void rule_set::add_elements(std::uint8_t family, bytes_view list) {
    const auto found = m_sets.find(
        {family, name_of(list, NFTA_SET_ELEM_LIST_TABLE), name_of(list, NFTA_SET_ELEM_LIST_SET)});
    if (found == m_sets.end()) return;
    attribute_reader elements(attribute_of(list, NFTA_SET_ELEM_LIST_ELEMENTS));
    for (attribute one; elements.next(one);) {
        if (one.type == NFTA_LIST_ELEM) found->second.elements.push_back(element_of(one.value));
    }
}

void rule_set::finish() {
    for (auto& [name, one] : m_sets) {
        for (const set_element& element : one.elements) {
            one.key_length = std::max({one.key_length, element.key.size(), element.key_end.size()});
        }
        const bool has_intervals = (one.flags & NFT_SET_INTERVAL) != 0 && one.fields.size() < 2;
        if (has_intervals) std::sort(one.elements.begin(), one.elements.end(), &comes_before);
    }
}

const chain* rule_set::find_chain(const rule_name& name) const { return find_in(m_chains, name); }

const rule_element_set* rule_set::find_set(const rule_name& name) const {
    return find_in(m_sets, name);
}

bool rule_set::is_dormant(const chain& one) const {
    const auto found = m_table_flags.find({one.name.family, one.name.table, {}});
    return found != m_table_flags.end() && (found->second & NFT_TABLE_F_DORMANT) != 0;
}

std::vector<const chain*> rule_set::base_chains() const {
    std::vector<const chain*> found;
    for (const auto& [name, one] : m_chains) {
        if (is_on_the_way_in(one) && !is_dormant(one)) found.push_back(&one);
    }
    std::stable_sort(found.begin(), found.end(), [](const chain* one, const chain* other) {
        return std::pair(place_of(*one), one->priority) <
               std::pair(place_of(*other), other->priority);
    });
    return found;
}

std::vector<rule_name> rule_set::set_names() const {
    std::vector<rule_name> names;
    for (const auto& [name, one] : m_sets) names.push_back(name);
    return names;
}

}  // namespace pennywort::firewall
