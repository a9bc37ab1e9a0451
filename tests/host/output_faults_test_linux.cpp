// output_faults_test_linux.cpp - a disk that is full, a reader of our output that closes it.
// Windows has neither the device nor the signal and the shell that these need.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "host/output/png_writers.h"
#include "host/output/stream_writers.h"
#include "tests/host/fake_writer.h"

namespace pennywort::host {
namespace {

TEST(PngWriter, AFullDiskIsTold) {
    const auto written =
        write_png("/dev/full", *picture_of(0xFF112233, 64, 64), true, png_effort::fast);
    EXPECT_NE(written.text().find("No space left"), std::string::npos) << written.text();
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}

TEST(Y4mWriter, AFullDiskIsTold) {
    y4m_writer writer(format_of(64, 64), into_file("/dev/full"));
    outcome result = writer.begin();
    if (result.ok()) result = writer.show(picture_of(1, 64, 64));
    EXPECT_NE(result.text().find("No space left"), std::string::npos) << result.text();
}

// What the program does with the signal before it writes.
class ReaderThatLeaves : public testing::Test {
protected:
    ReaderThatLeaves() { before = signal(SIGPIPE, SIG_IGN); }
    ~ReaderThatLeaves() override { signal(SIGPIPE, before); }
    void (*before)(int);
};

TEST_F(ReaderThatLeaves, IsToldApartFromAFailure) {
    std::FILE* reader = popen("head -c 10 >/dev/null", "w");
    ASSERT_TRUE(reader);
    raw_writer writer([reader](byte_sink& sink) {
        sink.use(reader, "a pipe");
        return outcome::fine();
    });
    ASSERT_TRUE(writer.begin().ok());
    outcome result = outcome::fine();
    for (int i = 0; i < 1000 && result.ok(); ++i) result = writer.show(picture_of(1, 256, 256));
    EXPECT_EQ(result.what(), outcome::kind::reader_closed);
    pclose(reader);
}

}  // namespace
}  // namespace pennywort::host
