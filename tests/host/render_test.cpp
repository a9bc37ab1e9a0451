// tests/host/render_test.cpp - the program on the real browser runtime: pages that fail, readers
// that leave, and what is in the files.
#include <gtest/gtest.h>

#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

class Render : public MovingPage {};

TEST_F(Render, AHostThatIsNotThereFails) {
    expect_failure("pennywort render http://does-not-exist.invalid/ --frames 1",
                   "could not be loaded");
}

TEST_F(Render, APageThatNeverAnswersFailsWithinItsTimeout) {
    folder.write("endless.html", "<script>for(;;);</script>");
    expect_failure("pennywort render endless.html --timeout 3 --frames 1",
                   "has not loaded within 3 s");
}

TEST_F(Render, AConditionThatStaysFalseFails) {
    expect_failure("pennywort render moving.html --wait-for 'n < 0' --timeout 3",
                   "has not become true");
}

TEST_F(Render, AScriptThatThrowsFails) {
    folder.write("bad.js", "throw new Error('no such team');");
    expect_failure("pennywort render moving.html --script bad.js", "bad.js:1: Error: no such team");
}

TEST_F(Render, AScriptThatIsNoneFails) {
    folder.write("bad.js", "let a;\nthis is no script");
    const auto run = folder.run("pennywort render moving.html --script bad.js");
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("bad.js:2: SyntaxError"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find("moving.html"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find("of the page"), std::string::npos) << run.errors;
    expect_failure("pennywort render moving.html --wait-for 'n <'", "--wait-for n <: SyntaxError");
}

TEST_F(Render, AMissingChildProcessIsTold) {
    const auto run =
        folder.run("bin=$(dirname '" PENNYWORT_PROGRAM
                   "')\n"
                   "mkdir -p host/rsrc && cp '" PENNYWORT_PROGRAM
                   "' host/\n"
                   "export LD_LIBRARY_PATH=$bin CEF_ROOT=$(dirname $(readlink -f $bin/libcef.so))\n"
                   "ln -s $CEF_ROOT/locales host/rsrc/ChromeLocales\n"
                   "host/pennywort render about:blank");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("CEFChildProcess"), std::string::npos) << run.errors;
}

// The last good picture stays to the end: of the browser's own error page there is no frame.
TEST_F(Render, APageThatMovesOnToOneThatFailsEndsTheRun) {
    folder.write("green.html", "<!doctype html><style>body{background:#20c840}</style>");
    expect_failure(
        "pennywort render green.html --size 64x48 --seconds 60 -o a.bgra --wait-for "
        "'(setTimeout(() => location = \"http://does-not-exist.invalid/\", 3000), true)'",
        "could not be loaded: http://does-not-exist.invalid/");
    const std::string film = folder.read("a.bgra");
    const std::string green = "\x40\xC8\x20\xFF";
    std::size_t others = 0;
    for (std::size_t at = 0; at + 4 <= film.size(); at += 4)
        others += film.compare(at, 4, green) != 0;
    EXPECT_GE(film.size(), std::size_t(64 * 48 * 4));
    EXPECT_EQ(others, 0u);
}

TEST_F(Render, AFullDiskEndsTheRun) {
    expect_failure("pennywort render moving.html --seconds 60 --format raw -o /dev/full",
                   "No space left");
}

TEST_F(Render, AnFfmpegThatFailsMidwayEndsTheRunWithItsLastLine) {
    folder.write_program("ffmpeg",
                         "case \"$*\" in *'-f null -') cat >/dev/null; exit 0;; esac\n"
                         "head -c 9000000 >/dev/null\necho 'Disk quota exceeded' >&2\nexit 1\n");
    expect_failure("PATH=$PWD:$PATH pennywort render moving.html --seconds 60 -o a.mov",
                   "Disk quota exceeded");
}

TEST_F(Render, AReaderThatLeavesEndsAnEndlessRunWell) {
    const auto run =
        folder.run("pennywort render moving.html --endless -o - | head -c 3000000 | wc -c");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output, "3000000\n");
}

TEST_F(Render, AReaderThatLeavesEarlyIsAFailureOfARunWithAnEnd) {
    const auto run =
        folder.run("pennywort render moving.html --seconds 60 -o - | head -c 3000000 >/dev/null");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("has closed it"), std::string::npos) << run.errors;
}

TEST_F(Render, OpaqueColoursAreExact) {
    folder.write("page.html",
                 "<!doctype html><body style='margin:0;background:rgb(1,127,254)'>"
                 "<div style='position:absolute;left:50px;top:0;width:50px;height:50px;"
                 "background:rgb(200,33,7)'>");
    expect_fine("pennywort render page.html --size 100x60 -o a.png");
    EXPECT_EQ(pixel("a.png", 10, 10), (colour{254, 127, 1, 255}));
    EXPECT_EQ(pixel("a.png", 60, 10), (colour{7, 33, 200, 255}));
}

TEST_F(Render, TransparentColoursAreStraight) {
    folder.write("page.html",
                 "<!doctype html><body style='margin:0'><div style='position:absolute;"
                 "left:0;top:0;width:50px;height:50px;background:rgba(255,255,255,0.25)'>");
    expect_fine("pennywort render page.html --size 100x60 --transparent -o a.png");
    const auto inside = pixel("a.png", 10, 10);
    ASSERT_EQ(inside.size(), 4u);
    EXPECT_EQ(colour(inside.begin(), inside.begin() + 3), (colour{255, 255, 255}));
    EXPECT_NEAR(inside[3], 64, 1);
    EXPECT_EQ(pixel("a.png", 60, 55), (colour{0, 0, 0, 0}));
}

TEST_F(Render, StyleSheetAndScriptAreInTheFirstFrame) {
    folder.write("page.html", "<!doctype html><body>plain");
    folder.write("a.css", "body { background: rgb(10, 20, 30) !important; }");
    folder.write("a.js",
                 "document.body.textContent = '';\n"
                 "document.body.style.borderTop = '30px solid rgb(40, 50, 60)';\n"
                 "document.body.style.margin = 0;\nreturn 'done'; // and no more");
    const auto run = folder.run(
        "pennywort render page.html --size 100x60 --css a.css --script a.js "
        "--wait-for 'document.body.style.margin' --verbose -o a.png");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(pixel("a.png", 50, 10), (colour{60, 50, 40, 255}));
    EXPECT_EQ(pixel("a.png", 50, 50), (colour{30, 20, 10, 255}));
    EXPECT_NE(run.errors.find("script: done"), std::string::npos) << run.errors;
}

TEST_F(Render, PagesFollowOneAnotherEachWithItsFrames) {
    for (const char* name : {"red", "lime", "blue"}) {
        folder.write(std::string(name) + ".html", std::string("<body bgcolor=") + name + ">");
    }
    const auto run = folder.run(
        "pennywort render red.html lime.html blue.html --size 16x16 --frames 2 "
        "-o p%d.png --json");
    ASSERT_EQ(run.status, 0) << run.errors;
    const colour want[] = {{0, 0, 255, 255}, {0, 255, 0, 255}, {255, 0, 0, 255}};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(pixel("p" + std::to_string(i + 1) + ".png", 8, 8), want[i / 2]) << i;
    }
    EXPECT_FALSE(folder.has("p7.png"));
    EXPECT_EQ(value_of(run.output, "frames"), "6");
    EXPECT_EQ(value_of(run.output, "pages"), "3");
}

TEST_F(Render, APipeHoldsNothingButFrames) {
    const auto run = folder.run(
        "pennywort render moving.html --size 64x48 --frames 7 -o - --verbose --json "
        ">a.y4m");
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::string header = "YUV4MPEG2 W64 H48 F50:1 Ip A1:1 C444 XCOLORRANGE=LIMITED\n";
    EXPECT_EQ(folder.read("a.y4m").substr(0, header.size()), header);
    EXPECT_EQ(folder.read("a.y4m").size(), header.size() + 7 * (6 + 64 * 48 * 3));
    EXPECT_EQ(value_of(last_line_of(run.errors), "frames"), "7") << run.errors;
}

TEST_F(Render, AFileHasAFramePerTickAndTheCountsAgree) {
    const auto run = folder.run(
        "pennywort render moving.html --size 320x180 --seconds 2 -o a.mkv --json\n"
        "ffprobe -v error -count_frames -show_entries stream=nb_read_frames a.mkv");
    EXPECT_EQ(value_of(run.output, "frames"), "100");
    EXPECT_NE(run.output.find("nb_read_frames=100"), std::string::npos) << run.output;
    const int painted = std::stoi(value_of(run.output, "painted"));
    const int repeated = std::stoi(value_of(run.output, "repeated"));
    const int dropped = std::stoi(value_of(run.output, "dropped"));
    const int unchanged = std::stoi(value_of(run.output, "unchanged"));
    EXPECT_EQ(painted - dropped - unchanged + repeated, 100);
    EXPECT_GT(painted, 10);
}

// The page paints in each frame, but something else only in every third one.
TEST_F(Render, AsManyFramesAreRepeatedAsTheFilmHas) {
    folder.write("slow.html",
                 "<!doctype html><style>body{margin:0}</style><canvas id=c width=64 height=48>"
                 "</canvas><script>let n=0;const pen=c.getContext('2d');(function next(){"
                 "pen.fillStyle='rgb('+(Math.floor(n++/3)*5%256)+',0,0)';pen.fillRect(0,0,64,48);"
                 "requestAnimationFrame(next)})()</script>");
    const auto run =
        folder.run("pennywort render slow.html --size 64x48 --frames 60 -o a.raw --json");
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::string film = folder.read("a.raw");
    const std::size_t frame = 64 * 48 * 4;
    ASSERT_EQ(film.size(), 60 * frame);
    int repeated = 0;
    for (std::size_t at = frame; at < film.size(); at += frame) {
        repeated += film.compare(at, frame, film, at - frame, frame) == 0;
    }
    EXPECT_EQ(value_of(run.output, "repeated"), std::to_string(repeated)) << run.output;
    EXPECT_GT(repeated, 10);
}

TEST_F(Render, AnErrorOfAScriptOfThePageIsTold) {
    folder.write("bad.html", "<script>setInterval(() => nosuch(), 5)</script>");
    const auto run = folder.run("pennywort render bad.html --frames 20");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("nosuch is not defined"), std::string::npos) << run.errors;
}

TEST_F(Render, AFullDiskLeavesNoLineThatReadsAsIfAllWereWell) {
    const auto run =
        folder.run("pennywort render moving.html --frames 9 --format raw -o /dev/full");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors.find(" frames, "), std::string::npos) << run.errors;
}

// Only the end of the film finds no room: its frames have fitted, and ffmpeg ends with 0.
TEST_F(Render, AFilmThatMayNotGrowToItsEndIsAFailure) {
    folder.write_program("ffmpeg",
                         "case \"$*\" in *'-f null -') cat >/dev/null; exit 0;; esac\n"
                         "ulimit -f 20\nexec /usr/bin/ffmpeg \"$@\"\n");
    const auto run = folder.run(
        "PATH=$PWD:$PATH pennywort render moving.html --size 320x180 --frames 50 -o a.mov");
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("File too large"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find(" frames, "), std::string::npos) << run.errors;
}

TEST_F(Render, WithoutAnOutputItOnlyMeasures) {
    const auto run = folder.run("pennywort render moving.html --frames 30 --json; ls");
    EXPECT_EQ(value_of(run.output, "frames"), "30");
    EXPECT_EQ(value_of(run.output, "width"), "1280");
    EXPECT_GT(std::stod(value_of(run.output, "first_frame_ms")), 0);
    EXPECT_NE(run.output.find("\nerr.txt\nmoving.html\nout.txt\nscript\n"), std::string::npos)
        << "something was written: " << run.output;
}

TEST_F(Render, AFreeRunningPageIsMeasuredToo) {
    const auto run = folder.run("pennywort render moving.html --free-run --frames 30 --json");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_GT(std::stoi(value_of(run.output, "painted")), 2);
}

TEST_F(Render, APageSavesNoFiles) {
    folder.write("saving.html",
                 "<a id=a download=show.bin href='data:text/plain,hello'>x</a>"
                 "<script>a.click()</script>");
    const auto run = folder.run("pennywort render saving.html --frames 60 --verbose 2>&1");
    EXPECT_NE(run.output.find("a download by the page was refused"), std::string::npos)
        << run.output;
}

TEST_F(Render, TheRuntimesOwnLinesAreSeenOnlyWhenAskedFor) {
    // A slow machine hears how far it is.
    const auto run = folder.run(
        "pennywort render moving.html --frames 1 2>&1 | grep -v '^\\(loading \\)\\?page 1 of 1'");
    EXPECT_EQ(run.output.find(":ERROR:"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.substr(0, 10), "measured: ") << run.output;
}

TEST_F(Render, TheSmallestAndOddSizesAreRendered) {
    for (const char* size : {"1x1", "2x1", "33x17"}) {
        const auto run = folder.run(
            std::string("pennywort render moving.html --frames 2 -o a.mkv --size ") + size);
        EXPECT_EQ(run.status, 0) << size << run.errors;
    }
}

}  // namespace
}  // namespace pennywort::host
