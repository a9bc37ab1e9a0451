// set_test_linux.cpp - sets, intervals, joined keys and maps.
#include <gtest/gtest.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {
namespace {

using firewall::port_state;

constexpr auto k_open = port_state::open;
constexpr auto k_blocked = port_state::blocked;

rule_writer with_set(std::uint32_t flags, const std::vector<std::string>& elements,
                     const std::vector<std::uint32_t>& fields = {}) {
    rule_writer rules(NFPROTO_INET);
    rules.set("s", flags, elements, fields).base("input", NF_INET_LOCAL_IN, 0, true);
    return rules;
}

TEST(Sets, LetInWhatIsInThem) {
    auto rules = with_set(0, {element(port_bytes(80)), element(port_bytes(443))});
    rules.rule({load_port(), look_up("s"), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(443), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

TEST(Sets, LetInWhatIsNotInThemWhenTurnedRound) {
    auto rules = with_set(0, {element(port_bytes(80))});
    rules.rule({load_port(), look_up("s", true), accept()});
    EXPECT_EQ(rules.state(80), k_blocked);
    EXPECT_EQ(rules.state(81), k_open);
}

TEST(Sets, OfAddressesMayHoldASender) {
    auto rules = with_set(0, {element(address_bytes("10.0.0.1"))});
    rules.rule({load_sender(), look_up("s"), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    auto empty = with_set(0, {});
    empty.rule({load_sender(), look_up("s"), accept()});
    EXPECT_EQ(empty.state(80), k_blocked);
}

TEST(Sets, ThatAreMissingTellNothing) {
    rule_writer rules(NFPROTO_INET);
    rules.base("input", NF_INET_LOCAL_IN, 0, true);
    rules.rule({to_port(80), look_up("gone"), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

// The kernel lists them from the last to the first, with an end for all below the first.
TEST(Sets, OfIntervalsAreReadInAnyOrder) {
    auto rules = with_set(NFT_SET_INTERVAL, {element_end(port_bytes(9011)),
                                             element(port_bytes(9000)), element_end(port_bytes(81)),
                                             element(port_bytes(80)), element_end(port_bytes(0))});
    rules.rule({load_port(), look_up("s"), accept()});
    constexpr std::uint16_t k_within[] = {80, 9000, 9010};
    constexpr std::uint16_t k_outside[] = {1, 79, 81, 8999, 9011};
    for (const std::uint16_t port : k_within) EXPECT_EQ(rules.state(port), k_open) << port;
    for (const std::uint16_t port : k_outside) EXPECT_EQ(rules.state(port), k_blocked) << port;
}

TEST(Sets, TheLastIntervalMayHaveNoEnd) {
    auto rules =
        with_set(NFT_SET_INTERVAL, {element(port_bytes(50000)), element_end(port_bytes(0))});
    rules.rule({load_port(), look_up("s"), accept()});
    EXPECT_EQ(rules.state(49999), k_blocked);
    EXPECT_EQ(rules.state(65535), k_open);
}

TEST(Sets, OfNetsKnowThatNobodyIsInANetOfThisMachine) {
    auto rules = with_set(NFT_SET_INTERVAL, {element(address_bytes("192.168.0.0")),
                                             element_end(address_bytes("192.169.0.0"))});
    rules.rule({load_sender(), look_up("s"), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    rules.rule({load_receiver(), look_up("s"), drop()});
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1")}).state, k_open);
}

expressions load_port_behind_protocol() {
    return raw("meta", attribute_number(NFTA_META_DREG, NFT_REG32_00) +
                           attribute_number(NFTA_META_KEY, NFT_META_L4PROTO)) +
           raw("payload", attribute_number(NFTA_PAYLOAD_DREG, NFT_REG32_01) +
                              attribute_number(NFTA_PAYLOAD_BASE, NFT_PAYLOAD_TRANSPORT_HEADER) +
                              attribute_number(NFTA_PAYLOAD_OFFSET, 2) +
                              attribute_number(NFTA_PAYLOAD_LEN, 2));
}

std::string joined(char protocol, std::uint16_t port) {
    return std::string(1, protocol) + std::string(3, '\0') + port_bytes(port) +
           std::string(2, '\0');
}

TEST(Sets, OfJoinedKeysNeedBothParts) {
    auto rules =
        with_set(NFT_SET_CONCAT, {element(joined(6, 80)), element(joined(17, 81))}, {1, 2});
    rules.rule({load_port_behind_protocol(), look_up("s"), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
}

TEST(Sets, OfJoinedIntervalsNeedEachPartWithin) {
    const auto between = [](const std::string& low, const std::string& high) {
        return element(low, nested(NFTA_SET_ELEM_KEY_END, value_data(high)));
    };
    auto rules = with_set(
        NFT_SET_CONCAT | NFT_SET_INTERVAL,
        {between(joined(6, 80), joined(6, 90)), between(joined(17, 100), joined(17, 110))}, {1, 2});
    rules.rule({load_port_behind_protocol(), look_up("s"), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(90), k_open);
    EXPECT_EQ(rules.state(91), k_blocked);
    EXPECT_EQ(rules.state(105), k_blocked);
}

TEST(Maps, SendEachKeyItsOwnWay) {
    auto rules = with_set(NFT_SET_MAP, {element_to_verdict(port_bytes(80), NF_ACCEPT),
                                        element_to_verdict(port_bytes(81), NF_DROP),
                                        element_to_verdict(port_bytes(82), NFT_JUMP, "side"),
                                        element_to_verdict(port_bytes(83), NFT_CONTINUE)});
    rules.rule({load_port(), look_up_verdict("s")});
    rules.rule({load_port(), compare(NFT_CMP_LTE, port_bytes(83)), accept()});
    rules.chain("side").rule({drop()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
    EXPECT_EQ(rules.state(82), k_blocked);
    EXPECT_EQ(rules.state(83), k_open);
    EXPECT_EQ(rules.state(84), k_blocked);
}

TEST(Maps, OfSendersMaySendAnyWay) {
    auto rules = with_set(NFT_SET_MAP, {element_to_verdict(address_bytes("10.0.0.1"), NF_DROP),
                                        element_to_verdict(address_bytes("10.0.0.2"), NF_ACCEPT)});
    rules.rule({load_sender(), look_up_verdict("s")});
    EXPECT_EQ(rules.state(80), k_open);
    auto refusing = with_set(NFT_SET_MAP, {element_to_verdict(address_bytes("10.0.0.1"), NF_DROP)});
    refusing.rule({load_sender(), look_up_verdict("s")}).rule({to_port(80), accept()});
    EXPECT_EQ(refusing.state(80), k_open);
}

TEST(Maps, HaveAnElementForAllOthers) {
    const std::string others = attribute_number(NFTA_SET_ELEM_FLAGS, NFT_SET_ELEM_CATCHALL);
    const auto all_others = [&](std::int32_t code) {
        return others + nested(NFTA_SET_ELEM_DATA, verdict_data(code));
    };
    auto rules =
        with_set(NFT_SET_MAP, {all_others(NF_DROP), element_to_verdict(port_bytes(80), NF_ACCEPT)});
    rules.rule({load_port(), look_up_verdict("s")}).rule({accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(81), k_blocked);
    auto letting =
        with_set(NFT_SET_MAP, {all_others(NF_ACCEPT), element_to_verdict(port_bytes(80), NF_DROP)});
    letting.rule({load_port(), look_up_verdict("s")});
    EXPECT_EQ(letting.state(80), k_blocked);
    EXPECT_EQ(letting.state(81), k_open);
}

// One interval ends where the next begins; the kernel lists the two in either order.
TEST(Maps, OfIntervalsThatTouchKeepThemApart) {
    auto rules =
        with_set(NFT_SET_INTERVAL | NFT_SET_MAP,
                 {element_end(port_bytes(100)), element_to_verdict(port_bytes(90), NF_ACCEPT),
                  element_end(port_bytes(90)), element_to_verdict(port_bytes(80), NF_DROP)});
    rules.rule({load_port(), look_up_verdict("s")});
    EXPECT_EQ(rules.state(89), k_blocked);
    EXPECT_EQ(rules.state(90), k_open);
    EXPECT_EQ(rules.state(99), k_open);
    EXPECT_EQ(rules.state(100), k_blocked);
}

TEST(Maps, ToValuesAreLookedUpInTurn) {
    const std::string value = nested(NFTA_SET_ELEM_DATA, value_data(port_bytes(1000)));
    auto rules = with_set(NFT_SET_MAP, {element(port_bytes(80), value)});
    const auto load = raw("lookup", attribute_name(NFTA_LOOKUP_SET, "s") +
                                        attribute_number(NFTA_LOOKUP_SREG, NFT_REG_1) +
                                        attribute_number(NFTA_LOOKUP_DREG, NFT_REG_1));
    rules.rule({load_port(), load, compare(NFT_CMP_EQ, port_bytes(1000)), accept()});
    EXPECT_EQ(rules.state(80), k_open);
    EXPECT_EQ(rules.state(1000), k_blocked);
    auto other = with_set(NFT_SET_MAP, {element(port_bytes(80), value)});
    other.rule({load_port(), load, compare(NFT_CMP_EQ, port_bytes(1001)), accept()});
    EXPECT_EQ(other.state(80), k_blocked);
}

// "At most ten connections for each": whoever has fewer comes in.
TEST(Sets, AnElementWithAConditionMayNotApply) {
    const std::string limit =
        nested(NFTA_SET_ELEM_EXPR,
               attribute_name(NFTA_EXPR_NAME, "connlimit") + nested(NFTA_EXPR_DATA, {}));
    auto rules = with_set(0, {element(port_bytes(80), limit)});
    rules.rule({load_port(), look_up("s"), drop()}).rule({accept()});
    EXPECT_EQ(rules.state(80), k_open);
    const std::string counter = nested(
        NFTA_SET_ELEM_EXPR, attribute_name(NFTA_EXPR_NAME, "counter") + nested(NFTA_EXPR_DATA, {}));
    auto counted = with_set(0, {element(port_bytes(80), counter)});
    counted.rule({load_port(), look_up("s"), drop()}).rule({accept()});
    EXPECT_EQ(counted.state(80), k_blocked);
}

}  // namespace
}  // namespace pennywort::tests
