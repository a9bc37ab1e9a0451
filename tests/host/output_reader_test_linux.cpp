// tests/host/output_reader_test_linux.cpp - what counts as read on Linux. Windows half:
// tests/host/output_reader_test_win.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "host/system/output_reader.h"
#include "tests/support/scratch_file.h"

namespace pennywort::host {
namespace {

struct closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using stream = std::unique_ptr<std::FILE, closer>;

// One end of a connection for us to write to, and its other end.
void expect_lost_with_its_reader(int ours, int readers) {
    const stream output(::fdopen(ours, "wb"));
    EXPECT_TRUE(has_reader(output.get()));
    std::fputs("a line", output.get());
    EXPECT_EQ(std::fflush(output.get()), 0);
    EXPECT_TRUE(has_reader(output.get()));
    EXPECT_EQ(::close(readers), 0);
    EXPECT_FALSE(has_reader(output.get()));
}

TEST(OutputReader, APipeIsReadUntilItsReaderHasClosedIt) {
    int ends[2] = {};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    expect_lost_with_its_reader(ends[1], ends[0]);
}

// Some programs make these for what they start.
TEST(OutputReader, APairOfSocketsIsReadUntilItsReaderHasClosedIt) {
    int ends[2] = {};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    expect_lost_with_its_reader(ends[1], ends[0]);
}

TEST(OutputReader, AFullPipeIsRead) {
    int ends[2] = {};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const stream output(::fdopen(ends[1], "wb"));
    const char bytes[4096] = {};
    while (::write(ends[1], bytes, sizeof bytes) > 0) {
    }
    EXPECT_TRUE(has_reader(output.get()));
    ::close(ends[0]);
    EXPECT_FALSE(has_reader(output.get()));
}

TEST(OutputReader, FilesAndDevicesAreAlwaysRead) {
    const tests::scratch_file file;
    EXPECT_TRUE(has_reader(file.get()));
    for (const char* path : {"/dev/null", "/dev/full"}) {
        const stream device(std::fopen(path, "wb"));
        EXPECT_TRUE(has_reader(device.get())) << path;
    }
}

// The loss of a terminal is an interrupt.
TEST(OutputReader, ATerminalIsAlwaysRead) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    const stream terminal(::fdopen(::open(::ptsname(master), O_WRONLY | O_NOCTTY), "wb"));
    ASSERT_NE(terminal, nullptr);
    EXPECT_TRUE(has_reader(terminal.get()));
    ::close(master);
    EXPECT_TRUE(has_reader(terminal.get()));
}

}  // namespace
}  // namespace pennywort::host
