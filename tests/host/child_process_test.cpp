// tests/host/child_process_test.cpp - programs that end early, stall, fail or do what they should.
#include "host/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
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
    void start(const std::string& script) {
        const auto begun =
            child.start({folder.write_program("program", script), "one", "two words"});
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
    const auto begun = child.start({folder.path("missing")});
    EXPECT_FALSE(begun.ok());
    EXPECT_NE(begun.text().find("missing"), std::string::npos) << begun.text();
}

TEST_F(ChildProcess, AFileThatIsNoProgramIsNotStarted) {
    EXPECT_FALSE(child.start({folder.write("text", "hello")}).ok());
}

TEST_F(ChildProcess, OneThatEndsAtOnceTakesNothing) {
    start("echo 'no such codec' >&2\nexit 3\n");
    EXPECT_EQ(write(k_much), child_process::write_result::closed);
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 3);
    EXPECT_EQ(report.last_line, "no such codec");
}

TEST_F(ChildProcess, OneThatEndsMidwayIsNoticedWhileItIsWrittenTo) {
    start("head -c 100000 >/dev/null\necho 'disk full' >&2\nexit 1\n");
    EXPECT_EQ(write(k_much), child_process::write_result::closed);
    EXPECT_EQ(child.finish(k_patience).last_line, "disk full");
}

TEST_F(ChildProcess, OneThatTakesNothingStalls) {
    start("exec sleep 600\n");
    EXPECT_EQ(write(k_much, 50ms), child_process::write_result::stalled);
    const auto report = child.finish(10ms);
    EXPECT_FALSE(report.ended);
}

TEST_F(ChildProcess, OneThatDoesNotEndIsEnded) {
    start("exec sleep 600\n");
    EXPECT_FALSE(child.finish(10ms).ended);
}

TEST_F(ChildProcess, OneThatASignalEndsSaysSo) {
    start("kill -KILL $$\n");
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.status, 128 + 9);
}

TEST_F(ChildProcess, MuchOnItsErrorOutputDoesNotBlockIt) {
    start("head -c 1000000 /dev/zero | tr '\\0' 'e' >&2\necho >&2\necho done >&2\n");
    const auto report = child.finish(k_patience);
    EXPECT_TRUE(report.ended);
    EXPECT_EQ(report.last_line, "done");
}

TEST_F(ChildProcess, GetsItsArgumentsAndEveryByteOfItsInput) {
    start("cat > '" + folder.path("copy") + "'\nprintf '%s|%s' \"$1\" \"$2\" >&2\n");
    EXPECT_EQ(write(k_much), child_process::write_result::written);
    const auto report = child.finish(k_patience);
    EXPECT_EQ(report.status, 0);
    EXPECT_EQ(report.last_line, "one|two words");
    EXPECT_EQ(std::filesystem::file_size(folder.path("copy")), k_much.size());
}

TEST_F(ChildProcess, StartsAndEndsAHundredTimesWithoutLeavingDescriptors) {
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
}  // namespace pennywort
