// child_process_test_linux.cpp - programs that are shell scripts, signals, descriptors, and how
// Linux looks for a program. Windows half: child_process_test_win.cpp.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "host/system/child_process.h"
#include "host/system/program_search.h"
#include "tests/host/temporary_folder.h"
#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

using tests::k_patience;

class ChildScript : public testing::Test {
protected:
    void start(const std::string& script) {
        const auto begun =
            child.start({folder.write_program("program", script), "one", "two words"});
        ASSERT_TRUE(begun.ok()) << begun.text();
    }

    temporary_folder folder;
    child_process child;
};

TEST_F(ChildScript, OneThatASignalEndsSaysSo) {
    start("kill -KILL $$\n");
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 128 + 9);
}

TEST_F(ChildScript, MuchOnItsErrorOutputDoesNotBlockIt) {
    start("head -c 1000000 /dev/zero | tr '\\0' 'e' >&2\necho >&2\necho done >&2\n");
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.last_line, "done");
}

TEST_F(ChildScript, GetsItsArgumentsAndEveryByteOfItsInput) {
    const std::vector<char> much(8 << 20, 'x');
    start("cat > '" + folder.path("copy") + "'\nprintf '%s|%s' \"$1\" \"$2\" >&2\n");
    EXPECT_EQ(child.write(much.data(), much.size(), k_patience),
              child_process::write_result::written);
    const auto report = child.finish(k_patience);
    EXPECT_EQ(report.status, 0);
    EXPECT_EQ(report.last_line, "one|two words");
    EXPECT_EQ(std::filesystem::file_size(folder.path("copy")), much.size());
}

// The program itself waits meanwhile, and does nothing.
TEST_F(ChildScript, WhatItHasStartedWorksForIt) {
    start(
        "(end=$(($(date +%s) + 4)); while [ $(date +%s) -lt $end ]; do :; done)\n"
        "exit 5\n");
    const auto report = child.finish_at_its_pace(std::chrono::seconds(1));
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 5);
}

// As an encoder that has much to do with one picture.
TEST_F(ChildScript, OneThatTakesNothingForLongIsWaitedForWhileItWorks) {
    const std::vector<char> much(8 << 20, 'x');
    start(
        "end=$(($(date +%s) + 4)); while [ $(date +%s) -lt $end ]; do :; done\n"
        "cat >/dev/null\nexit 5\n");
    EXPECT_EQ(child.write(much.data(), much.size(), std::chrono::seconds(1)),
              child_process::write_result::written);
    EXPECT_EQ(child.finish(k_patience).status, 5);
}

TEST_F(ChildScript, StartsAndEndsAHundredTimesWithoutLeavingDescriptors) {
    const auto count = [] {
        const auto open = std::filesystem::directory_iterator("/proc/self/fd");
        return std::distance(begin(open), end(open));
    };
    const auto program = folder.write_program("program", "cat >/dev/null\n");
    const auto before = count();
    for (int i = 0; i < 100; ++i) {
        child_process one;
        ASSERT_TRUE(one.start({program}).ok());
        EXPECT_EQ(one.finish(k_patience).status, 0);
    }
    EXPECT_EQ(count(), before);
}

TEST(FindProgram, LooksThroughTheSearchPathInItsOrder) {
    const temporary_folder folder;
    std::filesystem::create_directories(folder.path("a"));
    std::filesystem::create_directories(folder.path("b"));
    folder.write("a/tool", "not a program");
    folder.write_program("b/tool", "exit 0\n");
    const std::string before = std::getenv("PATH");
    setenv("PATH", (folder.path("a") + ":" + folder.path("b")).c_str(), 1);
    const auto found = find_program("tool");
    const auto missing = find_program("other");
    setenv("PATH", before.c_str(), 1);
    EXPECT_EQ(found, folder.path("b/tool"));
    EXPECT_EQ(missing, "");
}

}  // namespace
}  // namespace pennywort::host
