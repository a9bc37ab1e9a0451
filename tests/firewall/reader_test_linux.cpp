// reader_test_linux.cpp - reading a rule set that fails, changes, is cut or is none; and this
// machine's own.
#include "firewall/rule_reader.h"

#include <gtest/gtest.h>
#include <linux/netfilter.h>

#include "firewall/chain_walk.h"
#include "tests/firewall/fake_link.h"
#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {
namespace {

using firewall::k_rules_changed;
using firewall::port_state;
using firewall::read_rules;

rule_writer some_rules() {
    rule_writer rules(NFPROTO_INET);
    rules.set("s", 0, {element(port_bytes(80))});
    rules.base("input", NF_INET_LOCAL_IN, 0, true).rule({load_port(), look_up("s"), accept()});
    return rules;
}

port_state state_of(const firewall::rule_set& rules, std::uint16_t port) {
    return firewall::judge(rules, {ip4_way("10.0.0.1")}, port).state;
}

TEST(RuleReader, ReadsWhatTheKernelLists) {
    fake_link link(some_rules().messages());
    const auto rules = read_rules(link);
    ASSERT_TRUE(rules);
    EXPECT_EQ(state_of(rules.value(), 80), port_state::open);
    EXPECT_EQ(state_of(rules.value(), 81), port_state::blocked);
}

TEST(RuleReader, AnEmptyRuleSetLetsEverythingIn) {
    fake_link link("");
    const auto rules = read_rules(link);
    ASSERT_TRUE(rules);
    EXPECT_EQ(state_of(rules.value(), 80), port_state::open);
}

TEST(RuleReader, SaysWhyEachQuestionFailed) {
    fake_link fine(some_rules().messages());
    ASSERT_TRUE(read_rules(fine));
    ASSERT_EQ(fine.asked, 7);  // count, tables, chains, rules, sets, elements, count
    for (int at = 1; at <= fine.asked; ++at) {
        fake_link link(some_rules().messages());
        link.failing_at = at;
        link.why = {-5, "no right"};
        const auto rules = read_rules(link);
        EXPECT_FALSE(rules);
        EXPECT_EQ(rules.status(), -5);
        EXPECT_EQ(rules.text(), "no right");
        EXPECT_EQ(link.asked, at);
    }
}

TEST(RuleReader, ReadsAgainWhatChangedMeanwhile) {
    fake_link link(some_rules().messages());
    std::uint32_t count = 0;
    link.next_generation = [&count] { return count < 3 ? count++ : count; };
    EXPECT_TRUE(read_rules(link));
    EXPECT_EQ(link.asked, 14 + 7);
}

TEST(RuleReader, ReadsAgainWhatTheKernelSaysHasChanged) {
    fake_link link(some_rules().messages());
    link.failing_at = 3;
    link.why = {k_rules_changed, ""};
    EXPECT_TRUE(read_rules(link));
    EXPECT_EQ(link.asked, 3 + 7);
}

TEST(RuleReader, GivesUpOnRulesThatChangeAllTheTime) {
    fake_link link(some_rules().messages());
    std::uint32_t count = 0;
    link.next_generation = [&count] { return count++; };
    const auto rules = read_rules(link);
    EXPECT_EQ(rules.status(), k_rules_changed);
    EXPECT_EQ(rules.text(), "the rules change all the time");
    EXPECT_EQ(link.asked, 5 * 7);
}

// Cut at any byte, it is refused or it is a shorter list; neither may do any harm, and a cut within
// a message is always seen.
TEST(RuleReader, RefusesAListThatIsCut) {
    const std::string whole = some_rules().messages();
    int refused = 0;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        fake_link link(whole.substr(0, length));
        const auto rules = read_rules(link);
        if (rules) {
            state_of(rules.value(), 80);
            continue;
        }
        ++refused;
        EXPECT_EQ(rules.text(), "the kernel's answer is cut");
    }
    EXPECT_EQ(static_cast<std::size_t>(refused), whole.size() - 5) << "between the five messages";
}

TEST(RuleReader, SurvivesAnyByte) {
    const std::string whole = some_rules().messages();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const char byte : {'\0', '\1', '\x7f', '\xff'}) {
            std::string changed = whole;
            changed[at] = byte;
            fake_link link(changed);
            const auto rules = read_rules(link);
            if (rules) state_of(rules.value(), 80);
        }
    }
}

// With the rights to read them or without.
TEST(NfLink, ReadsThisMachinesRulesOrSaysWhyNot) {
    const auto link = firewall::nf_link::open();
    ASSERT_TRUE(link) << link.text();
    for (int i = 0; i < 3; ++i) {
        const auto rules = read_rules(*link.value());
        EXPECT_TRUE(rules || !rules.text().empty());
    }
}

}  // namespace
}  // namespace pennywort::tests
