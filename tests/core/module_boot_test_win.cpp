// module_boot_test_win.cpp - with the library's module the thread has its COM, and without it not.
#include <gtest/gtest.h>

#include <string>

#include "firewall.h"
#include "loam/boot.h"
#include "tests/support/collected_traces.h"

namespace pennywort {
namespace {

bool has_com() {
    zString why;
    cFirewall::QueryTCPPort(8080, why);
    return why.View().find("0x800401f0") == std::string::npos;
}

TEST(Module, GivesTheFirewallQueryItsCom) {
    const tests::collected_traces traces;
    EXPECT_FALSE(has_com());
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_TRUE(has_com());
    EXPECT_EQ(zBoot::StopModules(), 0);
    EXPECT_FALSE(has_com());
}

}  // namespace
}  // namespace pennywort
