// xtables_test_linux.cpp - what the nftables variant of iptables leaves to modules of iptables.
#include <gtest/gtest.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables_compat.h>
#include <linux/netfilter/xt_addrtype.h>
#include <linux/netfilter/xt_conntrack.h>
#include <linux/netfilter/xt_multiport.h>
#include <linux/netfilter/xt_state.h>
#include <linux/netfilter/xt_tcpudp.h>

#include <ostream>

#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {
namespace {

enum class matches { never, perhaps, always };

matches what_matches(const expressions& match) {
    rule_writer letting(NFPROTO_IPV4);
    letting.base("INPUT", NF_INET_LOCAL_IN, 0, true).rule({match, accept()});
    rule_writer refusing(NFPROTO_IPV4);
    refusing.base("INPUT", NF_INET_LOCAL_IN, 0, false).rule({match, drop()});
    const std::vector<firewall::way_in> ways{ip4_way("10.0.0.1")};
    const bool can_match = letting.answer(80, ways).state == firewall::port_state::open;
    const bool must_match = refusing.answer(80, ways).state == firewall::port_state::blocked;
    return must_match ? matches::always : can_match ? matches::perhaps : matches::never;
}

template <typename kind>
expressions match(const char* name, std::uint32_t revision, const kind& settings) {
    const std::string_view bytes(reinterpret_cast<const char*>(&settings), sizeof settings);
    return raw("match", attribute_name(NFTA_MATCH_NAME, name) +
                            attribute_number(NFTA_MATCH_REV, revision) +
                            attribute_text(NFTA_MATCH_INFO, bytes));
}

expressions target(const char* name) {
    return raw("target",
               attribute_name(NFTA_TARGET_NAME, name) + attribute_number(NFTA_TARGET_REV, 0));
}

template <typename kind>
expressions conntrack(std::uint32_t revision, std::uint8_t states, std::uint16_t inverted = 0,
                      std::uint16_t more = 0) {
    kind settings{};
    settings.match_flags = XT_CONNTRACK_STATE | more;
    settings.invert_flags = inverted;
    settings.state_mask = states;
    return match("conntrack", revision, settings);
}

expressions multiport(std::uint8_t which, std::initializer_list<std::uint16_t> ports,
                      bool is_range = false, bool is_inverted = false) {
    xt_multiport_v1 settings{};
    settings.flags = which;
    for (const std::uint16_t port : ports) settings.ports[settings.count++] = port;
    settings.pflags[0] = is_range;
    settings.invert = is_inverted;
    return match("multiport", 1, settings);
}

expressions addrtype(std::uint16_t source, std::uint16_t dest, std::uint32_t flags = 0) {
    return match("addrtype", 1, xt_addrtype_info_v1{source, dest, flags});
}

expressions tcp(std::uint16_t low, std::uint16_t high, std::uint8_t inverted = 0,
                std::uint16_t from_high = 65535) {
    xt_tcp settings{};
    settings.spts[1] = from_high;
    settings.dpts[0] = low;
    settings.dpts[1] = high;
    settings.invflags = inverted;
    return match("tcp", 0, settings);
}

expressions syn(std::uint8_t mask, std::uint8_t flags) {
    xt_tcp settings{};
    settings.spts[1] = settings.dpts[1] = 65535;
    settings.flg_mask = mask;
    settings.flg_cmp = flags;
    return match("tcp", 0, settings);
}

struct match_case {
    const char* name;
    expressions match;
    matches want;
};
void PrintTo(const match_case& c, std::ostream* out) { *out << c.name; }

using v1 = xt_conntrack_mtinfo1;
using v2 = xt_conntrack_mtinfo2;
using v3 = xt_conntrack_mtinfo3;
constexpr std::uint8_t k_new = 8, k_known = 6;

const match_case k_cases[] = {
    {"New1", conntrack<v1>(1, k_new), matches::always},
    {"New2", conntrack<v2>(2, k_new), matches::always},
    {"New3", conntrack<v3>(3, k_new), matches::always},
    {"Known1", conntrack<v1>(1, k_known), matches::never},
    {"Known3", conntrack<v3>(3, k_known), matches::never},
    {"NotKnown", conntrack<v3>(3, k_known, XT_CONNTRACK_STATE), matches::always},
    {"NewOfSome", conntrack<v3>(3, k_new, 0, XT_CONNTRACK_ORIGSRC), matches::perhaps},
    {"NewerConntrack", conntrack<v3>(4, k_known), matches::perhaps},
    {"OldState", match("state", 0, xt_state_info{k_new}), matches::always},
    {"OldStateKnown", match("state", 0, xt_state_info{k_known}), matches::never},
    {"Ports", multiport(XT_MULTIPORT_DESTINATION, {22, 80}), matches::always},
    {"OtherPorts", multiport(XT_MULTIPORT_DESTINATION, {22, 81}), matches::never},
    {"NotPorts", multiport(XT_MULTIPORT_DESTINATION, {22, 80}, false, true), matches::never},
    {"PortRange", multiport(XT_MULTIPORT_DESTINATION, {22, 90}, true), matches::always},
    {"EitherPort", multiport(XT_MULTIPORT_EITHER, {80}), matches::always},
    {"EitherOtherPort", multiport(XT_MULTIPORT_EITHER, {81}), matches::perhaps},
    {"SenderPorts", multiport(XT_MULTIPORT_SOURCE, {80}), matches::perhaps},
    {"Local", addrtype(0, XT_ADDRTYPE_LOCAL), matches::always},
    {"Broadcast", addrtype(0, XT_ADDRTYPE_BROADCAST), matches::never},
    {"NotLocal", addrtype(0, XT_ADDRTYPE_LOCAL, XT_ADDRTYPE_INVERT_DEST), matches::never},
    {"SenderType", addrtype(XT_ADDRTYPE_UNICAST, XT_ADDRTYPE_LOCAL), matches::perhaps},
    {"LocalOnOneInterface", addrtype(0, XT_ADDRTYPE_LOCAL, XT_ADDRTYPE_LIMIT_IFACE_IN),
     matches::perhaps},
    {"Port", tcp(80, 80), matches::always},
    {"OtherPort", tcp(81, 90), matches::never},
    {"NotPort", tcp(80, 80, XT_TCP_INV_DSTPT), matches::never},
    {"PortFromSome", tcp(80, 80, 0, 1023), matches::perhaps},
    {"Syn", syn(0x17, 0x02), matches::always},
    {"Ack", syn(0x10, 0x10), matches::never},
    {"Comment", match("comment", 0, std::uint64_t(0)), matches::always},
    {"Recent", match("recent", 0, std::uint64_t(0)), matches::perhaps},
    {"Unknown", match("from_the_future", 0, std::uint64_t(0)), matches::perhaps},
    {"Cut", match("conntrack", 3, std::uint32_t(0)), matches::perhaps},
    {"CutPorts", match("multiport", 1, std::uint32_t(0)), matches::perhaps},
    {"CutTcp", match("tcp", 0, std::uint32_t(0)), matches::perhaps},
    {"Logged", target("LOG"), matches::always},
    {"Marked", target("MARK"), matches::always},
};

class XtablesTest : public testing::TestWithParam<match_case> {};

TEST_P(XtablesTest, MatchesAsItShould) {
    EXPECT_EQ(what_matches(GetParam().match), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(All, XtablesTest, testing::ValuesIn(k_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(XtablesTargets, DoWhatTheirNamesSay) {
    const auto state_with = [](const char* name, bool is_dropping) {
        rule_writer rules(NFPROTO_IPV4);
        rules.base("INPUT", NF_INET_LOCAL_IN, 0, is_dropping).rule({to_port(80), target(name)});
        return rules.answer(80, {ip4_way("10.0.0.1")}).state;
    };
    EXPECT_EQ(state_with("REJECT", false), firewall::port_state::blocked);
    EXPECT_EQ(state_with("LOG", true), firewall::port_state::blocked);
    for (const char* name : {"REDIRECT", "DNAT", "TPROXY", "FROM_THE_FUTURE"}) {
        EXPECT_EQ(state_with(name, true), firewall::port_state::open) << name;
    }
}

TEST(XtablesTargets, OneTakesPacketsFromTracking) {
    rule_writer rules(NFPROTO_IPV4);
    rules.base("PREROUTING", NF_INET_PRE_ROUTING, -300).rule({target("CT")});
    rules.base("INPUT", NF_INET_LOCAL_IN, 0, true).rule({conntrack<v3>(3, k_known), accept()});
    EXPECT_EQ(rules.answer(80, {ip4_way("10.0.0.1")}).state, firewall::port_state::open);
}

}  // namespace
}  // namespace pennywort::tests
