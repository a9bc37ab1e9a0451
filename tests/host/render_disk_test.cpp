// tests/host/render_disk_test.cpp - the program on the real browser runtime: a disk that is full
// before the film is whole.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

struct disk_case {
    const char* name;
    const char* output;
};
void PrintTo(const disk_case& c, std::ostream* out) { *out << c.name; }

// A disk for temporary files, and next to no shared memory, both of the command `shown` only.
const std::string k_own_disks = "mkdir full; unshare -m true 2>/dev/null || exit 77\n";
const std::string k_shown_there =
    "export -f pennywort shown; unshare -m bash -c '\n"
    "mount -t tmpfs -o size=40m tmpfs full && mount -t tmpfs -o size=1m tmpfs /dev/shm || exit 77\n"
    "shown'";

class RenderOnAFullDisk : public RenderFixture, public testing::WithParamInterface<disk_case> {
protected:
    // Noise, of which each frame is new and no coder makes little.
    RenderOnAFullDisk() {
        folder.write("noise.html",
                     "<!doctype html><style>body{margin:0}canvas{display:block}</style>"
                     "<canvas id=c width=160 height=96></canvas><script>"
                     "const pen = c.getContext('2d'), dots = pen.createImageData(160, 96);"
                     "requestAnimationFrame(function next() { dots.data.forEach((_, i) => {"
                     "dots.data[i] = i % 4 === 3 ? 255 : Math.random() * 256; });"
                     "pen.putImageData(dots, 0, 0); requestAnimationFrame(next); })</script>");
    }
};

TEST_P(RenderOnAFullDisk, FailsWithItsReasonAndSaysNothingOfAFilm) {
    const std::string output = GetParam().output;
    const auto run = folder.run(
        "mkdir disk; mount -t tmpfs -o size=128k tmpfs disk 2>/dev/null || exit 77\n"
        "trap 'umount -l disk' EXIT\n"
        "pennywort render noise.html --size 160x96 --seconds 4 -o disk/" +
        output);
    if (run.status == 77) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("No space left"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find(" each at its moment"), std::string::npos) << run.errors;
}

INSTANTIATE_TEST_SUITE_P(Of, RenderOnAFullDisk,
                         testing::Values(disk_case{"Mkv", "a.mkv"}, disk_case{"Mov", "a.mov"},
                                         disk_case{"Mp4", "a.mp4"}, disk_case{"Webm", "a.webm"},
                                         disk_case{"Png", "a-%03d.png"}, disk_case{"Wav", "a.wav"},
                                         disk_case{"Raw", "a.raw"}),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(RenderOnAFullDisk, APipeThatIsFullFailsToo) {
    for (const char* format : {"matroska", "y4m", "raw"}) {
        const auto run = folder.run(
            std::string("pennywort render noise.html --exact --size 160x96 --seconds 4 -o - "
                        "--format ") +
            format + " >/dev/full");
        EXPECT_EQ(run.status, 1) << format << run.errors;
        EXPECT_NE(run.errors.find("No space left"), std::string::npos) << run.errors;
        EXPECT_EQ(run.errors.find(" each at its moment"), std::string::npos) << run.errors;
    }
}

// Recordings fill disks. What the browser's processes share are pictures of 1.5 MB here.
TEST_F(RenderOnAFullDisk, ThatHasTheTemporaryFilesTakesNoPicture) {
    const auto run = folder.run(
        "[ $(df --output=avail -m /dev/shm | tail -1) -gt 2048 ] || exit 77\n"
        "mkdir full; mount -t tmpfs -o size=1m tmpfs full 2>/dev/null || exit 77\n"
        "trap 'umount -l full' EXIT; head -c 2m /dev/zero >full/recording 2>/dev/null\n"
        "TMPDIR=$PWD/full pennywort render noise.html --size 800x480 --frames 9 -o a.mkv");
    if (run.status == 77) GTEST_SKIP() << "needs the right to mount, and shared memory";
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("9 frames"), std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find(" each at its moment"), std::string::npos) << run.errors;
}

TEST_F(RenderOnAFullDisk, ThatIsAllThereIsForPicturesIsTold) {
    const auto run = folder.run(
        "mkdir full; unshare -m true 2>/dev/null || exit 77\n"
        "shown() { TMPDIR=$PWD/full pennywort render noise.html --size 80x48 --frames 9 -o a.mkv; "
        "}\n"
        "export -f pennywort shown; unshare -m bash -c '\n"
        "mount -t tmpfs -o size=1m tmpfs full && mount -t tmpfs -o size=1m tmpfs /dev/shm || exit "
        "77\n"
        "shown'");
    if (run.status == 77) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("/full is full"), std::string::npos) << run.errors;
    EXPECT_FALSE(folder.has("a.mkv"));
}

// Room for a start, not for two pictures of 24 MB.
TEST_F(RenderOnAFullDisk, ThatHasNoRoomForThePagesPicturesIsTold) {
    const auto run = folder.run(
        k_own_disks +
        "shown() { TMPDIR=$PWD/full pennywort render noise.html --size 3000x2000 --frames 3 "
        "-o a.mkv; }\n" +
        k_shown_there);
    if (run.status == 77) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("MiB left of the 49 that they need"), std::string::npos)
        << run.errors;
}

// Others leave 3 MiB of it when the film has begun.
TEST_F(RenderOnAFullDisk, ThatFillsInTheMiddleOfAFilmEndsIt) {
    const auto run = folder.run(
        k_own_disks +
        "shown() {\n"
        "TMPDIR=$PWD/full pennywort render noise.html --exact --size 160x96 --frames 2000 "
        "-o a-%d.png & film=$!\n"
        "until [ -s a-2.png ]; do kill -0 $film || break; sleep 0.02; done\n"
        "left=$(df --output=avail -B1 full | tail -1)\n"
        "head -c $((left - 3145728)) /dev/zero >full/recording; wait $film; }\n" +
        k_shown_there);
    if (run.status == 77) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("/full, has "), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find(" each at its moment"), std::string::npos) << run.errors;
    EXPECT_TRUE(folder.has("a-2.png"));
    EXPECT_FALSE(folder.has("a-1999.png"));
}

}  // namespace
}  // namespace pennywort::host
