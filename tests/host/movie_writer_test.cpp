// tests/host/movie_writer_test.cpp - movies: an ffmpeg that is missing, fails, stalls.
#include "host/output/movie_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "host/output/matroska_writer.h"
#include "host/system/program_search.h"
#include "tests/host/fake_writer.h"
#include "tests/host/output_of.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

constexpr long k_width = 64;
constexpr long k_height = 48;

frame_format movie_format(bool transparent) {
    frame_format format = format_of(k_width, k_height, "59.94");
    format.transparent = transparent;
    return format;
}

// Puts a program of the test's in ffmpeg's place.
class FakeFfmpeg : public testing::Test {
protected:
    ~FakeFfmpeg() override { setenv("PATH", before.c_str(), 1); }
    // It passes the trial; `script` is what it does with the film, whose name is $file.
    void install(const std::string& script) {
        install_whole(
            "case \"$*\" in *'-f null -') cat >/dev/null; exit 0;; esac\n"
            "for file; do :; done\nfile=${file#file:}\n" +
            script);
    }
    void install_whole(const std::string& script) {
        folder.write_program("ffmpeg", "PATH='" + before + "'\n" + script);
        setenv("PATH", folder.path().c_str(), 1);
    }
    static outcome show_many(movie_writer& to) {
        outcome result = outcome::fine();
        for (int i = 0; i < 2000 && result.ok(); ++i) {
            result = to.show(picture_of(1, k_width, k_height));
        }
        return result;
    }

    const std::string before = std::getenv("PATH");
    temporary_folder folder;
    movie_writer writer{output_kind::mkv, folder.path("a.mkv"), movie_format(false), {20s}};
};

TEST_F(FakeFfmpeg, OneThatIsMissingIsToldWithTheRemedy) {
    setenv("PATH", folder.path().c_str(), 1);
    const auto begun = writer.begin();
    EXPECT_NE(begun.text().find("install"), std::string::npos) << begun.text();
}

TEST_F(FakeFfmpeg, OneWithoutTheEncoderIsToldBeforeTheFirstFrame) {
    install_whole("cat >/dev/null\necho \"Unknown encoder 'libx264'\" >&2\nexit 1\n");
    const auto begun = writer.begin();
    EXPECT_NE(begun.text().find("Unknown encoder 'libx264'"), std::string::npos) << begun.text();
    EXPECT_FALSE(folder.has("a.mkv"));
}

TEST_F(FakeFfmpeg, OneThatDoesNotEndAfterTheTrialIsToldBeforeTheFirstFrame) {
    install_whole("exec sleep 600\n");
    movie_writer stalled(output_kind::mkv, folder.path("a.mkv"), movie_format(false),
                         {20s, 20s, 100ms});
    const auto begun = stalled.begin();
    EXPECT_NE(begun.text().find("does not end"), std::string::npos) << begun.text();
    EXPECT_EQ(begun.what(), outcome::kind::failed);
}

// What ffmpeg does when only the end of the film finds no room: it says so, and ends with 0.
TEST_F(FakeFfmpeg, OneThatLosesTheEndAndEndsWellIsAFailure) {
    install(
        "cat >/dev/null\nprintf '\\0\\0\\0\\10moov' > \"$file\"\n"
        "echo \"Error writing trailer of $file: No space left on device\" >&2\nexit 0\n");
    movie_writer mov(output_kind::mov, folder.path("a.mov"), movie_format(false), {20s});
    ASSERT_TRUE(mov.begin().ok());
    EXPECT_TRUE(mov.show(picture_of(1, k_width, k_height)).ok());
    const auto finished = mov.finish();
    EXPECT_NE(finished.text().find("No space left on device"), std::string::npos)
        << finished.text();
}

TEST_F(FakeFfmpeg, OneThatLosesTheEndWithoutAWordIsAFailureToo) {
    install("cat >/dev/null\nprintf '\\0\\0\\0\\20mdat1234' > \"$file\"\nexit 0\n");
    movie_writer mov(output_kind::mov, folder.path("a.mov"), movie_format(false), {20s});
    ASSERT_TRUE(mov.begin().ok());
    EXPECT_TRUE(mov.show(picture_of(1, k_width, k_height)).ok());
    const auto finished = mov.finish();
    EXPECT_NE(finished.text().find("a.mov is not whole"), std::string::npos) << finished.text();
}

TEST_F(FakeFfmpeg, OneThatWritesNothingIsAFailure) {
    install("cat >/dev/null\nexit 0\n");
    ASSERT_TRUE(writer.begin().ok());
    EXPECT_TRUE(writer.show(picture_of(1, k_width, k_height)).ok());
    EXPECT_NE(writer.finish().text().find("has written no"), std::string::npos);
}

TEST_F(FakeFfmpeg, AMissingFolderIsToldBeforeItIsStarted) {
    install("exit 0\n");
    movie_writer lost(output_kind::mov, folder.path("no/such/a.mov"), movie_format(false), {20s});
    const auto begun = lost.begin();
    EXPECT_NE(begun.text().find("there is no folder"), std::string::npos) << begun.text();
}

TEST_F(FakeFfmpeg, OneThatExitsAtOnceIsToldWithItsLastLine) {
    install("echo 'Unknown encoder' >&2\nexit 1\n");
    ASSERT_TRUE(writer.begin().ok());
    const auto result = show_many(writer);
    EXPECT_NE(result.text().find("Unknown encoder"), std::string::npos) << result.text();
    EXPECT_TRUE(writer.finish().ok());  // told already
}

TEST_F(FakeFfmpeg, OneThatExitsMidwayIsToldWithItsLastLine) {
    install("head -c 50000 >/dev/null\necho 'No space left on device' >&2\nexit 1\n");
    ASSERT_TRUE(writer.begin().ok());
    const auto result = show_many(writer);
    EXPECT_NE(result.text().find("No space left on device"), std::string::npos) << result.text();
}

TEST_F(FakeFfmpeg, OneThatEndsEarlyAndContentIsAFailureToo) {
    install("head -c 50000 >/dev/null\nexit 0\n");
    ASSERT_TRUE(writer.begin().ok());
    const auto result = show_many(writer);
    EXPECT_FALSE(result.ok());
    EXPECT_NE(result.text().find("a.mkv"), std::string::npos) << result.text();
}

TEST_F(FakeFfmpeg, OneThatIsKilledIsToldWithItsSignal) {
    install("head -c 50000 >/dev/null\nkill -KILL $$\n");
    for (const bool has_sound : {false, true}) {
        auto format = movie_format(false);
        format.has_sound = has_sound;
        movie_writer killed(output_kind::mp4, folder.path("a.mp4"), format, {20s});
        ASSERT_TRUE(killed.begin().ok());
        const auto result = show_many(killed);
        EXPECT_NE(result.text().find("exit status 137"), std::string::npos) << result.text();
        EXPECT_TRUE(killed.finish().ok());  // told already
    }
}

TEST_F(FakeFfmpeg, OneThatFailsSilentlyIsToldWithItsStatus) {
    install("cat >/dev/null\nexit 7\n");
    ASSERT_TRUE(writer.begin().ok());
    EXPECT_TRUE(writer.show(picture_of(1, k_width, k_height)).ok());
    EXPECT_NE(writer.finish().text().find("exit status 7"), std::string::npos);
}

TEST_F(FakeFfmpeg, OneThatStallsIsGivenUp) {
    install("exec sleep 600\n");
    movie_writer stalled(output_kind::mkv, folder.path("a.mkv"), movie_format(false), {3s});
    ASSERT_TRUE(stalled.begin().ok());
    const auto result = show_many(stalled);
    EXPECT_NE(result.text().find("has taken no frame"), std::string::npos) << result.text();
    EXPECT_TRUE(stalled.finish().ok());
}

TEST_F(FakeFfmpeg, GetsStraightAlphaWhereTheFileKeepsIt) {
    install("cat > '" + folder.path("input") + "'\nprintf '\\0\\0\\0\\10moov' > \"$file\"\n");
    movie_writer clear(output_kind::mov, folder.path("a.mov"), movie_format(true), {20s});
    ASSERT_TRUE(clear.begin().ok());
    const auto half = picture_of(0x80402010, k_width, k_height);
    EXPECT_TRUE(clear.show(half).ok());
    EXPECT_TRUE(clear.show(half).ok());
    EXPECT_TRUE(clear.finish().ok());
    const auto input = folder.read("input");
    ASSERT_EQ(input.size(), 2 * half->byte_count());
    EXPECT_EQ(input.substr(0, 4), "\x20\x40\x80\x80");
}

// What a player makes of the uncompressed stream: the frames, their times, and the very colours.
TEST(MatroskaStream, IsReadWithItsFramesItsRateAndItsColours) {
    if (find_program("ffmpeg").empty()) GTEST_SKIP() << "needs ffmpeg";
    const temporary_folder folder;
    for (const bool is_transparent : {false, true}) {
        auto format = format_of(33, 17, "59.94");
        format.transparent = is_transparent;
        matroska_writer writer(format, into_file(folder.path("stream")));
        ASSERT_TRUE(writer.begin().ok());
        const std::uint32_t painted = is_transparent ? 0x80102040 : 0xFF20C840;
        for (int i = 0; i < 5; ++i) EXPECT_TRUE(writer.show(picture_of(painted, 33, 17)).ok());
        ASSERT_TRUE(writer.finish().ok());
        const std::string name = "'" + folder.path("stream") + "'";
        const auto about = output_of("cat " + name +
                                     " | ffprobe -v error -count_frames "
                                     "-show_streams -show_frames -");
        // With its matrix, which is none, its range and what its colours are: nobody guesses.
        for (const char* part :
             {"codec_name=rawvideo", "pix_fmt=bgra", "width=33", "height=17", "nb_read_frames=5",
              "pts_time=0.066733", "color_range=pc", "color_space=gbr",
              "color_transfer=iec61966-2-1", "color_primaries=bt709"}) {
            EXPECT_NE(about.find(part), std::string::npos) << part << " is not in\n" << about;
        }
        const auto pixels = output_of(
            "ffmpeg -v error -i - -frames:v 1 -f rawvideo -pix_fmt bgra "
            "- < " +
            name);
        ASSERT_EQ(pixels.size(), std::size_t(33 * 17 * 4));
        EXPECT_EQ(pixels.substr(0, 4), is_transparent ? "\x80\x40\x20\x80" : "\x40\xC8\x20\xFF");
    }
}

}  // namespace
}  // namespace pennywort::host
