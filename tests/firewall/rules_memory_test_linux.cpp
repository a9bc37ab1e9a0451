// rules_memory_test_linux.cpp - a rule set that is read and walked through while memory runs out.
#include <gtest/gtest.h>
#include <linux/netfilter.h>

#include <new>
#include <optional>

#include "firewall/chain_walk.h"
#include "firewall/rule_reader.h"
#include "tests/firewall/fake_link.h"
#include "tests/support/failing_memory.h"

namespace pennywort::tests {
namespace {

std::string some_messages() {
    rule_writer rules(NFPROTO_INET);
    rules.set("s", NFT_SET_MAP,
              {element_to_verdict(port_bytes(80), NFT_JUMP, "side"),
               element_to_verdict(port_bytes(81), NF_DROP)});
    rules.base("input", NF_INET_LOCAL_IN, 0, true).rule({load_port(), look_up_verdict("s")});
    rules.chain("side").rule({on("eth0"), from("10.0.0.7"), accept()});
    return rules.messages();
}

// Each call ends with the right answer or with an exception that its caller keeps.
TEST(Memory, RunsOutAtAnyPlaceOfAWalkThroughRules) {
    const std::string messages = some_messages();
    const std::vector<firewall::way_in> ways{ip4_way("10.0.0.1"), ip6_way("fe80::1")};
    std::optional<firewall::port_state> open;
    std::optional<firewall::port_state> blocked;
    const int failures = with_each_allocation_failing(
        [&] {
            open.reset();
            blocked.reset();
            try {
                fake_link link(messages);
                const auto rules = firewall::read_rules(link);
                open = firewall::judge(rules.value(), ways, 80).state;
                blocked = firewall::judge(rules.value(), ways, 82).state;
            } catch (const std::bad_alloc&) {
                return;
            }
        },
        [&] {
            EXPECT_EQ(open.value_or(firewall::port_state::open), firewall::port_state::open);
            EXPECT_EQ(blocked.value_or(firewall::port_state::blocked),
                      firewall::port_state::blocked);
        });
    EXPECT_TRUE(open && blocked);
    EXPECT_GT(failures, 20);
}

}  // namespace
}  // namespace pennywort::tests
