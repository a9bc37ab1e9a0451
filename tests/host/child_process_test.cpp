// tests/host/child_process_test.cpp - programs that end early, stall, fail or do what they should.
// What only one system has: child_process_test_linux.cpp, child_process_test_win.cpp.
#include "host/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/host/temporary_folder.h"

namespace pennywort {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 20s;
const std::vector<char> k_much(8 << 20, 'x');  // more than any pipe holds

class ChildProcess : public testing::Test {
protected:
    // talker.cpp says what these are.
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

TEST_F(ChildProcess, AProgramThatIsNotThereIsNotStarted) {
    const auto begun = child.start({folder.path("missing.exe")});
    EXPECT_FALSE(begun.ok());
    EXPECT_NE(begun.text().find("missing.exe"), std::string::npos) << begun.text();
}

TEST_F(ChildProcess, AFileThatIsNoProgramIsNotStarted) {
    EXPECT_FALSE(child.start({folder.write("text.exe", "hello")}).ok());
}

TEST_F(ChildProcess, OneThatEndsAtOnceTakesNothing) {
    start("3", "0", "no such codec");
    EXPECT_EQ(write(k_much), child_process::write_result::closed);
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 3);
    EXPECT_EQ(report.last_line, "no such codec");
}

TEST_F(ChildProcess, OneThatEndsMidwayIsNoticedWhileItIsWrittenTo) {
    start("1", "100000", "disk full");
    EXPECT_EQ(write(k_much), child_process::write_result::closed);
    EXPECT_EQ(child.finish(k_patience).last_line, "disk full");
}

TEST_F(ChildProcess, OneThatTakesNothingStallsAndIsEnded) {
    start("0", "-2", "");
    EXPECT_EQ(write(k_much, 50ms), child_process::write_result::stalled);
    EXPECT_FALSE(child.finish(50ms).ended);
}

TEST_F(ChildProcess, OneThatDoesNotEndIsEnded) {
    start("0", "-2", "");
    EXPECT_FALSE(child.finish(10ms).ended);
}

TEST_F(ChildProcess, OneThatReadsAllIsToldTheEndOfItsInput) {
    start("0", "-1", "done");
    EXPECT_EQ(write(k_much), child_process::write_result::written);
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 0);
    EXPECT_EQ(report.last_line, "done");
}

TEST_F(ChildProcess, ArgumentsArriveAsTheyWereGiven) {
    for (const char* text :
         {"two words", "a \"quote\"", "ends in a backslash\\", "\\\\\"", "a\\b"}) {
        child_process one;
        ASSERT_TRUE(one.start({TALKER, "0", "0", text}).ok());
        EXPECT_EQ(one.finish(k_patience).last_line, text);
    }
}

}  // namespace
}  // namespace pennywort
