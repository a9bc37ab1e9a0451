// output_faults_test_linux.cpp - a disk that is full, a reader of our output that closes it.
// Windows has neither the device nor the signal and the shell that these need.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "host/output/movie_writer.h"
#include "host/output/output_file.h"
#include "host/output/png_writers.h"
#include "host/output/stream_writers.h"
#include "host/system/program_search.h"
#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"
#include "tests/support/effort.h"

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

TEST(OutputFile, ALinkIsTheFileThatItLeadsTo) {
    namespace fs = std::filesystem;
    const temporary_folder folder;
    folder.write("old.mov", "old");
    fs::create_hard_link(folder.path("old.mov"), folder.path("second.mov"));
    fs::create_symlink("old.mov", folder.path("link.mov"));
    fs::create_symlink("new.mov", folder.path("to-new.mov"));
    fs::create_symlink("to-new.mov", folder.path("to-that.mov"));
    fs::create_symlink("other.mov", folder.path("to-other.mov"));
    fs::create_symlink("round.mov", folder.path("round.mov"));
    const auto are_one = [&](const char* one, const char* other) {
        return are_one_file(folder.path(one), folder.path(other));
    };
    EXPECT_TRUE(are_one("old.mov", "second.mov"));
    EXPECT_TRUE(are_one("second.mov", "link.mov"));
    EXPECT_TRUE(are_one("new.mov", "to-that.mov"));
    EXPECT_TRUE(are_one("to-that.mov", "to-new.mov"));
    EXPECT_FALSE(are_one("to-other.mov", "to-new.mov"));
    EXPECT_FALSE(are_one("link.mov", "to-new.mov"));
    EXPECT_FALSE(are_one("round.mov", "old.mov"));
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

output_target target_of(const std::string& path) {
    std::string reason;
    const auto target = output_target::parse(path, "", reason);
    EXPECT_TRUE(target) << reason;
    return target.value_or(output_target());
}

outcome make_film(const std::string& path, int frames, const std::string& key = {}) {
    std::optional<output_target> key_target;
    if (!key.empty()) key_target = target_of(key);
    const auto writer = make_page_writer(target_of(path), key_target ? &*key_target : nullptr,
                                         format_of(192, 108), nullptr);
    const std::uint32_t opaque = key.empty() ? 0xFF000000 : 0;
    outcome result = writer->begin();
    for (int i = 0; i < frames && result.ok(); ++i) {
        auto noise = std::make_shared<picture>(192, 108);
        std::minstd_rand next(static_cast<unsigned>(i + 1));
        for (std::size_t at = 0; at < noise->pixel_count(); ++at) {
            noise->pixels[at] = static_cast<std::uint32_t>(next()) * 2 | opaque;
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
    const std::uintmax_t cuts[] = {1, size / 2, 40, 300, size / 10, size - 10};
    for (const std::uintmax_t less :
         std::span(cuts).first(tests::effort<std::size_t>(std::size(cuts), 2))) {
        const file_limit limit(static_cast<rlim_t>(size - less));
        const auto made = make_film(folder.path(name), 12);
        EXPECT_NE(made.text().find(name), std::string::npos) << less << " bytes less";
    }
}

// A disk of its own that is full before the film is whole.
class small_disk {
public:
    small_disk(const std::string& place, std::uintmax_t bytes) : m_place(place) {
        std::filesystem::create_directory(place);
        const std::string options = "size=" + std::to_string(bytes / 4096 * 4096);
        m_is_there = mount("tmpfs", place.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~small_disk() {
        if (!m_is_there) return;
        EXPECT_EQ(umount2(m_place.c_str(), MNT_DETACH), 0);
    }
    bool is_there() const { return m_is_there; }

private:
    const std::string m_place;
    bool m_is_there = false;
};

void expect_no_space(const outcome& made) {
    EXPECT_NE(made.text().find("No space left"), std::string::npos) << made.text();
}

TEST_P(FilmWithoutRoom, AFullDiskIsAFailure) {
    ASSERT_TRUE(make_film(folder.path(name), 12).ok());
    const auto size = std::filesystem::file_size(folder.path(name));
    for (const std::uintmax_t room : {size - 1, size / 2}) {
        const small_disk disk(folder.path("disk"), room);
        if (!disk.is_there()) GTEST_SKIP() << "needs the right to mount";
        expect_no_space(make_film(folder.path("disk/") + name, 12));
    }
}

INSTANTIATE_TEST_SUITE_P(All, FilmWithoutRoom,
                         testing::Values("a.mkv", "a.mov", "a.mp4", "a.webm", "a.gif", "a.jpg",
                                         "a.webp", "a.png", "a.y4m", "a.raw"),
                         [](const auto& one) { return std::string(one.param).substr(2); });

class SeriesWithoutRoom : public FilmWithoutRoom {};

TEST_P(SeriesWithoutRoom, AFullDiskIsAFailure) {
    ASSERT_TRUE(make_film(folder.path(name), 12).ok());
    std::string first = name;
    first.replace(name.find("%d"), 2, "1");
    const auto size = std::filesystem::file_size(folder.path(first));
    const small_disk disk(folder.path("disk"), size * 5);
    if (!disk.is_there()) GTEST_SKIP() << "needs the right to mount";
    expect_no_space(make_film(folder.path("disk/") + name, 12));
    EXPECT_TRUE(folder.has("disk/" + first));
}

INSTANTIATE_TEST_SUITE_P(All, SeriesWithoutRoom, testing::Values("a%d.png", "a%d.jpg", "a%d.webp"),
                         [](const auto& one) { return std::string(one.param).substr(4); });

class KeyWithoutRoom : public FilmWithoutRoom {};

TEST_P(KeyWithoutRoom, IsAFailureThatNamesIt) {
    ASSERT_TRUE(make_film(folder.path("f" + name), 12, folder.path(name)).ok());
    const auto size = std::filesystem::file_size(folder.path(name));
    const small_disk disk(folder.path("disk"), size / 2);
    if (!disk.is_there()) GTEST_SKIP() << "needs the right to mount";
    const auto made = make_film(folder.path("f" + name), 12, folder.path("disk/") + name);
    expect_no_space(made);
    EXPECT_NE(made.text().find("disk/" + name), std::string::npos) << made.text();
    EXPECT_TRUE(folder.has("f" + name));
}

INSTANTIATE_TEST_SUITE_P(All, KeyWithoutRoom, testing::Values("a.mkv", "a.mov", "a.y4m"),
                         [](const auto& one) { return std::string(one.param).substr(2); });

TEST(WavWriter, AFullDiskIsTold) {
    const temporary_folder folder;
    const small_disk disk(folder.path("disk"), 64 * 1024);
    if (!disk.is_there()) GTEST_SKIP() << "needs the right to mount";
    const auto writer = make_frame_writer(target_of(folder.path("disk/a.wav")), {}, nullptr);
    outcome result = writer->begin();
    if (result.ok()) result = writer->show(picture_of(1));
    const std::vector<float> second(std::size_t(k_sound_rate) * k_sound_channels);
    for (int i = 0; i < 3 && result.ok(); ++i) result = writer->hear(second);
    const auto finished = writer->finish();
    expect_no_space(result.ok() ? finished : result);
    // Its head speaks of what is there.
    const std::string file = folder.read("disk/a.wav");
    ASSERT_GT(file.size(), 8u);
    std::size_t length = 0;
    for (std::size_t i = 4; i > 0; --i) {
        length = length << 8 | static_cast<unsigned char>(file[3 + i]);
    }
    EXPECT_LE(length + 8, file.size());
}

TEST(MatroskaWriter, AFullPipeIsTold) {
    output_target target;
    target.kind = output_kind::matroska;
    target.path = "/dev/full";
    const auto writer = make_frame_writer(target, format_of(64, 64), nullptr);
    outcome result = writer->begin();
    if (result.ok()) result = writer->show(picture_of(1, 64, 64));
    expect_no_space(result);
}

// The names in it, and the text of each file.
std::map<std::string, std::string> files_of(const temporary_folder& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        const std::string name = entry.path().filename().string();
        files[name] = entry.is_regular_file() ? folder.read(name) : "";
    }
    return files;
}

using files = std::map<std::string, std::string>;

outcome make_raw(const std::string& path) {
    const auto writer = make_frame_writer(target_of(path), format_of(1, 1), nullptr);
    outcome result = writer->begin();
    if (result.ok()) result = writer->show(picture_of(0x44332211));
    outcome finished = writer->finish();
    return result.ok() ? finished : result;
}

TEST_P(FilmWithoutRoom, LeavesTheFileThatItWasToReplace) {
    ASSERT_TRUE(make_film(folder.path(name), 12).ok());
    const auto size = std::filesystem::file_size(folder.path(name));
    const files before{{name, "good"}};
    folder.write(name, "good");
    const file_limit limit(static_cast<rlim_t>(size / 2));
    const auto made = make_film(folder.path(name), 12);
    EXPECT_NE(made.text().find("; the file that was there stays"), std::string::npos)
        << made.text();
    EXPECT_EQ(made.text().find("part-"), std::string::npos) << made.text();
    EXPECT_EQ(files_of(folder), before);
}

TEST(ReplacingWriter, WritesWhereALinkLeads) {
    const temporary_folder folder, other;
    other.write("old.raw", "old");
    std::filesystem::create_symlink(other.path("old.raw"), folder.path("link.raw"));
    std::filesystem::create_symlink(other.path("new.raw"), folder.path("to-new.raw"));
    for (const char* name : {"link.raw", "to-new.raw"}) {
        EXPECT_TRUE(make_raw(folder.path(name)).ok());
        EXPECT_TRUE(std::filesystem::is_symlink(folder.path(name)));
    }
    const std::string pixel = "\x11\x22\x33\x44";
    EXPECT_EQ(files_of(other), (files{{"old.raw", pixel}, {"new.raw", pixel}}));
}

// A program that has a file open writes on after the folder has gone, and nothing fails.
TEST(ReplacingWriter, TellsOfAFileThatIsNotThereAnyMore) {
    const temporary_folder folder;
    for (const char* name : {"a.y4m", "a.raw"}) {
        const std::string place = folder.path("taken away");
        std::filesystem::create_directory(place);
        const std::string path = place + "/" + name;
        const auto writer = make_page_writer(target_of(path), nullptr, format_of(64, 64), nullptr);
        ASSERT_TRUE(writer->begin().ok());
        ASSERT_TRUE(writer->show(picture_of(1, 64, 64)).ok());
        std::filesystem::remove_all(place);
        const auto finished = writer->finish();
        EXPECT_TRUE(finished.text().starts_with("cannot write " + path + ": the new file, "))
            << finished.text();
    }
}

// Before the fill, which is whole, has taken the place of the one before.
TEST(ReplacingWriter, LeavesTheFillWhereItsKeyIsNotThereAnyMore) {
    const temporary_folder folder;
    folder.write("fill.y4m", "old fill");
    const std::string place = folder.path("taken away");
    std::filesystem::create_directory(place);
    const output_target key = target_of(place + "/key.y4m");
    const auto writer =
        make_page_writer(target_of(folder.path("fill.y4m")), &key, format_of(64, 64), nullptr);
    ASSERT_TRUE(writer->begin().ok());
    ASSERT_TRUE(writer->show(picture_of(1, 64, 64)).ok());
    std::filesystem::remove_all(place);
    const std::string told = writer->finish().text();
    EXPECT_TRUE(told.starts_with("cannot write " + key.path + ": the new file, ")) << told;
    EXPECT_TRUE(told.ends_with("; " + folder.path("fill.y4m") + " stays as it was")) << told;
    EXPECT_EQ(files_of(folder), (files{{"fill.y4m", "old fill"}}));
}

TEST(ReplacingWriter, GivesTheRightsThatTheUsersFilesHaveOrTheFileHad) {
    using std::filesystem::perms;
    const temporary_folder folder;
    const auto before = umask(027);
    folder.write("old.raw", "old");
    std::filesystem::permissions(folder.path("old.raw"), perms(0604));
    EXPECT_TRUE(make_raw(folder.path("new.raw")).ok());
    EXPECT_TRUE(make_raw(folder.path("old.raw")).ok());
    umask(before);
    EXPECT_EQ(std::filesystem::status(folder.path("new.raw")).permissions(), perms(0640));
    EXPECT_EQ(std::filesystem::status(folder.path("old.raw")).permissions(), perms(0604));
}

TEST(ReplacingWriter, WritesIntoAFileThatTheProgramHasOpen) {
    const temporary_folder folder;
    std::FILE* const open = std::fopen(folder.write("a.raw", "old").c_str(), "r");
    ASSERT_NE(open, nullptr);
    const std::string name = "/dev/fd/" + std::to_string(fileno(open));
    auto target = target_of("a.raw");
    target.path = name;
    const auto writer = make_frame_writer(target, format_of(1, 1), nullptr);
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_TRUE(writer->show(picture_of(0x44332211)).ok());
    EXPECT_TRUE(writer->finish().ok());
    char bytes[5] = {};
    EXPECT_EQ(std::fread(bytes, 1, 4, open), 4u) << "another file is in its place";
    EXPECT_STREQ(bytes, "\x11\x22\x33\x44");
    std::fclose(open);
}

// A file that is mounted by itself, as into a container: no other one can take its place.
TEST(ReplacingWriter, WritesIntoAFileWhosePlaceCannotBeTaken) {
    const temporary_folder folder;
    const std::string shown = folder.write("shown.raw", "old");
    const std::string mounted = folder.write("mounted.raw", "old");
    if (mount(shown.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "needs the right to mount";
    }
    const auto made = make_raw(mounted);
    EXPECT_EQ(umount2(mounted.c_str(), MNT_DETACH), 0);
    EXPECT_TRUE(made.ok()) << made.text();
    EXPECT_EQ(files_of(folder), (files{{"shown.raw", "\x11\x22\x33\x44"}, {"mounted.raw", "old"}}));
}

TEST(ReplacingWriter, LeavesDevicesAndPipesWhereTheyAre) {
    const temporary_folder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe.raw").c_str(), 0600), 0);
    std::FILE* const reader = popen(("cat '" + folder.path("pipe.raw") + "'").c_str(), "r");
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(make_raw(folder.path("pipe.raw")).ok());
    char bytes[5] = {};
    EXPECT_EQ(std::fread(bytes, 1, 4, reader), 4u);
    EXPECT_STREQ(bytes, "\x11\x22\x33\x44");
    pclose(reader);
    EXPECT_EQ(files_of(folder), (files{{"pipe.raw", ""}}));
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
