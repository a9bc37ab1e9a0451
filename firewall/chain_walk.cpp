// chain_walk.cpp - see the header for the contract.
#include "firewall/chain_walk.h"

#include <linux/netfilter.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "core/limits.h"
#include "firewall/expressions.h"
#include "firewall/packet.h"

namespace pennywort::firewall {

namespace {

// How a packet may leave a chain, and what stops it for good.
struct chain_exits {
    bool can_pass = false;
    bool can_return = false;
    bool can_leave = false;  // to another address or port
    const chain* stopped_in = nullptr;
    const rule* stopped_by = nullptr;  // null: the chain's policy
};

bool is_for(const chain& one, const way_in& way) {
    switch (one.name.family) {
        case NFPROTO_IPV4:
            return !way.is_ip6;
        case NFPROTO_IPV6:
            return way.is_ip6;
        default:
            break;
    }
    const auto& devices = one.devices;
    return devices.empty() ||
           std::find(devices.begin(), devices.end(), way.interface_name) != devices.end();
}

class chain_walk {
public:
    chain_walk(const rule_set& rules, const packet& what) : m_rules(rules), m_packet(what) {}

    // The chain's policy included.
    chain_exits through_base(const chain& base) {
        chain_exits found = through(base);
        if (!found.can_return) return found;
        if (base.drops_by_policy) {
            found.stopped_in = &base;
            found.stopped_by = nullptr;
        } else {
            found.can_pass = true;
        }
        return found;
    }

private:
    chain_exits through(const chain& one);
    chain_exits walk(const chain& one);
    bool take(const verdict& word, const chain& of, const rule& by, chain_exits& so_far);
    bool follow(const verdict& word, const chain& of, chain_exits& so_far);

    const rule_set& m_rules;
    const packet& m_packet;
    std::map<const chain*, chain_exits> m_walked;
    int m_depth = 0;
};

// A chain does the same to the packet wherever it is jumped from. One that leads back into itself,
// which the kernel does not allow, tells nothing.
chain_exits chain_walk::through(const chain& one) {
    chain_exits anything;
    anything.can_pass = anything.can_return = true;
    if (m_depth >= k_max_rule_jumps) return anything;
    const auto [place, is_new] = m_walked.try_emplace(&one, anything);
    if (!is_new) return place->second;
    ++m_depth;
    const chain_exits found = walk(one);
    --m_depth;
    m_walked[&one] = found;
    return found;
}

chain_exits chain_walk::walk(const chain& one) {
    chain_exits found;
    for (const rule& each : one.rules) {
        const rule_effect effect = run_rule(each, one, m_rules, m_packet);
        bool may_go_on = effect.may_go_on;
        for (const verdict& word : effect.verdicts) {
            may_go_on = take(word, one, each, found) || may_go_on;
        }
        if (!may_go_on) return found;
    }
    found.can_return = true;
    return found;
}

// Returns whether the verdict may lead to the next rule.
bool chain_walk::take(const verdict& word, const chain& of, const rule& by, chain_exits& so_far) {
    switch (word.kind) {
        case verdict_kind::drop:
            so_far.stopped_in = &of;
            so_far.stopped_by = &by;
            return false;
        case verdict_kind::back:
            so_far.can_return = true;
            return false;
        case verdict_kind::elsewhere:
            so_far.can_leave = true;
            return false;
        case verdict_kind::jump:
        case verdict_kind::go_to:
            return follow(word, of, so_far);
        case verdict_kind::accept:
        case verdict_kind::anything:
            break;
    }
    so_far.can_pass = true;
    return false;
}

bool chain_walk::follow(const verdict& word, const chain& of, chain_exits& so_far) {
    const chain* const target = m_rules.find_chain({of.name.family, of.name.table, word.target});
    if (target == nullptr) {
        so_far.can_pass = true;
        return true;
    }
    const chain_exits inside = through(*target);
    so_far.can_pass = so_far.can_pass || inside.can_pass;
    so_far.can_leave = so_far.can_leave || inside.can_leave;
    if (inside.stopped_in != nullptr) {
        so_far.stopped_in = inside.stopped_in;
        so_far.stopped_by = inside.stopped_by;
    }
    if (word.kind == verdict_kind::jump) return inside.can_return;
    so_far.can_return = so_far.can_return || inside.can_return;
    return false;
}

const char* family_name(std::uint8_t family) {
    switch (family) {
        case NFPROTO_INET:
            return "inet";
        case NFPROTO_IPV4:
            return "ip";
        case NFPROTO_IPV6:
            return "ip6";
        case NFPROTO_NETDEV:
            return "netdev";
        default:
            return "?";
    }
}

// Names are whatever somebody called them; the answer is one line.
std::string printable(bytes_view name) {
    std::string text(name);
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, '?');
    return text;
}

std::string words_for(const chain_exits& stopped) {
    if (stopped.stopped_in == nullptr) return "the packet filter lets nothing in";
    const rule_name& name = stopped.stopped_in->name;
    const std::string where = "chain " + printable(name.name) + " of table " +
                              family_name(name.family) + " " + printable(name.table);
    return stopped.stopped_by == nullptr ? where + " drops what no rule lets in"
                                         : where + " refuses it in its rule with handle " +
                                               std::to_string(stopped.stopped_by->handle);
}

// What stops every packet on one way; nothing where some come through, or where the rules send them
// elsewhere and tell no more.
std::optional<chain_exits> stop_on(const rule_set& rules, const std::vector<const chain*>& bases,
                                   const way_in& way, std::uint16_t port) {
    const packet what(way, port, !rules.has_notrack());
    chain_walk walk(rules, what);
    for (const chain* base : bases) {
        if (!is_for(*base, way)) continue;
        const chain_exits found = walk.through_base(*base);
        if (found.can_leave) return std::nullopt;
        if (!found.can_pass) return found;
    }
    return std::nullopt;
}

}  // namespace

std::vector<way_in> ways_of(ip_family family, std::vector<way_in> all) {
    if (family == ip_family::any) return all;
    const bool is_ip6 = family == ip_family::ip6;
    std::erase_if(all, [is_ip6](const way_in& one) { return one.is_ip6 != is_ip6; });
    if (all.empty()) all.emplace_back().is_ip6 = is_ip6;
    return all;
}

port_answer judge(const rule_set& rules, const std::vector<way_in>& ways, std::uint16_t port) {
    const auto bases = rules.base_chains();
    const std::size_t count = std::min(ways.size(), k_max_ways_in);
    std::string why;
    for (std::size_t i = 0; i < count; ++i) {
        const auto stopped = stop_on(rules, bases, ways[i], port);
        if (!stopped) return {port_state::open, {}};
        if (why.empty()) why = words_for(*stopped);
    }
    if (count < ways.size()) return {port_state::unknown, "this machine has too many addresses"};
    if (count == 0) return {port_state::open, {}};
    return {port_state::blocked, std::move(why)};
}

}  // namespace pennywort::firewall
