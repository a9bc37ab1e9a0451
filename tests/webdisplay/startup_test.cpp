// startup_test.cpp - what the runtime is started with, and starts after the first.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/webdisplay/startup_fixture.h"

namespace {

using strings = std::vector<std::string>;

// --- starting again

TEST_F(StartupTest, ASecondStartIsTrueAtOnce) {
    start();
    EXPECT_TRUE(manager::Startup(""));
    EXPECT_TRUE(manager::Startup("other"));
    EXPECT_EQ(fake().initialisations(), 1);
    EXPECT_TRUE(manager::IsInitialized());
}

TEST_F(StartupTest, ASecondStartIsTrueEvenIfTheFirstFailed) {
    script().init_exit_code = 1;
    EXPECT_FALSE(manager::Startup(""));
    EXPECT_TRUE(manager::Startup(""));
    EXPECT_FALSE(manager::IsInitialized());
    EXPECT_EQ(fake().initialisations(), 1);
}

TEST_F(StartupTest, ARuntimeThatWasShutDownIsNotStartedAgain) {
    start();
    shut_down();
    EXPECT_FALSE(manager::IsInitialized());
    expect_failure("once", "restart");
    EXPECT_EQ(fake().initialisations(), 1);
    expect_everything_harmless();
}

TEST_F(StartupTest, AStartThatFailedIsNotTriedAgainOnTheRuntime) {
    script().init_exit_code = 1;
    EXPECT_FALSE(manager::Startup(""));
    shut_down();
    script().init_exit_code = 0;
    expect_failure("once", "restart");
    EXPECT_EQ(fake().initialisations(), 1);
}

TEST_F(StartupTest, AStartWithoutARuntimeMayBeTriedAgainWhenThereIsOne) {
    test_process::set_variable("CEF_ROOT", (m_folder / "nowhere").string());
    EXPECT_FALSE(manager::Startup(""));
    shut_down();
    test_process::set_variable("CEF_ROOT", fake_folder());
    start();
    EXPECT_EQ(failure(), "");
    screen s(page("http://a/"));
    show(s);
}

TEST_F(StartupTest, ANullArgumentIsAnEmptyOne) {
    EXPECT_TRUE(manager::Startup(nullptr));
    shut_down();
    EXPECT_FALSE(fake().initialised());
}

// --- settings

TEST_F(StartupTest, TheVersionIsAskedForFirst) {
    start();
    EXPECT_EQ(fake().api_version_asked(), 13300);
    EXPECT_EQ(fake().violations(), strings{});
}

TEST_F(StartupTest, TheRuntimeGetsItsSettings) {
    start();
    const fake_cef_settings s = fake().settings();
    const fs::path host = fs::path(test_process::program()).parent_path();
    EXPECT_EQ(s.no_sandbox, 1);
    EXPECT_EQ(s.windowless_rendering_enabled, 1);
    EXPECT_EQ(s.multi_threaded_message_loop, 0);
    EXPECT_EQ(s.background_color, 0xFF27282Bu);
    EXPECT_EQ(s.browser_subprocess_path, (host / ("CEFChildProcess" CHILD_SUFFIX)).string());
    EXPECT_EQ(s.locales_dir_path, (host / "rsrc" / "ChromeLocales").string());
    EXPECT_EQ(s.cache_path, (m_folder / "config" / "TarnhelmCache").string());
    EXPECT_EQ(s.log_file, (m_folder / "config" / "Tarnhelm" / "cef_debug_log.txt").string());
    EXPECT_TRUE(fs::is_directory(m_folder / "config" / "Tarnhelm"));
    EXPECT_TRUE(fs::is_directory(s.cache_path));
    EXPECT_EQ(s.locale, "en_US");
}

TEST_F(StartupTest, WhatIsNotNamedKeepsTheRuntimesDefault) {
    start();
    const fake_cef_settings s = fake().settings();
    EXPECT_EQ(s.command_line_args_disabled, 0);
    EXPECT_EQ(s.log_severity, 0);
    EXPECT_EQ(s.remote_debugging_port, 0);
    EXPECT_EQ(s.resources_dir_path, "");
    EXPECT_EQ(s.user_agent, "");
    EXPECT_EQ(s.root_cache_path, "");
}

TEST_F(StartupTest, FromVersion146OnTheSettingsAreLongerWithZerosBehind) {
    start();
    EXPECT_EQ(fake().settings().size, 448u);
    EXPECT_TRUE(fake().settings().zeros_behind);
}

TEST_F(StartupTest, BeforeVersion146TheyAreNot) {
    script().version = 145;
    start();
    EXPECT_EQ(fake().settings().size, 440u);
}

TEST_F(StartupTest, LaterVersionsGetTheLongerOnesToo) {
    script().version = 152;
    start();
    EXPECT_EQ(fake().settings().size, 448u);
}

TEST_F(StartupTest, WithoutAFolderForDataItStartsAndKeepsNoCacheOfTheUsers) {
    std::ofstream(m_folder / "file");
    test_process::use_folders((m_folder / "file" / "below").string(), m_folder.string());
    start();
    EXPECT_EQ(fake().settings().cache_path, "");
    EXPECT_EQ(fake().settings().log_file, "cef_debug_log.txt");
}

// --- switches

// A helper's own application may add nothing, so each helper gets them on its command line.
TEST_F(StartupTest, EveryProcessGetsTheSwitchesInTheirOrder) {
    start();
    for (const char* type : {"zygote", "gpu-process", "renderer"}) fake().launch_helper(type);
    std::vector<fake_cef_switch> want;
    for (const std::string type : {"", "zygote", "gpu-process", "renderer"}) {
        want.push_back({type, "ppapi-out-of-process", "", false});
        want.push_back({type, "enable-system-flash", "", false});
        want.push_back({type, "disk-cache-size", "25000000", true});
        want.push_back({type, "autoplay-policy", "no-user-gesture-required", true});
    }
    EXPECT_EQ(fake().switches(), want);
}

TEST_F(StartupTest, TheApplicationDoesNotLookAtTheKindOfProcess) {
    start();
    fake().launch_helper("renderer");
    fake().add_switches("renderer");
    const auto all = fake().switches();
    ASSERT_EQ(all.size(), 12u);
    for (std::size_t i = 4; i < 8; ++i) EXPECT_EQ(all[i], all[i + 4]);
}

TEST_F(StartupTest, TheHostsSwitchesReachEveryProcess) {
    manager::AddCommandLineSwitch("of-the-host", "its value");
    start();
    fake().launch_helper("renderer");
    const auto all = fake().switches();
    ASSERT_EQ(all.size(), 10u);
    EXPECT_EQ(all[4], (fake_cef_switch{"", "of-the-host", "its value", true}));
    EXPECT_EQ(all[9], (fake_cef_switch{"renderer", "of-the-host", "its value", true}));
}

TEST_F(StartupTest, TheHostsSwitchesComeAfterThem) {
    manager::AddCommandLineSwitch("plain", nullptr);
    manager::AddCommandLineSwitch("empty", "");
    manager::AddCommandLineSwitch("with-value", "a b=\"c\"");
    manager::AddCommandLineSwitch(nullptr, "x");
    manager::AddCommandLineSwitch("", "x");
    start();
    const auto switches = fake().switches();
    ASSERT_EQ(switches.size(), 7u);
    EXPECT_EQ(switches[4], (fake_cef_switch{"", "plain", "", false}));
    EXPECT_EQ(switches[5], (fake_cef_switch{"", "empty", "", false}));
    EXPECT_EQ(switches[6], (fake_cef_switch{"", "with-value", "a b=\"c\"", true}));
}

}  // namespace
