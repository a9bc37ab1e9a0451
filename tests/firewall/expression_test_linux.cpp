// expression_test_linux.cpp - single expressions: each rule stands alone in a chain that drops,
// with "accept" behind it, and then in one that accepts, with "drop" behind it. The two tell a rule
// that always matches from one that may and one that never does.
#include <gtest/gtest.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_conntrack_common.h>
#include <linux/netfilter/nf_tables.h>

#include <ostream>

#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {
namespace {

enum class matches { never, perhaps, always };

matches what_matches(const expressions& all, std::uint8_t family = NFPROTO_INET) {
    const std::vector<firewall::way_in> ways{ip4_way("10.0.0.1", "eth0")};
    rule_writer letting(family);
    letting.base("input", NF_INET_LOCAL_IN, 0, true).rule({all, accept()});
    rule_writer refusing(family);
    refusing.base("input", NF_INET_LOCAL_IN, 0, false).rule({all, drop()});
    const bool can_match = letting.answer(80, ways).state == firewall::port_state::open;
    const bool must_match = refusing.answer(80, ways).state == firewall::port_state::blocked;
    EXPECT_TRUE(can_match || !must_match);
    return must_match ? matches::always : can_match ? matches::perhaps : matches::never;
}

std::string own_order(std::uint32_t number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

constexpr std::uint32_t k_invalid = 1, k_established = 2, k_related = 4, k_new = 8;

expressions state_among(std::uint32_t states) {
    return load_conntrack(NFT_CT_STATE) + mask(own_order(states), own_order(0)) +
           compare(NFT_CMP_NEQ, own_order(0));
}

expressions tcp_flags(char kept, char flags) {
    return raw("payload", attribute_number(NFTA_PAYLOAD_DREG, NFT_REG_1) +
                              attribute_number(NFTA_PAYLOAD_BASE, NFT_PAYLOAD_TRANSPORT_HEADER) +
                              attribute_number(NFTA_PAYLOAD_OFFSET, 13) +
                              attribute_number(NFTA_PAYLOAD_LEN, 1)) +
           mask(std::string(1, kept), std::string(1, '\0')) +
           compare(NFT_CMP_EQ, std::string(1, flags));
}

expressions receiver_in(const char* net, const char* net_mask) {
    return load_receiver() + mask(address_bytes(net_mask), address_bytes("0.0.0.0")) +
           compare(NFT_CMP_EQ, address_bytes(net));
}

expressions sender_in(const char* net, const char* net_mask) {
    return load_sender() + mask(address_bytes(net_mask), address_bytes("0.0.0.0")) +
           compare(NFT_CMP_EQ, address_bytes(net));
}

expressions fib_type(std::uint32_t flags, std::uint32_t type) {
    return raw("fib", attribute_number(NFTA_FIB_DREG, NFT_REG_1) +
                          attribute_number(NFTA_FIB_RESULT, NFT_FIB_RESULT_ADDRTYPE) +
                          attribute_number(NFTA_FIB_FLAGS, flags)) +
           compare(NFT_CMP_EQ, own_order(type));
}

expressions swapped(std::uint32_t size, std::uint32_t length) {
    return raw("byteorder", attribute_number(NFTA_BYTEORDER_SREG, NFT_REG_1) +
                                attribute_number(NFTA_BYTEORDER_DREG, NFT_REG_1) +
                                attribute_number(NFTA_BYTEORDER_OP, NFT_BYTEORDER_HTON) +
                                attribute_number(NFTA_BYTEORDER_LEN, length) +
                                attribute_number(NFTA_BYTEORDER_SIZE, size));
}

std::string padded(std::string text, std::size_t size = 16) {
    text.resize(size, '\0');
    return text;
}

struct expression_case {
    const char* name;
    expressions all;
    matches want;
};
void PrintTo(const expression_case& c, std::ostream* out) { *out << c.name; }

const expression_case k_cases[] = {
    {"Nothing", {}, matches::always},
    {"Port", to_port(80), matches::always},
    {"OtherPort", to_port(81), matches::never},
    {"NotThePort", load_port() + compare(NFT_CMP_NEQ, port_bytes(80)), matches::never},
    {"PortBelow", load_port() + compare(NFT_CMP_LT, port_bytes(80)), matches::never},
    {"PortBelowOrThis", load_port() + compare(NFT_CMP_LTE, port_bytes(80)), matches::always},
    {"PortAbove", load_port() + compare(NFT_CMP_GT, port_bytes(79)), matches::always},
    {"PortAboveOrThis", load_port() + compare(NFT_CMP_GTE, port_bytes(81)), matches::never},
    {"NewComparison", load_port() + compare(99, port_bytes(81)), matches::perhaps},
    {"PortRange", load_port() + range(port_bytes(80), port_bytes(90)), matches::always},
    {"PortRangeBehind", load_port() + range(port_bytes(81), port_bytes(90)), matches::never},
    {"OutsidePortRange", load_port() + range(port_bytes(80), port_bytes(90), true), matches::never},
    {"Sender", from("10.1.2.3"), matches::perhaps},
    {"SenderOfAny", sender_in("0.0.0.0", "0.0.0.0"), matches::always},
    {"SenderOfANet", sender_in("10.0.0.0", "255.0.0.0"), matches::perhaps},
    {"SenderOnThisMachine", sender_in("127.0.0.0", "255.0.0.0"), matches::never},
    {"SenderRange", load_sender() + range(address_bytes("10.0.0.0"), address_bytes("10.9.9.9")),
     matches::perhaps},
    {"Receiver", receiver_in("10.0.0.1", "255.255.255.255"), matches::always},
    {"ReceiverInNet", receiver_in("10.0.0.0", "255.255.255.0"), matches::always},
    {"ReceiverInOtherNet", receiver_in("10.0.1.0", "255.255.255.0"), matches::never},
    {"Interface", on("eth0"), matches::always},
    {"OtherInterface", on("eth1"), matches::never},
    {"InterfacesByTheirFront", load_meta(NFT_META_IIFNAME) + compare(NFT_CMP_EQ, "eth"),
     matches::always},
    {"NotLoopback", load_meta(NFT_META_IIFNAME) + compare(NFT_CMP_NEQ, padded("lo")),
     matches::always},
    {"InterfaceByNumber", load_meta(NFT_META_IIF) + compare(NFT_CMP_EQ, own_order(2)),
     matches::always},
    {"LoopbackByNumber", load_meta(NFT_META_IIF) + compare(NFT_CMP_EQ, own_order(1)),
     matches::never},
    {"InterfaceOut", load_meta(NFT_META_OIFNAME) + compare(NFT_CMP_EQ, padded("eth0")),
     matches::perhaps},
    {"Mark", load_meta(NFT_META_MARK) + compare(NFT_CMP_EQ, own_order(1)), matches::perhaps},
    {"Tcp", load_meta(NFT_META_L4PROTO) + compare(NFT_CMP_EQ, "\x06"), matches::always},
    {"Udp", load_meta(NFT_META_L4PROTO) + compare(NFT_CMP_EQ, "\x11"), matches::never},
    {"Ip4", load_meta(NFT_META_NFPROTO) + compare(NFT_CMP_EQ, "\x02"), matches::always},
    {"Ip6", load_meta(NFT_META_NFPROTO) + compare(NFT_CMP_EQ, "\x0a"), matches::never},
    {"EtherTypeIp4", load_meta(NFT_META_PROTOCOL) + compare(NFT_CMP_EQ, port_bytes(0x0800)),
     matches::always},
    {"ForThisMachine", load_meta(NFT_META_PKTTYPE) + compare(NFT_CMP_EQ, std::string(1, '\0')),
     matches::always},
    {"Broadcast", load_meta(NFT_META_PKTTYPE) + compare(NFT_CMP_EQ, "\x01"), matches::never},
    {"NewMetaKey", load_meta(9999) + compare(NFT_CMP_EQ, "\x01"), matches::perhaps},
    {"StateNew", state_among(k_new), matches::always},
    {"StateKnown", state_among(k_established | k_related), matches::never},
    {"StateInvalid", state_among(k_invalid), matches::never},
    {"StateNewOrKnown", state_among(k_new | k_established), matches::always},
    {"StateInOtherOrder",
     load_conntrack(NFT_CT_STATE) + swapped(4, 4) +
         compare(NFT_CMP_EQ, std::string("\0\0\0\x08", 4)),
     matches::always},
    {"Translated",
     load_conntrack(NFT_CT_STATUS) + mask(own_order(IPS_DST_NAT), own_order(0)) +
         compare(NFT_CMP_NEQ, own_order(0)),
     matches::never},
    {"ConnectionMark", load_conntrack(NFT_CT_MARK) + compare(NFT_CMP_EQ, own_order(1)),
     matches::perhaps},
    {"Syn", tcp_flags(0x17, 0x02), matches::always},
    {"NotSyn", tcp_flags(0x12, 0x12), matches::never},
    {"Congestion", tcp_flags(static_cast<char>(0xc0), 0), matches::perhaps},
    {"LocalReceiver", fib_type(NFTA_FIB_F_DADDR, 2), matches::always},
    {"MulticastReceiver", fib_type(NFTA_FIB_F_DADDR, 5), matches::never},
    {"SenderType", fib_type(NFTA_FIB_F_SADDR, 2), matches::perhaps},
    {"Limit", raw("limit", {}), matches::perhaps},
    {"Quota", raw("quota", {}), matches::perhaps},
    {"Counter", raw("counter", {}), matches::always},
    {"Log", raw("log", {}), matches::always},
    {"RandomNumber", raw("numgen", {}) + compare(NFT_CMP_EQ, own_order(1)), matches::perhaps},
    {"Header", raw("exthdr", {}), matches::perhaps},
    {"DynamicSet", raw("dynset", {}), matches::perhaps},
    {"CounterByName", raw("objref", attribute_number(NFTA_OBJREF_IMM_TYPE, NFT_OBJECT_COUNTER)),
     matches::always},
    {"LimitByName", raw("objref", attribute_number(NFTA_OBJREF_IMM_TYPE, NFT_OBJECT_LIMIT)),
     matches::perhaps},
    {"WhatIsInALaterHeader",
     raw("payload", attribute_number(NFTA_PAYLOAD_DREG, NFT_REG_1) +
                        attribute_number(NFTA_PAYLOAD_BASE, NFT_PAYLOAD_TRANSPORT_HEADER) +
                        attribute_number(NFTA_PAYLOAD_OFFSET, 0xfffffffe) +
                        attribute_number(NFTA_PAYLOAD_LEN, 4)) +
         compare(NFT_CMP_EQ, own_order(1)),
     matches::perhaps},
    {"WhatBeginsInAHeaderAndEndsBehindIt",
     raw("payload", attribute_number(NFTA_PAYLOAD_DREG, NFT_REG_1) +
                        attribute_number(NFTA_PAYLOAD_BASE, NFT_PAYLOAD_TRANSPORT_HEADER) +
                        attribute_number(NFTA_PAYLOAD_OFFSET, 38) +
                        attribute_number(NFTA_PAYLOAD_LEN, 16)) +
         compare(NFT_CMP_EQ, own_order(1)),
     matches::perhaps},
    {"NoSuchRegister",
     raw("cmp", attribute_number(NFTA_CMP_SREG, 5) + attribute_number(NFTA_CMP_OP, NFT_CMP_EQ) +
                    nested(NFTA_CMP_DATA, value_data(port_bytes(80)))),
     matches::perhaps},
    {"LongerThanTheRegisters",
     raw("cmp", attribute_number(NFTA_CMP_SREG, NFT_REG32_15) +
                    attribute_number(NFTA_CMP_OP, NFT_CMP_EQ) +
                    nested(NFTA_CMP_DATA, value_data(padded("a")))),
     matches::perhaps},
};

class ExpressionTest : public testing::TestWithParam<expression_case> {};

TEST_P(ExpressionTest, MatchesAsItShould) {
    EXPECT_EQ(what_matches(GetParam().all), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(All, ExpressionTest, testing::ValuesIn(k_cases),
                         [](const auto& one) { return std::string(one.param.name); });

// Where a rule takes packets away from connection tracking, they are not new to it.
TEST(Expressions, StatesAreNotKnownWithoutTracking) {
    rule_writer rules(NFPROTO_INET);
    rules.base("raw", NF_INET_PRE_ROUTING, -300).rule({to_port(80), raw("notrack", {})});
    rules.base("input", NF_INET_LOCAL_IN, 0, true).rule({state_among(k_established), accept()});
    EXPECT_EQ(rules.state(80), firewall::port_state::open);
}

TEST(Expressions, APacketWithAnotherPortTellsNothing) {
    rule_writer rules(NFPROTO_INET);
    const auto write_payload = [](std::uint32_t base, std::uint32_t offset) {
        return raw("payload", attribute_number(NFTA_PAYLOAD_SREG, NFT_REG_1) +
                                  attribute_number(NFTA_PAYLOAD_BASE, base) +
                                  attribute_number(NFTA_PAYLOAD_OFFSET, offset) +
                                  attribute_number(NFTA_PAYLOAD_LEN, 2));
    };
    rules.base("pre", NF_INET_PRE_ROUTING, -100);
    rules.rule({to_port(80), write_payload(NFT_PAYLOAD_TRANSPORT_HEADER, 2)});
    rules.rule({to_port(81), write_payload(NFT_PAYLOAD_NETWORK_HEADER, 0)});
    rules.base("input", NF_INET_LOCAL_IN, 0, true);
    EXPECT_EQ(rules.state(80), firewall::port_state::open);
    EXPECT_EQ(rules.state(81), firewall::port_state::blocked) << "only its class of service";
}

}  // namespace
}  // namespace pennywort::tests
