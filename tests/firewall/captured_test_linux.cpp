// captured_test_linux.cpp - rule sets that ufw 0.36.2, firewalld 1.3.3 and nft 1.0.6 have written,
// as the kernel listed them. tests/firewall/captured/README.md says what they were asked for.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <ostream>
#include <string>

#include "firewall/chain_walk.h"
#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {
namespace {

using firewall::port_state;

firewall::rule_set captured(const std::string& name) {
    std::ifstream file(CAPTURED_RULES "/" + name + ".rules", std::ios::binary);
    firewall::rule_set rules;
    EXPECT_TRUE(rules.add({std::istreambuf_iterator<char>(file), {}}));
    rules.finish();
    EXPECT_FALSE(rules.base_chains().empty()) << name;
    return rules;
}

struct port_case {
    const char* rules;
    std::uint16_t port;
    port_state want;
};
void PrintTo(const port_case& c, std::ostream* out) { *out << c.rules << " " << c.port; }

const port_case k_cases[] = {
    {"ufw", 22, port_state::open},
    {"ufw", 8080, port_state::open},
    {"ufw", 8081, port_state::blocked},  // denied
    {"ufw", 8082, port_state::open},     // limited
    {"ufw", 8083, port_state::open},     // to some senders
    {"ufw", 9000, port_state::open},     // a range
    {"ufw", 9010, port_state::open},
    {"ufw", 9011, port_state::blocked},
    {"ufw", 80, port_state::open},  // a list
    {"ufw", 443, port_state::open},
    {"ufw", 81, port_state::blocked},  // not named
    {"firewalld", 22, port_state::open},
    {"firewalld", 80, port_state::open},
    {"firewalld", 8080, port_state::open},
    {"firewalld", 8081, port_state::blocked},
    {"firewalld", 8083, port_state::open},
    {"firewalld", 9090, port_state::blocked},
    {"firewalld_drop", 22, port_state::blocked},  // eth0 alone is in the zone that drops
    {"firewalld_drop", 8080, port_state::blocked},
};

class CapturedTest : public testing::TestWithParam<port_case> {};

TEST_P(CapturedTest, TellsThePort) {
    const port_case& c = GetParam();
    const auto answer = firewall::judge(
        captured(c.rules), {ip4_way("192.168.7.1", "veth0"), ip6_way("fe80::1", "veth0")}, c.port);
    EXPECT_EQ(answer.state, c.want) << answer.why;
}

INSTANTIATE_TEST_SUITE_P(All, CapturedTest, testing::ValuesIn(k_cases), [](const auto& one) {
    return std::string(one.param.rules) + "_" + std::to_string(one.param.port);
});

TEST(Captured, AnInterfaceOfAnotherZoneIsAnotherWayIn) {
    const auto rules = captured("firewalld_drop");
    const auto state = [&rules](const char* name) {
        return firewall::judge(rules, {ip4_way("192.168.7.1", name)}, 8080).state;
    };
    EXPECT_EQ(state("veth0"), port_state::blocked);
    EXPECT_EQ(state("veth1"), port_state::open);
}

// One of each kind of expression that nft writes, with a policy that drops and a way through it.
TEST(Captured, AllKindsOfExpressionsAreRead) {
    const auto rules = captured("mixed");
    const auto answer = firewall::judge(rules, {ip4_way("192.168.7.1"), ip6_way("fe80::1")}, 85);
    EXPECT_EQ(answer.state, port_state::blocked);
    EXPECT_EQ(answer.why.substr(0, 41), "chain input of table inet filter refuses ");
}

}  // namespace
}  // namespace pennywort::tests
