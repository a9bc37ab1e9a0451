// child_process_test_win.cpp - programs that end early, stall, fail or do what they should. On
// Linux shell scripts play them: child_process_test.cpp.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "host/child_process.h"
#include "tests/host/temporary_folder.h"

namespace pennywort {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 20s;
const std::vector<char> k_much(8 << 20, 'x');  // more than any pipe holds

class ChildProcessOfWindows : public testing::Test {
protected:
    void start(const char* status, const char* bytes, const std::string& text) {
        const auto begun = child.start({TALKER, status, bytes, text});
        ASSERT_TRUE(begun.ok()) << begun.text();
    }
    child_process::write_result write(const std::vector<char>& bytes,
                                      std::chrono::milliseconds patience = k_patience) {
        return child.write(bytes.data(), bytes.size(), patience);
    }

    temporary_folder folder;
    child_process child;
};

TEST_F(ChildProcessOfWindows, AProgramThatIsNotThereIsNotStarted) {
    const auto begun = child.start({folder.path("missing.exe")});
    EXPECT_FALSE(begun.ok());
    EXPECT_NE(begun.text().find("missing.exe"), std::string::npos) << begun.text();
}

TEST_F(ChildProcessOfWindows, AFileThatIsNoProgramIsNotStarted) {
    EXPECT_FALSE(child.start({folder.write("text.exe", "hello")}).ok());
}

TEST_F(ChildProcessOfWindows, OneThatEndsAtOnceTakesNothing) {
    start("3", "0", "no such codec");
    EXPECT_EQ(write(k_much), child_process::write_result::closed);
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 3);
    EXPECT_EQ(report.last_line, "no such codec");
}

TEST_F(ChildProcessOfWindows, OneThatEndsMidwayIsNoticedWhileItIsWrittenTo) {
    start("1", "100000", "disk full");
    EXPECT_EQ(write(k_much), child_process::write_result::closed);
    EXPECT_EQ(child.finish(k_patience).last_line, "disk full");
}

TEST_F(ChildProcessOfWindows, OneThatReadsNothingStallsAndIsEnded) {
    start("0", "-2", "");
    EXPECT_EQ(write(k_much, 50ms), child_process::write_result::stalled);
    const auto report = child.finish(50ms);
    EXPECT_FALSE(report.ended);
}

TEST_F(ChildProcessOfWindows, OneThatReadsAllIsToldTheEndOfItsInput) {
    start("0", "-1", "done");
    EXPECT_EQ(write(k_much), child_process::write_result::written);
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 0);
    EXPECT_EQ(report.last_line, "done");
}

TEST_F(ChildProcessOfWindows, ArgumentsArriveAsTheyWereGiven) {
    for (const char* text :
         {"two words", "a \"quote\"", "ends in a backslash\\", "\\\\\"", "a\\b"}) {
        child_process one;
        ASSERT_TRUE(one.start({TALKER, "0", "0", text}).ok());
        EXPECT_EQ(one.finish(k_patience).last_line, text);
    }
}

TEST(FindProgramOfWindows, LooksThroughTheSearchPathInItsOrder) {
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
}  // namespace pennywort
