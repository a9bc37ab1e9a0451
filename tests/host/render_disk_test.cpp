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

}  // namespace
}  // namespace pennywort::host
