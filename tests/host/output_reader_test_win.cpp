// tests/host/output_reader_test_win.cpp - what counts as read on Windows. Linux half:
// tests/host/output_reader_test_linux.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "host/system/output_reader.h"
#include "tests/support/scratch_file.h"

namespace pennywort::host {
namespace {

struct closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using stream = std::unique_ptr<std::FILE, closer>;

TEST(OutputReader, APipeIsReadUntilItsReaderHasClosedIt) {
    int ends[2] = {};
    ASSERT_EQ(_pipe(ends, 4096, _O_BINARY | _O_NOINHERIT), 0);
    const stream output(_fdopen(ends[1], "wb"));
    EXPECT_TRUE(has_reader(output.get()));
    std::fputs("a line", output.get());
    EXPECT_EQ(std::fflush(output.get()), 0);
    EXPECT_TRUE(has_reader(output.get()));
    char bytes[100];
    EXPECT_EQ(_read(ends[0], bytes, sizeof bytes), 6) << "the look itself wrote something";
    _close(ends[0]);
    EXPECT_FALSE(has_reader(output.get()));
}

// An empty write would be a message.
TEST(OutputReader, APipeOfMessagesGetsNone) {
    const std::string name =
        "\\\\.\\pipe\\pennywort-reader-" + std::to_string(GetCurrentProcessId());
    const HANDLE reader =
        CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE | PIPE_NOWAIT, 1,
                         4096, 4096, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    const HANDLE writer =
        CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    const stream output(
        _fdopen(_open_osfhandle(reinterpret_cast<std::intptr_t>(writer), _O_BINARY), "wb"));
    EXPECT_TRUE(has_reader(output.get()));
    char bytes[100];
    DWORD count = 0;
    EXPECT_FALSE(ReadFile(reader, bytes, sizeof bytes, &count, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_DATA));
    CloseHandle(reader);
}

TEST(OutputReader, FilesAndTheNullDeviceAreAlwaysRead) {
    const tests::scratch_file file;
    EXPECT_TRUE(has_reader(file.get()));
    const stream nowhere(std::fopen("NUL", "wb"));
    EXPECT_TRUE(has_reader(nowhere.get()));
}

}  // namespace
}  // namespace pennywort::host
