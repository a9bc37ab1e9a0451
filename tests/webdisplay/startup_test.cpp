// startup_test.cpp - what the runtime is started with, and what becomes of a start that fails.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "loam/trace.h"
#include "tests/webdisplay/fake_runtime_test.h"
#include "tests/webdisplay/test_process.h"
#include "webdisplay/folder_claim.h"

namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;
using manager = cWebDisplayCEFBrowserManager;

class StartupTest : public FakeRuntimeTest {
protected:
    static std::string failure() {
        zString text;
        manager::GetStartupFailure(text);
        return text.CString();
    }
    // A start that must fail, with the cause and the remedy in its sentence.
    static void expect_failure(const std::string& cause, const std::string& remedy) {
        EXPECT_FALSE(manager::Startup(""));
        EXPECT_FALSE(manager::IsInitialized());
        EXPECT_NE(failure().find(cause), std::string::npos) << failure();
        EXPECT_NE(failure().find(remedy), std::string::npos) << failure();
        EXPECT_EQ(failure().find('\n'), std::string::npos) << failure();
    }
    // What every host may go on doing after that.
    static void expect_everything_harmless() {
        screen s(page("http://a/"));
        ASSERT_NE(s.get(), nullptr);
        EXPECT_FALSE(s->Open());
        s->LoadUrl("http://b/");
        s->SetSize(7, 7);
        s->Repaint();
        s->SetVisibility(true);
        s->DeleteCookies("http://a/");
        EXPECT_FALSE(s->IsLoading());
        EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
        s->Close();
        manager::SetCanRunCefMessageLoopFn([] { return true; });
    }
    fs::path folder_with_library(const std::string& content) const {
        const fs::path folder = m_folder / "runtime";
        fs::create_directories(folder);
        const fs::path name = fs::path(FAKE_RUNTIME_LIBRARY).filename();
        std::ofstream(folder / name) << content;
        return folder;
    }
    static void copy_runtime(const fs::path& folder) {
        fs::create_directories(folder);
        for (const char* name : {"icudtl.dat", "v8_context_snapshot.bin"}) {
            fs::copy_file(fake_folder() + "/" + name, folder / name);
        }
        const fs::path library = FAKE_RUNTIME_LIBRARY;
        fs::copy_file(library, folder / library.filename());
    }
    // Runs the probe, which stands in `folder`, and answers what it wrote.
    std::string run_probe(const fs::path& probe, const std::string& argument = "") const {
        const fs::path output = m_folder / "output";
        const std::string command =
            "\"" + probe.string() + "\" " + argument + " > \"" + output.string() + "\" 2>&1";
        EXPECT_EQ(test_process::run(command), 0) << command;
        std::stringstream text;
        text << std::ifstream(output).rdbuf();
        return text.str();
    }
    static fs::path original_probe() { return fs::path(START_PROBE).make_preferred(); }
    // A copy of the probe, with or without what it needs beside it.
    fs::path probe_in_new_folder(bool with_child, bool with_locales) const {
        const fs::path folder = m_folder / "host", original = original_probe();
        fs::create_directories(folder / "rsrc" / "ChromeLocales");
        fs::copy_file(original, folder / original.filename());
        if (with_child) {
            const fs::path child = original.parent_path() / ("CEFChildProcess" CHILD_SUFFIX);
            fs::copy_file(child, folder / child.filename());
        }
        if (with_locales) std::ofstream(folder / "rsrc" / "ChromeLocales" / "en-US.pak");
        return folder / original.filename();
    }
    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
};

// --- what is missing or wrong

TEST_F(StartupTest, WithoutARuntimeItSaysWhereItLooked) {
    test_process::set_variable("CEF_ROOT", (m_folder / "nowhere").string());
    expect_failure((m_folder / "nowhere").string(), "get-runtime");
    expect_everything_harmless();
    EXPECT_EQ(fake().api_version_asked(), 0);
}

TEST_F(StartupTest, AFileThatIsNoLibraryIsNoRuntime) {
    test_process::set_variable("CEF_ROOT", folder_with_library("not a library").string());
    expect_failure("cannot be loaded", (m_folder / "runtime").string());
    expect_everything_harmless();
}

TEST_F(StartupTest, AnEmptyFileIsNoRuntime) {
    test_process::set_variable("CEF_ROOT", folder_with_library("").string());
    expect_failure("cannot be loaded", (m_folder / "runtime").string());
}

TEST_F(StartupTest, ARuntimeThatLacksAFunctionIsNotUsed) {
    test_process::set_variable("CEF_ROOT", FAKE_RUNTIME_MISSING_EXPORT_FOLDER);
    expect_failure("cef_get_exit_code", "CEF_ROOT");
    expect_everything_harmless();
}

TEST_F(StartupTest, ARuntimeWithoutTheInterfaceIsNotUsed) {
    script().knows_api = false;
    expect_failure("13300", "newer");
    EXPECT_EQ(fake().api_version_asked(), 13300);
    EXPECT_EQ(fake().initialisations(), 0);
    expect_everything_harmless();
}

TEST_F(StartupTest, ARuntimeWithAnotherHashIsNotUsed) {
    script().hash = "0123456789abcdef0123456789abcdef01234567";
    expect_failure("0123456789abcdef0123456789abcdef01234567", "install");
    EXPECT_EQ(fake().initialisations(), 0);
    expect_everything_harmless();
}

TEST_F(StartupTest, ARuntimeWithoutItsDataIsNotUsedSinceItWouldEndTheProcess) {
    const fs::path folder = m_folder / "runtime";
    for (const char* name : {"icudtl.dat", "v8_context_snapshot.bin"}) {
        fs::remove_all(folder);
        copy_runtime(folder);
        fs::remove(folder / name);
        test_process::set_variable("CEF_ROOT", folder.string());
        expect_failure(name, "install");
        shut_down();
    }
    EXPECT_EQ(fake().initialisations(), 0);
    expect_everything_harmless();
}

TEST_F(StartupTest, ARuntimeThatDoesNotStartNamesItsExitCodeAndItsLog) {
    script().init_exit_code = 21;
    expect_failure("21", "cef_debug_log.txt says more");
    expect_everything_harmless();
    // Its timer goes on ticking, which must do no harm.
    loop_until([] { return fake().works() > 3; });
}

TEST_F(StartupTest, WithoutTheHelperProgramTheRuntimeIsNotStarted) {
    const std::string said = run_probe(probe_in_new_folder(false, true));
    EXPECT_TRUE(has(said, "started 0\ninitialised 0\n")) << said;
    EXPECT_TRUE(has(said, "CEFChildProcess")) << said;
    EXPECT_TRUE(has(said, "display 1\nopened 0\n")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
}

TEST_F(StartupTest, WithAHelperThatMayNotBeRunTheRuntimeIsNotStarted) {
    const fs::path probe = probe_in_new_folder(true, true);
    const fs::path helper = probe.parent_path() / ("CEFChildProcess" CHILD_SUFFIX);
    test_process::make_unrunnable(helper.string());
    const std::string said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 0\n")) << said;
    EXPECT_TRUE(has(said, "may not be run")) << said;
}

TEST_F(StartupTest, WithoutLocalesTheRuntimeIsNotStartedSinceItWouldEndTheProcess) {
    const std::string said = run_probe(probe_in_new_folder(true, false));
    EXPECT_TRUE(has(said, "started 0\n")) << said;
    EXPECT_TRUE(has(said, "ChromeLocales")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
}

TEST_F(StartupTest, WithEverythingBesideItTheProbeStarts) {
    const std::string said = run_probe(probe_in_new_folder(true, true));
    EXPECT_TRUE(has(said, "started 1\ninitialised 1\nfailure \n")) << said;
    EXPECT_TRUE(has(said, "display 1\nopened 1\n")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
    EXPECT_TRUE(has(said, "leaks \n")) << said;
}

TEST_F(StartupTest, TheRuntimeIsLookedForBesideTheProgramToo) {
    test_process::clear_variable("CEF_ROOT");
    const fs::path probe = probe_in_new_folder(true, true);
    EXPECT_TRUE(has(run_probe(probe), "started 0\n"));
    copy_runtime(probe.parent_path());
    const std::string said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 1\n")) << said;
}

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

TEST_F(StartupTest, EveryProcessGetsTheSwitchesInTheirOrder) {
    start();
    fake().add_switches("renderer");
    std::vector<fake_cef_switch> want;
    for (const std::string type : {"", "renderer"}) {
        want.push_back({type, "ppapi-out-of-process", "", false});
        want.push_back({type, "enable-system-flash", "", false});
        want.push_back({type, "disk-cache-size", "25000000", true});
        want.push_back({type, "autoplay-policy", "no-user-gesture-required", true});
        if (type.empty()) want.push_back({type, "disable-chrome-login-prompt", "", false});
    }
    EXPECT_EQ(fake().switches(), want);
}

TEST_F(StartupTest, TheHostsSwitchesComeAfterThem) {
    manager::AddCommandLineSwitch("plain", nullptr);
    manager::AddCommandLineSwitch("empty", "");
    manager::AddCommandLineSwitch("with-value", "a b=\"c\"");
    manager::AddCommandLineSwitch(nullptr, "x");
    manager::AddCommandLineSwitch("", "x");
    start();
    const auto switches = fake().switches();
    ASSERT_EQ(switches.size(), 8u);
    EXPECT_EQ(switches[5], (fake_cef_switch{"", "plain", "", false}));
    EXPECT_EQ(switches[6], (fake_cef_switch{"", "empty", "", false}));
    EXPECT_EQ(switches[7], (fake_cef_switch{"", "with-value", "a b=\"c\"", true}));
}

// --- two hosts at once

TEST_F(StartupTest, ASecondHostGetsAFolderOfItsOwnThatGoesWithIt) {
    start();
    test_process::set_variable("LOAM_TRACE", "stderr");
    const std::string said = run_probe(original_probe());
    EXPECT_TRUE(has(said, "started 1\n")) << said;
    EXPECT_TRUE(has(said, "cache exists 1\n")) << said;
    const std::string shared = fake().settings().cache_path;
    const std::size_t at = said.find("cache ") + 6;
    const std::string own = said.substr(at, said.find('\n', at) - at);
    EXPECT_NE(own, shared);
    EXPECT_NE(own, "");
    EXPECT_FALSE(fs::exists(own)) << "it is removed at the end";
    EXPECT_TRUE(has(said, shared + " is in use")) << said;
    EXPECT_TRUE(has(said, own)) << said;
    EXPECT_TRUE(fs::is_directory(shared));
}

TEST_F(StartupTest, TheFolderOfAHostThatEndedIsUsedAgain) {
    EXPECT_TRUE(has(run_probe(original_probe()), "TarnhelmCache\n"));
    start();
    EXPECT_EQ(fake().settings().cache_path, (m_folder / "config" / "TarnhelmCache").string());
}

TEST_F(StartupTest, TheFolderOfAHostThatCrashedIsUsedAgain) {
    const std::string said = run_probe(original_probe(), "abandon");
    ASSERT_TRUE(has(said, "started 1\n")) << said;
    start();
    EXPECT_EQ(fake().settings().cache_path, (m_folder / "config" / "TarnhelmCache").string());
}

// Between a host's claim and the runtime's own mark another host may come.
TEST_F(StartupTest, AFolderIsClaimedByOneHostAtATime) {
    using pennywort::folder_claim;
    auto first = folder_claim::make(m_folder.string());
    ASSERT_TRUE(first);
    EXPECT_FALSE(folder_claim::make(m_folder.string()));
    first.reset();
    EXPECT_TRUE(folder_claim::make(m_folder.string()));
    EXPECT_FALSE(folder_claim::make((m_folder / "nowhere").string()));
}

TEST_F(StartupTest, AFolderThatAnotherProgramsRuntimeUsesIsLeftAlone) {
    const fs::path cache = m_folder / "config" / "TarnhelmCache";
    fs::create_directories(cache);
    test_process::mark_as_used(cache.string());
    start();
    EXPECT_NE(fake().settings().cache_path, cache.string());
    EXPECT_TRUE(fs::is_directory(fake().settings().cache_path));
    const std::string own = fake().settings().cache_path;
    shut_down();
    EXPECT_FALSE(fs::exists(own));
    EXPECT_TRUE(test_process::is_marked_as_used(cache.string()));
}

}  // namespace
