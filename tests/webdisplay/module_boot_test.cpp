// module_boot_test.cpp - the library's module starts the browser runtime, and ends it.
#include "loam/boot.h"
#include "loam/error_codes.h"
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using ModuleBootTest = FakeRuntimeTest;
using manager = cWebDisplayCEFBrowserManager;

TEST_F(ModuleBootTest, TheRuntimeStartsAndEndsWithTheModules) {
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_TRUE(manager::IsInitialized());
    EXPECT_STREQ(zErrCodeManager::LabelFor(-21000), "pennywort errors");
    EXPECT_TRUE(manager::Startup("")) << "a host may ask again";
    EXPECT_EQ(fake().initialisations(), 1);
    EXPECT_EQ(zBoot::StopModules(), 0);
    EXPECT_FALSE(manager::IsInitialized());
    EXPECT_FALSE(fake().initialised());
}

TEST_F(ModuleBootTest, ARuntimeThatFailsDoesNotFailTheStart) {
    script().init_exit_code = 1;
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_FALSE(manager::IsInitialized());
    EXPECT_STREQ(zErrCodeManager::LabelFor(-21000), "pennywort errors");
    EXPECT_EQ(zBoot::StopModules(), 0);
}

TEST_F(ModuleBootTest, AModuleThatCannotStartLeavesNoRuntime) {
    ASSERT_EQ(zErrCodeManager::RegisterCodeRange(-9000, -9000, "somebody else"), 0);
    EXPECT_EQ(zBoot::StartModules(), -1);
    EXPECT_FALSE(manager::IsInitialized());
    EXPECT_FALSE(fake().initialised());
    EXPECT_EQ(fake().initialisations(), 1);
}

}  // namespace
