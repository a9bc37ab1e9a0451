// nftables_fuzz.cpp - rule sets of any bytes: an answer for each, and the same for all ways in as
// for the most open of them.
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <string>
#include <vector>

#include "firewall/chain_walk.h"
#include "firewall/netlink_bytes.h"
#include "firewall/rule_set.h"
#include "fuzz/fuzz.h"

using namespace pennywort::firewall;

namespace {

rule_set rules_of(const std::string& messages) {
    rule_set rules;
    rules.add(messages);
    rules.finish();
    return rules;
}

std::vector<way_in> some_ways() {
    std::vector<way_in> ways(3);
    ways[1].is_ip6 = true;
    ways[2].interface_name = "eth0";
    ways[2].interface_index = 2;
    ways[2].has_address = true;
    ways[2].address = {10, 0, 0, 1};
    return ways;
}

constexpr std::uint8_t k_family = NFPROTO_INET;
// The longest attribute that there can be.
constexpr std::size_t k_longest = 60'000;

std::string message_with(std::uint16_t kind, std::uint16_t type, std::string_view bytes,
                         std::uint16_t name_type, std::string_view name) {
    std::string message = nftables_request(kind, 0, k_family);
    add_name(message, 1, "t");  // the table, in each kind of message
    add_name(message, name_type, name);
    add_name(message, type, bytes);
    return message;
}

// The frames of messages are hard to hit: the bytes as the expressions of a rule, and as the
// elements of a set that it may look into.
std::string framed(std::string_view bytes) {
    const std::string hook("\x08\0\x01\0\0\0\0\x01\x08\0\x02\0\0\0\0", 15);
    return message_with(NFT_MSG_NEWCHAIN, NFTA_CHAIN_HOOK, hook, NFTA_CHAIN_NAME, "c") +
           message_with(NFT_MSG_NEWRULE, NFTA_RULE_EXPRESSIONS, bytes, NFTA_RULE_CHAIN, "c") +
           message_with(NFT_MSG_NEWSET, NFTA_SET_DESC, {}, NFTA_SET_NAME, "s") +
           message_with(NFT_MSG_NEWSETELEM, NFTA_SET_ELEM_LIST_ELEMENTS, bytes,
                        NFTA_SET_ELEM_LIST_SET, "s");
}

void check(const std::string& messages) {
    const rule_set rules = rules_of(messages);
    const auto ways = some_ways();
    for (const std::uint16_t port : {std::uint16_t(80), std::uint16_t(8080)}) {
        const port_answer all = judge(rules, ways, port);
        require(all.state != port_state::unknown, "these are not too many addresses");
        require((all.state == port_state::blocked) == !all.why.empty(), "a block has a reason");
        require(all.why.find('\n') == std::string::npos, "which is one line");
        bool is_open = false;
        for (const way_in& way : ways) {
            is_open = is_open || judge(rules, {way}, port).state == port_state::open;
        }
        require(is_open == (all.state == port_state::open), "open is what one way is open for");
    }
}

void look(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    check(bytes);
    check(framed(std::string_view(bytes).substr(0, k_longest)));
}

const fuzz_target k_target("nftables", look);

}  // namespace
