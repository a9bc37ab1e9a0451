// verdict_test_linux.cpp - the way of a packet through chains, jumps and policies.
#include <gtest/gtest.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include "firewall/chain_walk.h"
#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {
namespace {

using firewall::port_state;

constexpr auto k_open = port_state::open;
constexpr auto k_blocked = port_state::blocked;

rule_writer input(bool is_dropping, std::uint8_t family = NFPROTO_INET) {
    rule_writer rules(family);
    rules.base("input", NF_INET_LOCAL_IN, 0, is_dropping);
    return rules;
}

TEST(Verdicts, NoRulesLetEverythingIn) {
    EXPECT_EQ(rule_writer(NFPROTO_INET).state(80), k_open);
    EXPECT_EQ(input(false).state(80), k_open);
}

TEST(Verdicts, ThePolicyDecidesWhatNoRuleDoes) {
    EXPECT_EQ(input(true).state(80), k_blocked);
    EXPECT_EQ(input(true).answer(80, {ip4_way("10.0.0.1")}).why,
              "chain input of table inet t drops what no rule lets in");
}

TEST(Verdicts, TheFirstRuleThatDecidesIsTheLast) {
    auto rules = input(true);
    rules.rule({to_port(80), accept()}).rule({to_port(80), drop()}).rule({to_port(81), drop()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
    EXPECT_EQ(rules.answer(81, {ip4_way("10.0.0.1")}).why,
              "chain input of table inet t refuses it in its rule with handle 3");
}

TEST(Verdicts, ARuleForSomeSendersLetsThePortIn) {
    auto rules = input(true);
    rules.rule({from("10.1.2.3"), to_port(80), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

TEST(Verdicts, ARuleAgainstSomeSendersBlocksNothing) {
    auto rules = input(false);
    rules.rule({from("10.1.2.3"), drop()});
    EXPECT_EQ(rules.state(80), k_open);
}

TEST(Verdicts, ThisMachineItselfIsNobodyFromOutside) {
    auto rules = input(true);
    rules.rule({from("127.0.0.1"), accept()}).rule({on("lo"), accept()});
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1")}).state, k_blocked);
}

TEST(Verdicts, EachProtocolHasItsOwnTables) {
    auto rules = input(true, NFPROTO_IPV4);
    EXPECT_EQ(rules.state(80), k_open) << "IPv6 comes in";
    rules.table(NFPROTO_IPV6, "six").base("input", NF_INET_LOCAL_IN, 0, true);
    EXPECT_EQ(rules.state(80), k_blocked);
}

TEST(Verdicts, EachOfTheMachinesAddressesIsAWayIn) {
    auto rules = input(true);
    rules.rule({on("eth1"), to_port(80), accept()});
    rules.rule(
        {load_receiver(), compare(NFT_CMP_EQ, address_bytes("10.0.0.2")), to_port(81), accept()});
    const auto only_first = ip4_way("10.0.0.1", "eth0");
    EXPECT_EQ(rules.answer(80, {only_first}).state, k_blocked);
    EXPECT_EQ(rules.answer(80, {only_first, ip4_way("10.0.0.1", "eth1")}).state, k_open);
    EXPECT_EQ(rules.answer(81, {only_first}).state, k_blocked);
    EXPECT_EQ(rules.answer(81, {only_first, ip4_way("10.0.0.2", "eth0")}).state, k_open);
}

// Every interface has an IPv6 address of its own, which nobody gave it.
TEST(Verdicts, AFamilyIsJudgedByItsOwnWaysIn) {
    rule_writer rules(NFPROTO_IPV4);
    rules.base("input", NF_INET_LOCAL_IN, 0, true);
    const std::vector ways = {ip4_way("10.0.0.1"), ip6_way("fe80::1")};
    using firewall::ip_family;
    EXPECT_EQ(rules.answer(80, ways_of(ip_family::any, ways)).state, k_open);
    EXPECT_EQ(rules.answer(80, ways_of(ip_family::ip4, ways)).state, k_blocked);
    EXPECT_EQ(rules.answer(80, ways_of(ip_family::ip6, ways)).state, k_open);
    // Addresses that the machine may still get.
    EXPECT_EQ(rules.answer(80, ways_of(ip_family::ip4, {ip6_way("fe80::1")})).state, k_blocked);
    EXPECT_EQ(rules.answer(80, ways_of(ip_family::ip6, {ip4_way("10.0.0.1")})).state, k_open);
}

TEST(Verdicts, TooManyAddressesTellNothing) {
    const std::vector<firewall::way_in> ways(257, ip4_way("10.0.0.1"));
    EXPECT_EQ(input(true).answer(80, ways).state, port_state::unknown);
    EXPECT_EQ(input(true).answer(80, {ways.begin(), ways.end() - 1}).state, k_blocked);
}

TEST(Verdicts, EveryChainMustLetThePacketThrough) {
    auto rules = input(true);
    rules.rule({to_port(80), accept()});
    rules.base("later", NF_INET_LOCAL_IN, 10, false).rule({to_port(80), drop()});
    EXPECT_EQ(rules.state(80), k_blocked);
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1")}).why,
              "chain later of table inet t refuses it in its rule with handle 2");
}

TEST(Verdicts, TheChainOfTheLowestPriorityComesFirst) {
    rule_writer rules(NFPROTO_INET);
    rules.base("second", NF_INET_LOCAL_IN, 5, true).base("first", NF_INET_LOCAL_IN, -5, true);
    rules.base("before", NF_INET_PRE_ROUTING, 9, true);
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1")}).why,
              "chain before of table inet t drops what no rule lets in");
    rule_writer two(NFPROTO_INET);
    two.base("second", NF_INET_LOCAL_IN, 5, true).base("first", NF_INET_LOCAL_IN, -5, true);
    EXPECT_EQ(two.answer(80, {ip4_way("10.0.0.1")}).why,
              "chain first of table inet t drops what no rule lets in");
}

TEST(Verdicts, OtherHooksAndSleepingTablesDoNothing) {
    rule_writer rules(NFPROTO_INET);
    rules.base("forward", NF_INET_FORWARD, 0, true).base("output", NF_INET_LOCAL_OUT, 0, true);
    rules.table(NFPROTO_INET, "asleep", NFT_TABLE_F_DORMANT);
    rules.base("input", NF_INET_LOCAL_IN, 0, true);
    rules.table(NFPROTO_ARP, "arp").base("input", 0, 0, true);
    rules.table(NFPROTO_BRIDGE, "bridge").base("input", NF_INET_LOCAL_IN, 0, true);
    EXPECT_EQ(rules.state(80), k_open);
}

TEST(Verdicts, AnIngressChainHoldsForItsInterface) {
    rule_writer rules(NFPROTO_NETDEV);
    rules.base("in", NF_NETDEV_INGRESS, 0, true, "eth0");
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1", "eth0")}).state, k_blocked);
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1", "eth1")}).state, k_open);
}

TEST(Verdicts, AJumpComesBackAndAGoToDoesNot) {
    auto rules = input(true);
    rules.rule({jump("side")}).rule({to_port(81), accept()});
    rules.chain("side").rule({to_port(80), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_open);
    auto going = input(true);
    going.rule({go_to("side")}).rule({to_port(81), accept()});
    going.chain("side").rule({to_port(80), accept()});
    EXPECT_EQ(going.state(80), k_open);
    EXPECT_EQ(going.state(81), k_blocked);
}

TEST(Verdicts, AGoToInsideAJumpComesBackToTheJump) {
    auto rules = input(true);
    rules.rule({jump("outer")}).rule({to_port(80), accept()});
    rules.chain("outer").rule({go_to("inner")}).rule({drop()});
    rules.chain("inner");
    EXPECT_EQ(rules.state(80), k_open);
}

TEST(Verdicts, AReturnLeavesItsChain) {
    auto rules = input(true);
    rules.rule({to_port(80), back()}).rule({accept()});
    EXPECT_EQ(rules.state(80), k_blocked);
    EXPECT_EQ(rules.state(81), k_open);
    auto jumping = input(true);
    jumping.rule({jump("side")}).rule({accept()});
    jumping.chain("side").rule({to_port(80), back()}).rule({drop()});
    EXPECT_EQ(jumping.state(80), k_open);
    EXPECT_EQ(jumping.state(81), k_blocked);
}

TEST(Verdicts, AJumpForSomeMayNotHaveHappened) {
    auto rules = input(true);
    rules.rule({from("10.0.0.1"), jump("side")}).rule({to_port(80), accept()});
    rules.chain("side").rule({drop()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

// 2 to the 30th ways through these chains, and one walk through each.
TEST(Verdicts, AChainIsWalkedOnceHoweverOftenItIsJumpedTo) {
    auto rules = input(true);
    rules.rule({jump("c0")});
    for (int i = 0; i < 30; ++i) {
        const std::string next = "c" + std::to_string(i + 1);
        rules.chain("c" + std::to_string(i)).rule({jump(next)}).rule({jump(next)});
    }
    rules.chain("c30");
    EXPECT_EQ(rules.state(80), k_blocked);
}

TEST(Verdicts, ChainsThatLeadInACircleTellNothing) {
    auto rules = input(true);
    rules.rule({jump("a")});
    rules.chain("a").rule({jump("b")});
    rules.chain("b").rule({jump("a")});
    EXPECT_EQ(rules.state(80), k_open);
}

TEST(Verdicts, ChainsDeeperThanTheKernelAllowsTellNothing) {
    auto rules = input(true);
    rules.rule({jump("c0")});
    for (int i = 0; i < 100; ++i) {
        rules.chain("c" + std::to_string(i)).rule({jump("c" + std::to_string(i + 1))});
    }
    rules.chain("c100");
    EXPECT_EQ(rules.state(80), k_open);
}

TEST(Verdicts, AMissingChainTellsNothing) {
    auto rules = input(true);
    rules.rule({jump("nowhere")});
    EXPECT_EQ(rules.state(80), k_open);
}

TEST(Verdicts, WhatIsSentElsewhereTellsNothing) {
    for (const char* kind : {"nat", "redir", "tproxy", "fwd"}) {
        rule_writer rules(NFPROTO_INET);
        rules.base("pre", NF_INET_PRE_ROUTING, -100).rule({to_port(80), raw(kind, {})});
        rules.base("input", NF_INET_LOCAL_IN, 0, true);
        EXPECT_EQ(rules.state(80), k_open) << kind;
        EXPECT_EQ(rules.state(81), k_blocked) << kind;
    }
}

TEST(Verdicts, ANewKindOfExpressionTellsNothing) {
    auto rules = input(true);
    rules.rule({to_port(80), raw("from_the_future", "1234")});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

TEST(Verdicts, AnotherProgramMayLetIn) {
    auto rules = input(true);
    rules.rule({to_port(80), raw("queue", {})});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

TEST(Verdicts, NamesThatAreNoTextBecomeOneLine) {
    rule_writer rules(NFPROTO_INET, "a\nb\x1b[2J");
    rules.base("in\tput", NF_INET_LOCAL_IN, 0, true);
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1")}).why,
              "chain in?put of table inet a?b?[2J drops what no rule lets in");
}

}  // namespace
}  // namespace pennywort::tests
