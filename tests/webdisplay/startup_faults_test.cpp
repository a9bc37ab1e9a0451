// startup_faults_test.cpp - starts without what a start needs, and what the host is told of them.
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/webdisplay/startup_fixture.h"

namespace {

const fs::path k_locale = fs::path("rsrc") / "ChromeLocales" / "en-US.pak";

class StartupFaultsTest : public StartupTest {
protected:
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
    // A copy of the probe, with or without what it needs beside it.
    fs::path probe_in_new_folder(bool with_child, bool with_locales) const {
        const fs::path folder = m_folder / "host", original = original_probe();
        fs::create_directories(folder / "rsrc" / "ChromeLocales");
        fs::copy_file(original, folder / original.filename());
        if (with_child) {
            const fs::path child = original.parent_path() / ("CEFChildProcess" CHILD_SUFFIX);
            fs::copy_file(child, folder / child.filename());
        }
        if (with_locales) {
            fs::copy_file(original.parent_path() / k_locale, folder / k_locale);
        }
        return folder / original.filename();
    }
};

TEST_F(StartupFaultsTest, WithoutARuntimeItSaysWhereItLooked) {
    test_process::set_variable("CEF_ROOT", (m_folder / "nowhere").string());
    expect_failure((m_folder / "nowhere").string(), "install it");
    expect_everything_harmless();
    EXPECT_EQ(fake().api_version_asked(), 0);
}

TEST_F(StartupFaultsTest, AFolderOfTheUsersWithoutALibraryIsNotTheEnd) {
    const fs::path probe = probe_in_new_folder(true, true);
    fs::create_directories(m_folder / "empty");
    test_process::set_variable("CEF_ROOT", (m_folder / "empty").string());
    std::string said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 0\n")) << said;
    EXPECT_TRUE(has(said, "empty, " + probe.parent_path().string())) << said;
    copy_runtime(probe.parent_path());
    said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 1\n")) << said;
}

TEST_F(StartupFaultsTest, AFileThatIsNoLibraryIsNoRuntime) {
    test_process::set_variable("CEF_ROOT", folder_with_library("not a library").string());
    expect_failure("cannot be loaded", (m_folder / "runtime").string());
    expect_everything_harmless();
}

TEST_F(StartupFaultsTest, AnEmptyFileIsNoRuntime) {
    test_process::set_variable("CEF_ROOT", folder_with_library("").string());
    expect_failure("cannot be loaded", (m_folder / "runtime").string());
}

TEST_F(StartupFaultsTest, ARuntimeThatLacksAFunctionIsNotUsed) {
    test_process::set_variable("CEF_ROOT", FAKE_RUNTIME_MISSING_EXPORT_FOLDER);
    expect_failure("cef_get_exit_code", "CEF_ROOT");
    expect_everything_harmless();
}

TEST_F(StartupFaultsTest, ARuntimeWithoutTheInterfaceIsNotUsed) {
    script().knows_api = false;
    expect_failure("13300", "newer");
    EXPECT_EQ(fake().api_version_asked(), 13300);
    EXPECT_EQ(fake().initialisations(), 0);
    expect_everything_harmless();
}

TEST_F(StartupFaultsTest, ARuntimeWithAnotherHashIsNotUsed) {
    script().hash = "0123456789abcdef0123456789abcdef01234567";
    expect_failure("0123456789abcdef0123456789abcdef01234567", "install");
    EXPECT_EQ(fake().initialisations(), 0);
    expect_everything_harmless();
}

TEST_F(StartupFaultsTest, ARuntimeWithoutItsDataIsNotUsedSinceItWouldEndTheProcess) {
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

// A copy that broke off ends the process as one that is missing does.
TEST_F(StartupFaultsTest, ARuntimeWhoseDataIsCutIsNotUsed) {
    const fs::path folder = m_folder / "runtime";
    copy_runtime(folder);
    const auto whole = fs::file_size(folder / "icudtl.dat");
    test_process::set_variable("CEF_ROOT", folder.string());
    for (std::uintmax_t size = 0; size < whole; ++size) {
        SCOPED_TRACE(size);
        fs::resize_file(folder / "icudtl.dat", size);
        expect_failure("icudtl.dat is damaged", "install");
        shut_down();
        fs::remove(folder / "icudtl.dat");
        fs::copy_file(fake_folder() + "/icudtl.dat", folder / "icudtl.dat");
    }
    EXPECT_EQ(fake().initialisations(), 0);
}

TEST_F(StartupFaultsTest, ALocaleThatIsCutIsNotUsed) {
    const fs::path probe = probe_in_new_folder(true, true);
    fs::resize_file(probe.parent_path() / k_locale, 11);
    const std::string said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 0\ninitialised 0\n")) << said;
    EXPECT_TRUE(has(said, "en-US.pak is damaged")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
}

TEST_F(StartupFaultsTest, ARuntimeThatDoesNotStartNamesItsExitCodeAndItsLog) {
    script().init_exit_code = 21;
    expect_failure("21", "cef_debug_log.txt says more");
    expect_everything_harmless();
    // Its timer goes on ticking, which must do no harm.
    loop_until([] { return fake().works() > 3; });
}

TEST_F(StartupFaultsTest, WithoutTheHelperProgramTheRuntimeIsNotStarted) {
    const std::string said = run_probe(probe_in_new_folder(false, true));
    EXPECT_TRUE(has(said, "started 0\ninitialised 0\n")) << said;
    EXPECT_TRUE(has(said, "CEFChildProcess")) << said;
    EXPECT_TRUE(has(said, "display 1\nopened 0\n")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
}

TEST_F(StartupFaultsTest, WithAHelperThatMayNotBeRunTheRuntimeIsNotStarted) {
    const fs::path probe = probe_in_new_folder(true, true);
    const fs::path helper = probe.parent_path() / ("CEFChildProcess" CHILD_SUFFIX);
    test_process::make_unrunnable(helper.string());
    const std::string said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 0\n")) << said;
    EXPECT_TRUE(has(said, "may not be run")) << said;
}

TEST_F(StartupFaultsTest, WithoutLocalesTheRuntimeIsNotStartedSinceItWouldEndTheProcess) {
    const std::string said = run_probe(probe_in_new_folder(true, false));
    EXPECT_TRUE(has(said, "started 0\n")) << said;
    EXPECT_TRUE(has(said, "ChromeLocales")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
}

TEST_F(StartupFaultsTest, WithEverythingBesideItTheProbeStarts) {
    const std::string said = run_probe(probe_in_new_folder(true, true));
    EXPECT_TRUE(has(said, "started 1\ninitialised 1\nfailure \n")) << said;
    EXPECT_TRUE(has(said, "display 1\nopened 1\n")) << said;
    EXPECT_FALSE(has(said, "broken")) << said;
    EXPECT_TRUE(has(said, "leaks \n")) << said;
}

TEST_F(StartupFaultsTest, TheRuntimeIsLookedForBesideTheProgramToo) {
    test_process::clear_variable("CEF_ROOT");
    const fs::path probe = probe_in_new_folder(true, true);
    EXPECT_TRUE(has(run_probe(probe), "started 0\n"));
    copy_runtime(probe.parent_path());
    const std::string said = run_probe(probe);
    EXPECT_TRUE(has(said, "started 1\n")) << said;
}

}  // namespace
