// firewall_test.cpp - cFirewall as hosts use it, on either system.
#include "firewall.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/collected_traces.h"

namespace {

using pennywort::tests::collected_traces;

TEST(Firewall, HasNoAnswerForWhatIsNoPort) {
    cFirewall::Startup();
    for (const long port : {-1L, 0L, 65536L, 0x7fffffffL}) {
        zString why("left over");
        EXPECT_EQ(cFirewall::QueryTCPPort(port, why), cFirewallAnswer::Unknown) << port;
        EXPECT_STRNE(why.CString(), "left over");
        EXPECT_STRNE(why.CString(), "");
        EXPECT_FALSE(cFirewall::IsTCPPortFirewalled(port)) << port;
    }
    cFirewall::Shutdown();
}

TEST(Firewall, TracesWhyItCannotTell) {
    const collected_traces traces;
    EXPECT_FALSE(cFirewall::IsTCPPortFirewalled(0));
    EXPECT_EQ(traces.text().find("cFirewall: port 0 counts as not blocked: "), 0u) << traces.text();
}

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
    for (int i = 0; i < 3; ++i) cFirewall::Shutdown();
    cFirewall::Startup();
    EXPECT_FALSE(cFirewall::IsTCPPortFirewalled(0));
    cFirewall::Shutdown();
}

}  // namespace
