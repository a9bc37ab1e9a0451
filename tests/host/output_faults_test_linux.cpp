// output_faults_test_linux.cpp - a disk that is full, a reader of our output that closes it.
// Windows has neither the device nor the signal and the shell that these need.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "host/output/movie_writer.h"
#include "host/output/output_file.h"
#include "host/output/png_writers.h"
#include "host/output/stream_writers.h"
#include "host/system/program_search.h"
#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"

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

TEST(OutputFile, AFolderThatTakesNoFilesIsTold) {
    const auto tried = can_be_written("/sys/a.png");
    EXPECT_NE(tried.text().find("/sys/a.png"), std::string::npos) << tried.text();
}

// A file may not grow beyond so many bytes while one of these lives: here, and in the programs that
// are started meanwhile.
class file_limit {
public:
    explicit file_limit(rlim_t bytes) : m_signal(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit now = m_before;
        now.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &now);
    }
    ~file_limit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        signal(SIGXFSZ, m_signal);
    }

private:
    void (*m_signal)(int);
    rlimit m_before{};
};

TEST(RawWriter, AFileThatMayNotGrowIsTold) {
    const temporary_folder folder;
    raw_writer writer(into_file(folder.path("a.raw")));
    ASSERT_TRUE(writer.begin().ok());
    const file_limit limit(100'000);
    outcome result = outcome::fine();
    for (int i = 0; i < 10 && result.ok(); ++i) result = writer.show(picture_of(1, 100, 100));
    EXPECT_NE(result.text().find("File too large"), std::string::npos) << result.text();
}

outcome make_film(const std::string& path, int frames) {
    std::string reason;
    const auto target = output_target::parse(path, "", reason);
    if (!target) return outcome::failed(reason);
    const auto writer = make_frame_writer(*target, format_of(192, 108), nullptr);
    outcome result = writer->begin();
    for (int i = 0; i < frames && result.ok(); ++i) {
        auto noise = std::make_shared<picture>(192, 108);
        std::minstd_rand next(static_cast<unsigned>(i + 1));
        for (std::size_t at = 0; at < noise->pixel_count(); ++at) {
            noise->pixels[at] = static_cast<std::uint32_t>(next()) | 0xFF000000;
        }
        result = writer->show(noise);
    }
    outcome finished = writer->finish();
    return result.ok() ? finished : result;
}

class FilmWithoutRoom : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (find_program("ffmpeg").empty()) GTEST_SKIP() << "needs ffmpeg";
    }
    const std::string name = GetParam();
    const temporary_folder folder;
};

// Wherever the room ends, in the first frame or in the last bytes of the index, the user hears of
// it.
TEST_P(FilmWithoutRoom, IsAFailureWhereverItEnds) {
    ASSERT_TRUE(make_film(folder.path(name), 12).ok());
    const auto size = std::filesystem::file_size(folder.path(name));
    for (const std::uintmax_t less : {std::uintmax_t(1), std::uintmax_t(40), std::uintmax_t(300),
                                      size / 10, size / 2, size - 10}) {
        const file_limit limit(static_cast<rlim_t>(size - less));
        const auto made = make_film(folder.path(name), 12);
        EXPECT_NE(made.text().find(name), std::string::npos) << less << " bytes less";
    }
}

// A disk of its own that is full before the film is whole.
TEST_P(FilmWithoutRoom, AFullDiskIsAFailure) {
    const std::string disk = folder.path("disk");
    std::filesystem::create_directory(disk);
    ASSERT_TRUE(make_film(folder.path(name), 12).ok());
    const auto size = std::filesystem::file_size(folder.path(name));
    for (const std::uintmax_t pages : {size / 4096, size / 8192}) {
        const std::string options = "size=" + std::to_string(pages * 4096);
        if (mount("tmpfs", disk.c_str(), "tmpfs", 0, options.c_str()) != 0) {
            GTEST_SKIP() << "needs the right to mount";
        }
        const auto made = make_film(disk + "/" + name, 12);
        EXPECT_EQ(umount2(disk.c_str(), MNT_DETACH), 0);
        EXPECT_NE(made.text().find("No space left"), std::string::npos) << made.text();
    }
}

INSTANTIATE_TEST_SUITE_P(All, FilmWithoutRoom,
                         testing::Values("a.mkv", "a.mov", "a.mp4", "a.webm", "a.gif", "a.jpg",
                                         "a.webp"),
                         [](const auto& one) { return std::string(one.param).substr(2); });

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
