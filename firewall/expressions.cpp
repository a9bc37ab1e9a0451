// expressions.cpp - see the header for the contract.
#include "firewall/expressions.h"

#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <optional>
#include <utility>

#include "firewall/set_lookup.h"
#include "firewall/xtables.h"

namespace pennywort::firewall {

namespace {

bytes_view value_of(bytes_view list, std::uint16_t type) {
    return attribute_of(attribute_of(list, type), NFTA_DATA_VALUE);
}

// Nothing for one that leads to the next rule.
std::optional<verdict> verdict_of(bytes_view data) {
    const bytes_view list = attribute_of(data, NFTA_DATA_VERDICT);
    const auto code = static_cast<std::int32_t>(number_of(list, NFTA_VERDICT_CODE).value_or(0));
    const bytes_view target = name_of(list, NFTA_VERDICT_CHAIN);
    switch (list.data() == nullptr ? NF_QUEUE : code) {
        case NF_ACCEPT:
            return verdict{verdict_kind::accept, {}};
        case NF_DROP:
            return verdict{verdict_kind::drop, {}};
        case NFT_JUMP:
            return verdict{verdict_kind::jump, target};
        case NFT_GOTO:
            return verdict{verdict_kind::go_to, target};
        case NFT_RETURN:
            return verdict{verdict_kind::back, {}};
        case NFT_CONTINUE:
        case NFT_BREAK:
            return std::nullopt;
        default:
            return verdict{verdict_kind::anything, {}};
    }
}

class rule_run {
public:
    rule_run(const chain& of, const rule_set& all, const packet& what)
        : m_chain(of), m_rules(all), m_packet(what) {}

    rule_effect run(const rule& one) {
        for (const expression& part : one.expressions) {
            if (m_is_over || m_so == truth::no) break;
            step(part);
        }
        m_effect.may_go_on = !m_is_over || m_so != truth::yes || m_is_next_possible;
        return std::move(m_effect);
    }

private:
    void step(const expression& part);
    void act(const expression& part);
    void compare(bytes_view data);
    void range(bytes_view data);
    void bitwise(bytes_view data);
    void byteorder(bytes_view data);
    void lookup(bytes_view data);
    void take_elements(const std::vector<found_element>& found, bytes_view data);
    void immediate(bytes_view data);
    void store(std::uint32_t number, bytes_view value);
    void meta(bytes_view data);
    void payload(bytes_view data);
    void conntrack(bytes_view data);
    void object(bytes_view data);
    void target(bytes_view data);
    void unknown();

    void require(truth so) { m_so = both(m_so, so); }
    // The rule's last word.
    void end_with(verdict_kind kind) {
        m_effect.verdicts.push_back({kind, {}});
        m_is_over = true;
    }

    const chain& m_chain;
    const rule_set& m_rules;
    const packet& m_packet;
    registers m_registers;
    truth m_so = truth::yes;
    bool m_is_over = false;
    bool m_is_next_possible = false;  // a map may have sent the packet on
    rule_effect m_effect;
};

void rule_run::step(const expression& part) {
    switch (part.kind) {
        case expression_kind::compare:
            return compare(part.data);
        case expression_kind::range:
            return range(part.data);
        case expression_kind::bitwise:
            return bitwise(part.data);
        case expression_kind::byteorder:
            return byteorder(part.data);
        case expression_kind::lookup:
            return lookup(part.data);
        case expression_kind::meta:
            return meta(part.data);
        case expression_kind::payload:
            return payload(part.data);
        case expression_kind::conntrack:
            return conntrack(part.data);
        case expression_kind::fib:
            return m_packet.load_fib(part.data, m_registers);
        default:
            return act(part);
    }
}

// What neither loads nor compares.
void rule_run::act(const expression& part) {
    switch (part.kind) {
        case expression_kind::immediate:
            return immediate(part.data);
        case expression_kind::counter:
        case expression_kind::notrack:
            return;
        case expression_kind::limit:
        case expression_kind::dynamic_set:
            return require(truth::maybe);
        case expression_kind::load_unknown:
            m_registers.forget();
            return require(truth::maybe);
        case expression_kind::object:
            return object(part.data);
        case expression_kind::reject:
            return end_with(verdict_kind::drop);
        case expression_kind::redirect:
            return end_with(verdict_kind::elsewhere);
        case expression_kind::queue:
            return end_with(verdict_kind::anything);
        case expression_kind::xt_match:
            return require(meets_match(part.data, m_packet));
        case expression_kind::xt_target:
            return target(part.data);
        default:
            return unknown();
    }
}

void rule_run::compare(bytes_view data) {
    const bytes_view with = value_of(data, NFTA_CMP_DATA);
    const auto at = registers::place(number_of(data, NFTA_CMP_SREG).value_or(0), with.size());
    if (!at || with.empty()) return require(truth::maybe);
    switch (number_of(data, NFTA_CMP_OP).value_or(UINT32_MAX)) {
        case NFT_CMP_EQ:
            return require(is_equal(m_registers, *at, with));
        case NFT_CMP_NEQ:
            return require(not_so(is_equal(m_registers, *at, with)));
        case NFT_CMP_LT:
            return require(is_less(m_registers, *at, with));
        case NFT_CMP_LTE:
            return require(not_so(is_greater(m_registers, *at, with)));
        case NFT_CMP_GT:
            return require(is_greater(m_registers, *at, with));
        case NFT_CMP_GTE:
            return require(not_so(is_less(m_registers, *at, with)));
        default:
            return require(truth::maybe);
    }
}

void rule_run::range(bytes_view data) {
    const bytes_view low = value_of(data, NFTA_RANGE_FROM_DATA);
    const bytes_view high = value_of(data, NFTA_RANGE_TO_DATA);
    const auto at = registers::place(number_of(data, NFTA_RANGE_SREG).value_or(0), low.size());
    if (!at || low.empty() || low.size() != high.size()) return require(truth::maybe);
    const truth is_within = is_between(m_registers, *at, low, high);
    const bool is_plain = number_of(data, NFTA_RANGE_OP).value_or(NFT_RANGE_EQ) == NFT_RANGE_EQ;
    require(is_plain ? is_within : not_so(is_within));
}

// Only what the mask lets through depends on the packet.
void rule_run::bitwise(bytes_view data) {
    const bytes_view mask = value_of(data, NFTA_BITWISE_MASK);
    const bytes_view flips = value_of(data, NFTA_BITWISE_XOR);
    const auto from = registers::place(number_of(data, NFTA_BITWISE_SREG).value_or(0), mask.size());
    const auto to = registers::place(number_of(data, NFTA_BITWISE_DREG).value_or(0), mask.size());
    const bool is_plain =
        number_of(data, NFTA_BITWISE_OP).value_or(NFT_BITWISE_BOOL) == NFT_BITWISE_BOOL;
    if (!from || !to || !is_plain || mask.empty() || mask.size() != flips.size()) {
        return m_registers.forget();
    }
    for (std::size_t i = 0; i < mask.size(); ++i) {
        const known_byte before = m_registers[*from + i];
        const auto kept = static_cast<std::uint8_t>(mask[i]);
        const auto flip = static_cast<std::uint8_t>(flips[i]);
        known_byte& after = m_registers[*to + i];
        after.known = before.known | static_cast<std::uint8_t>(~kept);
        after.value = ((before.value & kept) ^ flip) & after.known;
        after.is_sender = before.is_sender && kept == 0xff && flip == 0;
    }
}

void rule_run::byteorder(bytes_view data) {
    const std::size_t length = number_of(data, NFTA_BYTEORDER_LEN).value_or(0);
    const std::size_t size = number_of(data, NFTA_BYTEORDER_SIZE).value_or(0);
    const auto from = registers::place(number_of(data, NFTA_BYTEORDER_SREG).value_or(0), length);
    const auto to = registers::place(number_of(data, NFTA_BYTEORDER_DREG).value_or(0), length);
    if (!from || !to || size == 0 || length % size != 0) return m_registers.forget();
    const registers before = m_registers;
    for (std::size_t i = 0; i < length; ++i) {
        const std::size_t swapped = i / size * size + (size - 1 - i % size);
        m_registers[*to + i] = before[*from + swapped];
    }
}

void rule_run::lookup(bytes_view data) {
    const rule_element_set* const set =
        m_rules.find_set({m_chain.name.family, m_chain.name.table, name_of(data, NFTA_LOOKUP_SET)});
    const bool is_map = attribute_of(data, NFTA_LOOKUP_DREG).data() != nullptr;
    // A set that is not there may have been meant to hold anything.
    if (set == nullptr) return unknown();
    const auto at =
        registers::place(number_of(data, NFTA_LOOKUP_SREG).value_or(0), set->key_length);
    if (!at) return unknown();
    std::vector<found_element> found;
    const truth is_met = look_up(*set, m_registers, *at, is_map ? &found : nullptr);
    const auto flags = number_of(data, NFTA_LOOKUP_FLAGS).value_or(0);
    require((flags & NFT_LOOKUP_F_INV) != 0 ? not_so(is_met) : is_met);
    if (is_map && m_so != truth::no) take_elements(found, data);
}

void rule_run::take_elements(const std::vector<found_element>& found, bytes_view data) {
    const auto number = number_of(data, NFTA_LOOKUP_DREG).value_or(0);
    if (number != NFT_REG_VERDICT) {
        const bool is_one = found.size() == 1 && found[0].is_met == truth::yes;
        const bytes_view value =
            is_one ? attribute_of(found[0].element->data, NFTA_DATA_VALUE) : "";
        return store(number, value);
    }
    for (const found_element& one : found) {
        const auto word = verdict_of(one.element->data);
        if (word) m_effect.verdicts.push_back(*word);
        m_is_next_possible = m_is_next_possible || !word;
    }
    m_is_over = true;
}

void rule_run::immediate(bytes_view data) {
    const bytes_view content = attribute_of(data, NFTA_IMMEDIATE_DATA);
    const auto number = number_of(data, NFTA_IMMEDIATE_DREG).value_or(0);
    if (number != NFT_REG_VERDICT) return store(number, attribute_of(content, NFTA_DATA_VALUE));
    const auto word = verdict_of(content);
    if (word) m_effect.verdicts.push_back(*word);
    m_is_next_possible = !word;
    m_is_over = true;
}

// No value: it is not known.
void rule_run::store(std::uint32_t number, bytes_view value) {
    const auto at = registers::place(number, value.size());
    if (!at || value.empty()) return m_registers.forget();
    for (std::size_t i = 0; i < value.size(); ++i) {
        m_registers[*at + i] = known(static_cast<std::uint8_t>(value[i]));
    }
}

// What is set instead of loaded are marks and the like, which are not known before either.
void rule_run::meta(bytes_view data) {
    if (attribute_of(data, NFTA_META_DREG).data() == nullptr) return;
    m_packet.load_meta(data, m_registers);
}

void rule_run::conntrack(bytes_view data) {
    if (attribute_of(data, NFTA_CT_DREG).data() == nullptr) return;
    m_packet.load_conntrack(data, m_registers);
}

// A packet that is changed where its addresses and ports stand goes another way. What stands before
// them in the head of IP, such as its class of service, changes nothing here.
void rule_run::payload(bytes_view data) {
    constexpr std::uint32_t k_first_address = 8;
    if (attribute_of(data, NFTA_PAYLOAD_SREG).data() == nullptr) {
        return m_packet.load_payload(data, m_registers);
    }
    const bool is_network = number_of(data, NFTA_PAYLOAD_BASE) == NFT_PAYLOAD_NETWORK_HEADER;
    const auto offset = number_of(data, NFTA_PAYLOAD_OFFSET).value_or(k_first_address);
    const auto length = number_of(data, NFTA_PAYLOAD_LEN).value_or(k_first_address);
    const bool is_harmless =
        is_network && offset < k_first_address && length <= k_first_address - offset;
    if (!is_harmless) m_effect.verdicts.push_back({verdict_kind::elsewhere, {}});
}

void rule_run::object(bytes_view data) {
    switch (number_of(data, NFTA_OBJREF_IMM_TYPE).value_or(NFT_OBJECT_UNSPEC)) {
        case NFT_OBJECT_COUNTER:
        case NFT_OBJECT_CT_HELPER:
        case NFT_OBJECT_CT_TIMEOUT:
        case NFT_OBJECT_SECMARK:
            return;
        default:
            return require(truth::maybe);
    }
}

void rule_run::target(bytes_view data) {
    switch (effect_of_target(data)) {
        case target_effect::none:
            return;
        case target_effect::drops:
            return end_with(verdict_kind::drop);
        case target_effect::leads_elsewhere:
            return end_with(verdict_kind::elsewhere);
        case target_effect::anything:
            return unknown();
    }
}

// It may let the packet in, refuse it, change it or do nothing.
void rule_run::unknown() {
    m_effect.verdicts.push_back({verdict_kind::anything, {}});
    m_registers.forget();
    require(truth::maybe);
}

}  // namespace

rule_effect run_rule(const rule& one, const chain& of, const rule_set& all, const packet& what) {
    return rule_run(of, all, what).run(one);
}

}  // namespace pennywort::firewall
