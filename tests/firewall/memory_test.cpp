// memory_test.cpp - cFirewall whose memory runs out at any moment, on either system.
#include <gtest/gtest.h>

#include "firewall.h"
#include "tests/support/failing_memory.h"

namespace {

TEST(Memory, RunsOutAtAnyPlaceOfAQuery) {
    cFirewall::Startup();
    const bool is_blocked = cFirewall::IsTCPPortFirewalled(8080);
    bool found = false;
    const int failures = with_each_allocation_failing(
        [&] { found = cFirewall::IsTCPPortFirewalled(8080); },
        [&] { EXPECT_TRUE(is_blocked || !found) << "a failure blocks no port"; });
    EXPECT_EQ(found, is_blocked);
    EXPECT_GT(failures, 0);
    cFirewall::Shutdown();
}

TEST(Memory, RunsOutAtAnyPlaceOfAQuestionWithReasons) {
    cFirewall::Startup();
    zString why;
    cFirewallAnswer found = cFirewallAnswer::Blocked;
    const cFirewallAnswer wanted = cFirewall::QueryTCPPort(8080, why);
    const int failures = with_each_allocation_failing(
        [&] { found = cFirewall::QueryTCPPort(8080, why); },
        [&] { EXPECT_TRUE(found == wanted || found == cFirewallAnswer::Unknown); });
    EXPECT_EQ(found, wanted);
    EXPECT_GT(failures, 0);
    cFirewall::Shutdown();
}

}  // namespace
