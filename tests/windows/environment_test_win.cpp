// environment_test_win.cpp - the user's folders and language, files that may be run, folders in
// use.
#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, whose types it needs.
#include <shlobj.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/run/environment.h"
#include "core/run/folders.h"
#include "loam/wide_text.h"
#include "tests/webdisplay/test_process.h"
#include "webdisplay/cache_folder.h"
#include "webdisplay/cef/runtime_system.h"
#include "webdisplay/folder_claim.h"
#include "webdisplay/host_environment.h"
#include "webdisplay/runtime_settings.h"

namespace pennywort::webdisplay {
namespace {

namespace fs = std::filesystem;

class WindowsEnvironment : public testing::Test {
protected:
    WindowsEnvironment() : folder(make_private_folder("pennywort-test ж 日本")) {}
    ~WindowsEnvironment() override {
        std::error_code ignored;
        fs::remove_all(path(), ignored);
    }
    fs::path path(const std::wstring& name = {}) const {
        const fs::path own = loam::wide_text(folder);
        return name.empty() ? own : own / name;
    }
    std::string utf8(const std::wstring& name) const {
        return loam::utf8_text(path(name).native());
    }

    const std::string folder;
};

TEST_F(WindowsEnvironment, ARoamingFolderThatCannotBeMadeIsNone) {
    std::ofstream(path(L"file")) << "in the way";
    test_process::use_folders(utf8(L"file") + "\\below", folder);
    EXPECT_EQ(application_data_folder(), "");
    const runtime_paths paths = runtime_paths::find();
    EXPECT_EQ(paths.cache, "");
    EXPECT_EQ(paths.log_file, "cef_debug_log.txt");
}

TEST_F(WindowsEnvironment, TheRoamingFolderIsMadeWhereTheUserWantsIt) {
    test_process::use_folders(utf8(L"Wanderndes Ω"), folder);
    const std::string data = application_data_folder();
    EXPECT_EQ(data, utf8(L"Wanderndes Ω"));
    EXPECT_TRUE(fs::is_directory(path(L"Wanderndes Ω")));
    EXPECT_EQ(runtime_paths::find().cache, data + "\\TarnhelmCache");
    EXPECT_EQ(runtime_paths::find().log_file, data + "\\Tarnhelm\\cef_debug_log.txt");
}

TEST_F(WindowsEnvironment, OnlyAProgramMayBeRun) {
    EXPECT_FALSE(is_runnable(utf8(L"missing.exe")));
    EXPECT_FALSE(is_runnable(folder));
    std::ofstream(path(L"empty.exe"));
    EXPECT_FALSE(is_runnable(utf8(L"empty.exe")));
    std::ofstream(path(L"text.exe")) << "MZ but nothing behind it";
    EXPECT_FALSE(is_runnable(utf8(L"text.exe")));
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    EXPECT_TRUE(is_runnable(loam::utf8_text(program)));
    fs::copy_file(program, path(L"kopie 日本.exe"));
    EXPECT_TRUE(is_runnable(utf8(L"kopie 日本.exe")));
}

TEST_F(WindowsEnvironment, TheProgramsFolderIsTheOneOfItsFile) {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    EXPECT_EQ(run::program_folder(), loam::utf8_text(fs::path(program).parent_path().native()));
    EXPECT_EQ(runtime_paths::find().child_process, run::program_folder() + "\\CEFChildProcess.exe");
    EXPECT_EQ(runtime_paths::find().locales, run::program_folder() + "\\rsrc\\ChromeLocales");
}

TEST_F(WindowsEnvironment, TheLanguageIsTheOneOfTheUsersInterface) {
    const LANGID language = GetUserDefaultUILanguage();
    EXPECT_EQ(user_language().primary, language & 0x3FF);
    EXPECT_EQ(user_language().sublanguage, language >> 10);
}

TEST_F(WindowsEnvironment, AVariableKeepsWhatTheCodePageLacks) {
    const std::wstring value = L"C:\\Ω\\日本";
    SetEnvironmentVariableW(L"PENNYWORT_TEST", value.c_str());
    EXPECT_EQ(run::environment_variable("PENNYWORT_TEST"), loam::utf8_text(value));
    SetEnvironmentVariableW(L"PENNYWORT_TEST", nullptr);
    EXPECT_EQ(run::environment_variable("PENNYWORT_TEST"), "");
}

TEST_F(WindowsEnvironment, ARealFileIsAFileThatIsThere) {
    EXPECT_EQ(cef::real_file(utf8(L"missing")), "");
    EXPECT_EQ(cef::real_file(folder), "");
    std::ofstream(path(L"da ж")) << "x";
    const std::string found = cef::real_file(folder + "/da ж");
    EXPECT_TRUE(fs::equivalent(loam::wide_text(found), path(L"da ж"))) << found;
    EXPECT_FALSE(found.starts_with("\\\\?\\")) << found;
}

TEST_F(WindowsEnvironment, AFolderHasOneClaimAtATime) {
    auto first = folder_claim::make(folder);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(folder_claim::make(folder), nullptr);
    first.reset();
    EXPECT_NE(folder_claim::make(folder), nullptr);
    EXPECT_EQ(folder_claim::make(folder + "\\missing"), nullptr);
}

TEST_F(WindowsEnvironment, AFolderThatABrowserRuntimeUsesIsNotClaimed) {
    const HANDLE lock = CreateFileW(path(L"lockfile").c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(lock, INVALID_HANDLE_VALUE);
    EXPECT_EQ(folder_claim::make(folder), nullptr);
    CloseHandle(lock);
    // One that a runtime left behind when it was ended is not in the way.
    std::ofstream(path(L"lockfile")) << "x";
    EXPECT_NE(folder_claim::make(folder), nullptr);
}

TEST_F(WindowsEnvironment, ASecondHostGetsAPrivateFolderThatGoesWithIt) {
    const cache_folder first(folder);
    std::string second_path;
    {
        const cache_folder second(folder);
        second_path = second.path();
        EXPECT_TRUE(second.is_private());
        EXPECT_TRUE(fs::is_directory(loam::wide_text(second_path)));
        EXPECT_NE(second_path, folder);
    }
    EXPECT_FALSE(first.is_private());
    EXPECT_FALSE(fs::exists(loam::wide_text(second_path)));
}

LONG WINAPI own_filter(EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; }
LONG WINAPI filter_of_runtime(EXCEPTION_POINTERS*) { return EXCEPTION_EXECUTE_HANDLER; }

TEST_F(WindowsEnvironment, TheHostsCrashHandlerIsItsOwnAgainAfterTheRuntimesStart) {
    SetUnhandledExceptionFilter(own_filter);
    const auto guard = cef::startup_guard::make();
    SetUnhandledExceptionFilter(filter_of_runtime);
    guard->restore(true);
    EXPECT_EQ(SetUnhandledExceptionFilter(nullptr), &own_filter);
}

}  // namespace
}  // namespace pennywort::webdisplay
