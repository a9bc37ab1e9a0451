// firewall_test.cpp - cFirewall as hosts use it, on either system.
#include "firewall.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

// Whatever this machine's rules are, both questions see the same ones.
TEST(Firewall, GivesOneAnswerToBothQuestions) {
    cFirewall::Startup();
    zString why;
    const cFirewallAnswer answer = cFirewall::QueryTCPPort(8080, why);
    EXPECT_EQ(cFirewall::IsTCPPortFirewalled(8080), answer == cFirewallAnswer::Blocked);
    EXPECT_EQ(*why.CString() == '\0', answer == cFirewallAnswer::Open) << why.CString();
    cFirewall::Shutdown();
}

TEST(Firewall, CanBeAskedOnManyThreadsAtOnce) {
    cFirewall::Startup();
    const bool is_blocked = cFirewall::IsTCPPortFirewalled(8080);
    cFirewall::Shutdown();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([is_blocked] {
            cFirewall::Startup();
            for (int n = 0; n < 20; ++n) {
                EXPECT_EQ(cFirewall::IsTCPPortFirewalled(8080), is_blocked);
            }
            cFirewall::Shutdown();
        });
    }
    for (std::thread& one : threads) one.join();
}

TEST(Firewall, TakesMoreEndsThanStarts) {
    cFirewall::Startup();
    const bool is_blocked = cFirewall::IsTCPPortFirewalled(8080);
    for (int i = 0; i < 3; ++i) cFirewall::Shutdown();
    cFirewall::Startup();
    EXPECT_EQ(cFirewall::IsTCPPortFirewalled(8080), is_blocked);
    cFirewall::Shutdown();
}

}  // namespace
