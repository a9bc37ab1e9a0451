// child_process_test_win.cpp - how Windows looks for a program. Linux half:
// child_process_test_linux.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/system/child_process.h"
#include "host/system/program_search.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

TEST(FindProgram, LooksThroughTheSearchPathInItsOrder) {
    const temporary_folder folder;
    std::filesystem::create_directories(folder.path("a"));
    std::filesystem::create_directories(folder.path("b"));
    folder.write("a/tool.exe", "not a program");
    std::filesystem::copy_file(TALKER, folder.path("b/tool.exe"));
    const std::string before = std::getenv("PATH");
    _putenv_s("PATH", (folder.path("a") + ";" + folder.path("b")).c_str());
    const auto found = find_program("tool");
    const auto missing = find_program("other");
    _putenv_s("PATH", before.c_str());
    EXPECT_EQ(std::filesystem::path(found), folder.path("b/tool.exe"));
    EXPECT_EQ(missing, "");
}

}  // namespace
}  // namespace pennywort::host
