// movie_faults_test.cpp - an ffmpeg that ends with 0 although the film has lost its end, as the
// real one does on a full disk; and one that has all frames and takes its time. On both systems.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/output/movie_writer.h"
#include "host/system/file_path.h"
#include "tests/host/fake_writer.h"
#include "tests/host/search_path.h"
#include "tests/host/temporary_folder.h"
#include "tests/loam/wine.h"
#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

using tests::k_patience;

class MovieEnd : public testing::Test {
protected:
    MovieEnd() {
        // Only one that is called so is a program on Windows.
        const std::string name = "ffmpeg" + file_path(FAKE_FFMPEG).extension().string();
        std::filesystem::copy_file(file_path(FAKE_FFMPEG), file_path(folder.path(name)));
        set_search_path(folder.path());
    }
    ~MovieEnd() override { set_search_path(m_before); }

    // fake_ffmpeg.cpp says what the ways are.
    outcome finish_one(const std::string& way, encoder_patience patience = {20s, 20s, 20s}) {
        folder.write("way", way);
        movie_writer mov(output_kind::mov, folder.path("a.mov"), format_of(64, 48), patience);
        if (auto begun = mov.begin(); !begun.ok()) return begun;
        if (auto shown = mov.show(picture_of(1, 64, 48)); !shown.ok()) return shown;
        return mov.finish();
    }

    const temporary_folder folder;

private:
    const std::string m_before = std::getenv("PATH");
};

using MovieOnAFullDisk = MovieEnd;

TEST_F(MovieOnAFullDisk, IsAFailureWithWhatFfmpegSays) {
    const auto finished = finish_one("told");
    EXPECT_FALSE(finished.ok());
    EXPECT_NE(finished.text().find("No space left on device"), std::string::npos)
        << finished.text();
}

TEST_F(MovieOnAFullDisk, IsAFailureWithoutAWordToo) {
    const auto finished = finish_one("silent");
    EXPECT_FALSE(finished.ok());
    EXPECT_NE(finished.text().find("a.mov is not whole"), std::string::npos) << finished.text();
}

TEST_F(MovieOnAFullDisk, IsNoneWhereTheFilmIsWhole) {
    const auto finished = finish_one("whole");
    EXPECT_TRUE(finished.ok()) << finished.text();
}

TEST_F(MovieEnd, IsWaitedForAsLongAsFfmpegWorks) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine tells no processor time of another program";
    const auto finished = finish_one("works", {20s, 1s, 20s});
    EXPECT_TRUE(finished.ok()) << finished.text();
}

TEST_F(MovieEnd, OfAnFfmpegThatDoesNothingIsAFailure) {
    const auto finished = finish_one("rests", {20s, 200ms, 20s});
    EXPECT_NE(finished.text().find("ffmpeg does not end; "), std::string::npos) << finished.text();
}

// However hard it works: nothing has started yet, and somebody waits for it.
TEST_F(MovieEnd, OfAnFfmpegThatWorksOnItsTrialForEverIsAFailureBeforeTheStart) {
    const auto finished = finish_one("tries", {k_patience, k_patience, 200ms});
    EXPECT_NE(finished.text().find("ffmpeg was tried with one small frame"), std::string::npos)
        << finished.text();
    EXPECT_FALSE(folder.has("a.mov"));
}

}  // namespace
}  // namespace pennywort::host
