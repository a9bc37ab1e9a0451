// rule_reader.cpp - see the header for the contract.
#include "firewall/rule_reader.h"

#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>

#include <optional>
#include <utility>

#include "core/limits.h"

namespace pennywort::firewall {

namespace {

std::string list_request(std::uint16_t kind, std::uint8_t family = NFPROTO_UNSPEC) {
    return nftables_request(kind, NLM_F_REQUEST | NLM_F_DUMP, family);
}

std::string elements_request(const rule_name& set) {
    std::string request = list_request(NFT_MSG_GETSETELEM, set.family);
    add_name(request, NFTA_SET_ELEM_LIST_TABLE, set.table);
    add_name(request, NFTA_SET_ELEM_LIST_SET, set.name);
    return request;
}

// Counts the changes of the rule set. An answer without a count ends with -1.
outcome<std::uint32_t> generation(nf_link& link) {
    const auto answer =
        link.ask(nftables_request(NFT_MSG_GETGEN, NLM_F_REQUEST | NLM_F_ACK, NFPROTO_UNSPEC));
    if (!answer) return answer.why();
    netlink_message first;
    message_reader all(answer.value());
    const auto content =
        all.next(first) ? nftables_content_of(first) : std::optional<nftables_content>();
    const auto count = content ? number_of(content->attributes, NFTA_GEN_ID) : std::nullopt;
    if (!count) return failure{k_failed, "the kernel's answer is cut"};
    return *count;
}

outcome<> add_list(nf_link& link, std::string request, rule_set& rules) {
    auto answer = link.ask(std::move(request));
    if (!answer) return std::move(answer).why();
    if (rules.add(std::move(answer).value())) return {};
    return failure{k_failed, "the kernel's answer is cut"};
}

outcome<rule_set> read_once(nf_link& link) {
    const auto before = generation(link);
    if (!before) return before.why();
    rule_set rules;
    for (const auto kind : {NFT_MSG_GETTABLE, NFT_MSG_GETCHAIN, NFT_MSG_GETRULE, NFT_MSG_GETSET}) {
        const auto added = add_list(link, list_request(static_cast<std::uint16_t>(kind)), rules);
        if (!added) return added.why();
    }
    for (const rule_name& set : rules.set_names()) {
        const auto added = add_list(link, elements_request(set), rules);
        if (!added) return added.why();
    }
    const auto after = generation(link);
    if (!after) return after.why();
    if (before.value() != after.value()) {
        return failure{k_rules_changed, "the rules change all the time"};
    }
    rules.finish();
    return rules;
}

}  // namespace

outcome<rule_set> read_rules(nf_link& link) {
    auto rules = read_once(link);
    for (int reads = 1; rules.status() == k_rules_changed && reads < k_max_rule_reads; ++reads) {
        rules = read_once(link);
    }
    return rules;
}

}  // namespace pennywort::firewall
