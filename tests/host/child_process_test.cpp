// tests/host/child_process_test.cpp - programs that end early, stall, fail or do what they should.
// What only one system has: child_process_test_linux.cpp, child_process_test_win.cpp.
#include "host/system/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/temporary_folder.h"
#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

using tests::eventually;
using tests::k_patience;

const std::vector<char> k_much(8 << 20, 'x');  // more than any pipe holds

class ChildProcess : public testing::Test {
protected:
    // talker.cpp says what these are.
    void start(const char* status, const char* bytes, const std::string& text) {
        const auto begun = child.start({TALKER, status, bytes, text});
        ASSERT_TRUE(begun.ok()) << begun.text();
    }
    std::string others_bytes() const { return folder.read("other"); }
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
    start("0", "wait", "");
    EXPECT_EQ(write(k_much, 50ms), child_process::write_result::stalled);
    EXPECT_FALSE(child.finish(50ms).ended);
}

// It is not even asked how much it works.
TEST_F(ChildProcess, OneThatTakesNothingWithinATimeIsGivenUpThoughItWorks) {
    start("0", "spin", "");
    EXPECT_EQ(child.write_within(k_much.data(), k_much.size(), 1s),
              child_process::write_result::stalled);
    EXPECT_FALSE(child.finish(0ms).ended);
}

TEST_F(ChildProcess, OneThatTakesAllWithinATimeHasAllOfIt) {
    start("0", std::to_string(k_much.size()).c_str(), "done");
    EXPECT_EQ(child.write_within(k_much.data(), k_much.size(), k_patience),
              child_process::write_result::written);
    EXPECT_EQ(child.finish(k_patience).last_line, "done");
}

TEST_F(ChildProcess, OneThatDoesNotEndIsEnded) {
    start("0", "wait", "");
    EXPECT_FALSE(child.finish(10ms).ended);
}

TEST_F(ChildProcess, ItsLastLineIsKeptHoweverMuchItSaidBeforeAndWasNotReadYet) {
    start("3", "flood", "the end");
    const auto report = child.finish(k_patience);
    EXPECT_EQ(report.status, 3);
    EXPECT_EQ(report.last_line, "the end");
}

TEST_F(ChildProcess, OneThatLeavesAnotherBehindHasEndedAllTheSame) {
    const std::string file = folder.write("other", "");
    start("4", "leave", file);
    // The other one has our pipes too, and is not waited for.
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 4);
    EXPECT_EQ(report.last_line, file);
    EXPECT_TRUE(eventually([&] { return !others_bytes().empty(); }));
    EXPECT_TRUE(eventually([&] { return std::remove(file.c_str()) == 0; }));
}

// A program found by its name may be a small one that starts the real one.
TEST_F(ChildProcess, WhatItHasStartedIsEndedWithIt) {
    start("0", "follow", folder.write("other", ""));
    ASSERT_TRUE(eventually([&] { return !others_bytes().empty(); }));
    EXPECT_FALSE(child.finish(10ms).ended);
    EXPECT_TRUE(eventually([&] {
        const auto before = others_bytes();
        std::this_thread::sleep_for(300ms);
        return others_bytes() == before;
    }));
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
}  // namespace pennywort::host
