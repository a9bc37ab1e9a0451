// no_port_test_linux.cpp - numbers that are no ports. On Windows they go to the firewall manager as
// they are, and what it makes of them is its own matter.
#include <gtest/gtest.h>

#include "firewall.h"
#include "tests/support/collected_traces.h"

namespace {

TEST(Firewall, HasNoAnswerForWhatIsNoPort) {
    for (const long port : {-1L, 0L, 65536L, 0x7fffffffL}) {
        zString why("left over");
        EXPECT_EQ(cFirewall::QueryTCPPort(port, why), cFirewallAnswer::Unknown) << port;
        EXPECT_EQ(why.View(), std::to_string(port) + " is no port");
        EXPECT_FALSE(cFirewall::IsTCPPortFirewalled(port)) << port;
    }
}

TEST(Firewall, TracesWhyItCannotTell) {
    const pennywort::tests::collected_traces traces;
    EXPECT_FALSE(cFirewall::IsTCPPortFirewalled(0));
    EXPECT_EQ(traces.text(), "cFirewall: port 0 counts as not blocked: 0 is no port\n");
}

}  // namespace
