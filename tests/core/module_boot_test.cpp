// module_boot_test.cpp - the steps of the module's start and stop, and the module itself where
// there is no browser runtime. Registered codes belong to the process: each test of the module
// needs one of its own, which ctest gives it.
#include "core/module_boot.h"

#include <gtest/gtest.h>

#include <string>

#include "loam/boot.h"
#include "loam/error_codes.h"
#include "tests/support/collected_traces.h"
#include "webdisplay.h"

namespace pennywort {
namespace {

std::string g_log;
zStatus g_status = 0;

constexpr module_steps k_fakes{
    0x66616B65,  // a module that nobody has registered, so that it is brought up here
    [] { g_log += "foundation "; },
    [] { g_log += "firewall "; },
    [] { g_log += "pages "; },
    [] {
        g_log += "codes ";
        return g_status;
    },
    [] { g_log += "no-pages "; },
    [] { g_log += "no-firewall "; },
};

class ModuleBoot : public testing::Test {
protected:
    void SetUp() override {
        g_log.clear();
        g_status = 0;
        zBoot::StopModules();  // what was brought up is forgotten
    }
};

TEST_F(ModuleBoot, StartsStepByStep) {
    EXPECT_EQ(start_module(k_fakes), 0);
    EXPECT_EQ(g_log, "foundation firewall pages codes ");
}

TEST_F(ModuleBoot, FailsWithTheRegistrationAlone) {
    g_status = -7;
    EXPECT_EQ(start_module(k_fakes), -7);
    EXPECT_EQ(g_log, "foundation firewall pages codes ");
}

TEST_F(ModuleBoot, StopsInReverseAndLeavesTheCodes) {
    stop_module(k_fakes);
    EXPECT_EQ(g_log, "no-pages no-firewall ");
}

TEST(Module, NeedsTheFoundationLibrary) {
    EXPECT_EQ(k_own_steps.foundation, zMire::k_tag);
    EXPECT_NE(k_own_steps.boot_foundation, nullptr);
}

// The library's own module. No runtime is found here, which is no failure.
TEST(Module, StartsWithoutABrowserRuntimeAndStops) {
    const tests::collected_traces traces;
    EXPECT_STREQ(zErrCodeManager::LabelFor(-21000), "");
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(zBoot::StartModules(), 0);
        EXPECT_STREQ(zErrCodeManager::LabelFor(-21000), "pennywort errors");
        EXPECT_STREQ(zErrCodeManager::LabelFor(-8999), "pennywort errors");
        EXPECT_STREQ(zErrCodeManager::LabelFor(-21001), "");
        EXPECT_STREQ(zErrCodeManager::LabelFor(-8998), "");
        EXPECT_FALSE(cWebDisplayCEFBrowserManager::IsInitialized());
        EXPECT_EQ(zBoot::StopModules(), 0);
        EXPECT_STREQ(zErrCodeManager::LabelFor(-21000), "pennywort errors") << "it stays";
    }
}

TEST(Module, StartsBeforeWhoNeedsIt) {
    static bool s_was_started;
    s_was_started = false;
    const zBoot dependant(
        [] {
            zBoot::Depends(0x504E5754, nullptr);
            s_was_started = *zErrCodeManager::LabelFor(-21000) != '\0';
        },
        nullptr, 0x64657020);
    const tests::collected_traces traces;
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_TRUE(s_was_started);
    EXPECT_EQ(traces.text().find("zBoot"), std::string::npos) << traces.text();
    EXPECT_EQ(zBoot::StopModules(), 0);
}

TEST(Module, DoesNotStartWhereItsCodesAreTaken) {
    ASSERT_EQ(zErrCodeManager::RegisterCodeRange(-9000, -9000, "somebody else"), 0);
    const tests::collected_traces traces;
    EXPECT_EQ(zBoot::StartModules(), -1);
    EXPECT_NE(traces.text().find("the range of its error codes is taken"), std::string::npos);
    EXPECT_EQ(zBoot::StopModules(), 0);
}

}  // namespace
}  // namespace pennywort
