// tests/host/render_test.cpp - the program on the real browser runtime: pages that fail, readers
// that leave, interruptions, and what is in the files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// Changes with every frame, from the first on.
constexpr const char* k_moving_page =
    "<!doctype html><style>body{margin:0;background:#204060}</style><script>"
    "let n=0;(function next(){document.body&&(document.body.textContent=++n);"
    "requestAnimationFrame(next)})()</script>";

class Render : public RenderFixture {
protected:
    Render() { folder.write("moving.html", k_moving_page); }
};

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
    expect_failure("pennywort render moving.html --script bad.js", "bad.js:2: SyntaxError");
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

// The page's process dies while frames are taken: the file is completed, and the failure told.
TEST_F(Render, ADeadRendererProcessFailsAndLeavesAPlayableFile) {
    const auto run = folder.run(
        "renderers() {\n"
        "  for p in /proc/[0-9]*; do\n"
        "    grep -qa -- --type=renderer $p/cmdline 2>/dev/null || continue\n"
        "    q=${p#/proc/}\n"
        "    while [ -n \"$q\" ] && [ \"$q\" -gt 1 ]; do\n"
        "      q=$(awk '/^PPid:/{print $2}' /proc/$q/status 2>/dev/null)\n"
        "      [ \"$q\" = $1 ] && echo ${p#/proc/} && break\n"
        "    done\n"
        "  done\n"
        "}\n"
        "'" PENNYWORT_PROGRAM
        "' render moving.html --size 64x48 --seconds 60 -o a.y4m 2>log & pid=$!\n"
        "until grep -q frames log; do sleep 0.1; done\n"
        "kill -KILL $(renderers $pid)\n"
        "wait $pid; status=$?; cat log >&2\n"
        "ffprobe -v error -count_frames -show_entries stream=nb_read_frames a.y4m\n"
        "exit $status");
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("the page's process has ended"), std::string::npos) << run.errors;
    EXPECT_NE(run.output.find("nb_read_frames="), std::string::npos) << run.output;
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

TEST_F(Render, AnInterruptionCompletesTheFile) {
    const auto run = folder.run(
        "'" PENNYWORT_PROGRAM
        "' render moving.html --size 64x48 --seconds 60 -o a.mkv 2>log & pid=$!\n"
        "until grep -q frames log; do sleep 0.1; done\n"
        "kill -INT $pid; wait $pid; status=$?; cat log >&2\n"
        "ffprobe -v error -count_frames -show_entries stream=nb_read_frames a.mkv || exit 99\n"
        "exit $status");
    EXPECT_EQ(run.status, 130) << run.errors;
    EXPECT_NE(run.output.find("nb_read_frames="), std::string::npos) << run.output;
}

TEST_F(Render, AnInterruptionCompletesEachKindOfFilm) {
    for (const std::string film :
         {"a.mp4", "a.webm", "a.gif", "a.mov --key b.mov", "a.mp4 --live", "a.mov --fields"}) {
        const auto run = folder.run("rm -f log [ab].*\n'" PENNYWORT_PROGRAM
                                    "' render moving.html --size 64x48 --seconds 60 -o " +
                                    film +
                                    " 2>log & pid=$!\n"
                                    "until grep -q frames log; do sleep 0.1; done\n"
                                    "kill -INT $pid; wait $pid; status=$?; cat log >&2\n"
                                    "for film in [ab].*; do\n"
                                    "  ffprobe -v error -count_frames -select_streams v "
                                    "-show_entries stream=nb_read_frames "
                                    "-of csv=p=0 $film || exit 99\n"
                                    "done\nexit $status");
        EXPECT_EQ(run.status, 130) << film << run.errors;
        EXPECT_GT(std::atoi(run.output.c_str()), 0) << film << run.output;
        if (film.find("--key") == film.npos) continue;
        const auto second = run.output.find('\n') + 1;
        EXPECT_EQ(std::atoi(run.output.c_str()), std::atoi(run.output.c_str() + second))
            << run.output;
    }
}

// What is said of the film is what is in it: of each kind as many frames as the summary has.
TEST_F(Render, WhatAnInterruptedRunSaysOfItsFilmIsTrue) {
    for (const std::string film :
         {"a.mkv", "a.mov", "a.mp4", "a.webm", "a.gif", "a.y4m", "a-%05d.png", "a.mp4 --live",
          "a.mov --fields", "- --format matroska --exact"}) {
        const auto run = folder.run(
            "rm -f log stream a[.-]*\n'" PENNYWORT_PROGRAM
            "' render moving.html --size 64x48 --seconds 600 --json -o " +
            film +
            " >stream 2>log & pid=$!\n"
            "until grep -q ' [1-9][0-9]*/30000 frames' log; do sleep 0.1; done\n"
            "kill -INT $pid; wait $pid; status=$?; cat log >&2; cat log stream | grep -a '^{' "
            ">json\n"
            "if [ -e a-00001.png ]; then ls a-*.png | wc -l\n"
            "else ffprobe -v error -count_frames -select_streams v -show_entries "
            "stream=nb_read_frames -of csv=p=0 $(ls a.* 2>/dev/null || echo stream); fi\n"
            "exit $status");
        EXPECT_EQ(run.status, 130) << film << run.errors;
        const auto told = std::atoi(value_of(folder.read("json"), "frames").c_str());
        const auto there = std::atoi(run.output.c_str());
        EXPECT_GT(there, 0) << film << run.errors;
        const bool has_fields = film.find("--fields") != film.npos;
        EXPECT_EQ(there, has_fields ? (told + 1) / 2 : told) << film << run.errors;
        const std::string summary = ": " + std::to_string(told) + " frames";
        EXPECT_NE(run.errors.find("pennywort: interrupted\n"), std::string::npos) << run.errors;
        EXPECT_NE(run.errors.find(summary), std::string::npos) << film << run.errors;
    }
}

TEST_F(Render, ALostTerminalCompletesTheFileToo) {
    const auto run = folder.run(
        "'" PENNYWORT_PROGRAM
        "' render moving.html --size 64x48 --seconds 600 -o a.mp4 2>log & pid=$!\n"
        "until grep -q ' [1-9][0-9]*/30000 frames' log; do sleep 0.1; done\n"
        "kill -HUP $pid; kill -HUP $pid 2>/dev/null; wait $pid; status=$?; cat log >&2\n"
        "ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 a.mp4\n"
        "exit $status");
    EXPECT_EQ(run.status, 129) << run.errors;
    EXPECT_GT(std::atoi(run.output.c_str()), 0) << run.errors;
}

TEST_F(Render, AnFfmpegThatIsKilledEndsTheRunAtOnceAndIsTold) {
    for (const std::string film : {"a.mkv", "a.mov", "a.mp4 --live"}) {
        const auto run = folder.run(
            "rm -f log\n'" PENNYWORT_PROGRAM "' render moving.html --size 64x48 --seconds 600 -o " +
            film +
            " 2>log & pid=$!\n"
            "until grep -q ' [1-9][0-9]*/30000 frames' log; do sleep 0.1; "
            "done\n"
            "for p in /proc/[0-9]*; do\n"
            "  q=${p#/proc/}\n"
            "  [ \"$(awk '/^PPid:/{print $2}' $p/status 2>/dev/null)\" = $pid ] "
            "&& [ \"$(cat $p/comm)\" = ffmpeg ] && kill -KILL $q\n"
            "done\n"
            "wait $pid; status=$?; cat log >&2; exit $status");
        EXPECT_EQ(run.status, 1) << film << run.errors;
        EXPECT_NE(
            run.errors.find("ffmpeg could not write " + film.substr(0, 5) + ": exit status 137"),
            std::string::npos)
            << run.errors;
        EXPECT_EQ(run.errors.find(" each at its moment"), std::string::npos) << run.errors;
    }
}

TEST_F(Render, ARequestToEndBeforeTheFirstFrameLeavesNoFile) {
    folder.write("endless.html", "<script>for(;;);</script>");
    const auto run = folder.run("'" PENNYWORT_PROGRAM
                                "' render endless.html -o a.mkv 2>log & pid=$!\n"
                                "until grep -q loading log; do sleep 0.1; done\n"
                                "kill -TERM $pid; wait $pid");
    EXPECT_EQ(run.status, 143) << run.errors;
    EXPECT_FALSE(folder.has("a.mkv"));
}

TEST_F(Render, OpaqueColoursAreExact) {
    folder.write("page.html",
                 "<!doctype html><body style='margin:0;background:rgb(1,127,254)'>"
                 "<div style='position:absolute;left:50px;top:0;width:50px;height:50px;"
                 "background:rgb(200,33,7)'>");
    const auto run = folder.run("pennywort render page.html --size 100x60 -o a.png");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(pixel("a.png", 10, 10), (colour{254, 127, 1, 255}));
    EXPECT_EQ(pixel("a.png", 60, 10), (colour{7, 33, 200, 255}));
}

TEST_F(Render, TransparentColoursAreStraight) {
    folder.write("page.html",
                 "<!doctype html><body style='margin:0'><div style='position:absolute;"
                 "left:0;top:0;width:50px;height:50px;background:rgba(255,255,255,0.25)'>");
    const auto run = folder.run("pennywort render page.html --size 100x60 --transparent -o a.png");
    ASSERT_EQ(run.status, 0) << run.errors;
    const auto inside = pixel("a.png", 10, 10);
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
    const auto run = folder.run("pennywort render moving.html --frames 1 2>&1");
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

// Two runs of a page that moves by every clock it has, one of them beside a busy process: equal to
// the byte, no frame repeated or missed, and each picture at its own moment.
TEST_F(Render, AnExactFilmIsTheSameAgainWhateverTheMachineDoes) {
    folder.write("clocks.html",
                 "<!doctype html><style>body{margin:0;background:#000}"
                 "@keyframes run{to{transform:translateX(1000px)}}"
                 "div{position:absolute;width:1px;height:8px;background:#fff}"
                 "#css{top:0;animation:run 20s linear both}"
                 "#date{top:8px}#frame{top:16px}#dice{top:24px}</style>"
                 "<div id=css></div><div id=date></div><div id=frame></div><div id=dice></div>"
                 "<script>const put = (id, x) => document.getElementById(id).style.left = x + 'px';"
                 "let day, at; (function next(stamp) {"
                 "  if (at === undefined) { day = Date.now(); at = stamp; }"
                 "  put('date', (Date.now() - day) / 20);"
                 "  put('frame', Math.round((stamp - at) / 20));"
                 "  put('dice', Math.floor(Math.random() * 60));"
                 "  requestAnimationFrame(next); })(performance.now())</script>");
    const auto run = folder.run(
        "film='pennywort render clocks.html --exact --size 64x32 --frames 60 --json'\n"
        "$film -o a.bgra\n"
        "(while :; do :; done) & busy=$!\n"
        "$film -o b.bgra\n"
        "kill $busy");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(value_of(run.output, "repeated"), "0") << run.output;
    EXPECT_EQ(value_of(run.output, "missed"), "0");
    const std::string film = folder.read("a.bgra");
    constexpr std::size_t k_frame = 64 * 32 * 4;
    ASSERT_EQ(film.size(), 60 * k_frame);
    EXPECT_EQ(film, folder.read("b.bgra"));
    const auto is_white = [&](std::size_t frame, std::size_t x, std::size_t y) {
        return static_cast<unsigned char>(film[frame * k_frame + (y * 64 + x) * 4]) > 200;
    };
    for (std::size_t n = 0; n < 60; ++n) {
        EXPECT_TRUE(is_white(n, n, 4)) << "the animation at frame " << n;
        EXPECT_TRUE(is_white(n, n, 12)) << "the day at frame " << n;
        EXPECT_TRUE(is_white(n, n, 20)) << "the stamp at frame " << n;
    }
}

TEST_F(Render, AnExactFilmOfSeveralPagesOfAStillOneAndOfOnePicture) {
    folder.write("still.html", "<!doctype html><style>body{background:#20c840}</style>");
    auto run = folder.run(
        "pennywort render still.html moving.html --exact --size 64x48 --frames 10 -o f-%02d.png "
        "--json");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(value_of(run.output, "frames"), "20");
    EXPECT_EQ(value_of(run.output, "repeated"), "9") << run.output;
    EXPECT_EQ(pixel("f-01.png", 5, 5), (colour{0x40, 0xC8, 0x20, 0xFF}));
    EXPECT_EQ(pixel("f-10.png", 5, 5), (colour{0x40, 0xC8, 0x20, 0xFF}));
    run = folder.run("pennywort render still.html --exact --size 64x48 -o one.png");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(pixel("one.png", 5, 5), (colour{0x40, 0xC8, 0x20, 0xFF}));
}

// The bar is as wide as the frames that the page has had: the condition needs time to pass, and a
// film begins with the frame behind the one that made it true.
TEST_F(Render, AnExactFilmWaitsInThePagesOwnTime) {
    folder.write("bar.html",
                 "<!doctype html><style>body{margin:0;background:#000}div{height:9px;"
                 "background:#fff}</style><div id=bar></div><script>setTimeout(() => shown = 1, "
                 "400); let n = 0; var shown = 0; (function next() { bar.style.width = n++ + 'px';"
                 "requestAnimationFrame(next); })()</script>");
    const auto run = folder.run(
        "film='pennywort render bar.html --size 64x32 --frames 3 --wait-for shown'\n"
        "$film -o a.bgra && $film -o b.bgra");
    EXPECT_EQ(run.status, 0) << run.errors;
    const std::string film = folder.read("a.bgra");
    constexpr std::size_t k_frame = 64 * 32 * 4;
    ASSERT_EQ(film.size(), 3 * k_frame);
    EXPECT_EQ(film, folder.read("b.bgra"));
    const auto width = [&](std::size_t frame) {
        std::size_t x = 0;
        while (x < 64 && static_cast<unsigned char>(film[frame * k_frame + x * 4]) > 200) ++x;
        return x;
    };
    EXPECT_GE(width(0), 20u) << "400 ms at 50 frames a second";
    EXPECT_LE(width(0), 26u);
    EXPECT_EQ(width(1), width(0) + 1);
    EXPECT_EQ(width(2), width(0) + 2);
}

TEST_F(Render, AnExactFilmThatCannotGoOnSaysWhy) {
    expect_failure("pennywort render http://does-not-exist.invalid/ --exact --frames 1",
                   "could not be loaded");
    folder.write("throws.html", "<script>for(;;);</script>");
    expect_failure("pennywort render throws.html --exact --timeout 3 --frames 1",
                   "has not loaded within 3 s");
    const auto wrong = folder.run("pennywort render moving.html --exact --endless -o a.y4m");
    EXPECT_EQ(wrong.status, 2);
    EXPECT_NE(wrong.errors.find("--exact needs an end"), std::string::npos) << wrong.errors;
}

// Black, and white for 200 ms from each 800 ms on, with a tone of 1 kHz begun in the same frame.
constexpr const char* k_sounding_page =
    "<!doctype html><style>body{margin:0;background:#000}</style><script>"
    "const context = new AudioContext(), begun = performance.now(); let beeps = 0;"
    "function beep() { const tone = context.createOscillator(); tone.frequency.value = 1000;"
    "tone.connect(context.destination); tone.start(); tone.stop(context.currentTime + 0.2); }"
    "(function next() { const now = performance.now() - begun, is_white = now % 800 < 200 && now > "
    "700;"
    "if (is_white && beeps < Math.floor(now / 800)) { beeps = Math.floor(now / 800); beep(); }"
    "if (document.body) document.body.style.background = is_white ? '#fff' : '#000';"
    "requestAnimationFrame(next); })()</script>";

class RenderedSound : public Render {
protected:
    RenderedSound() { folder.write("beeps.html", k_sounding_page); }

    // In seconds.
    std::vector<double> flashes(const std::string& film) const {
        folder.run("ffmpeg -v error -i " + film +
                   " -vf scale=2:2 -f rawvideo -pix_fmt gray frames");
        const std::string frames = folder.read("frames");
        std::vector<double> at;
        for (std::size_t n = 1; n * 4 < frames.size(); ++n) {
            const auto is_white = [&](std::size_t frame) {
                return static_cast<unsigned char>(frames[frame * 4]) > 127;
            };
            if (is_white(n) && !is_white(n - 1)) at.push_back(double(n) / 50);
        }
        return at;
    }
    // Where it begins to be loud after some silence; and `pitch` is how often a second the second
    // one of these swings, which neither end of the film cuts.
    std::vector<double> beeps(const std::string& film, double& pitch) const {
        folder.run("ffmpeg -v error -i " + film + " -f f32le -ar 48000 -ac 1 samples");
        const std::string bytes = folder.read("samples");
        std::vector<float> samples(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
        std::vector<double> at;
        std::size_t last_loud = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (std::abs(samples[i]) < 0.1f) continue;
            if (at.empty() || i - last_loud > 9600) at.push_back(double(i) / 48'000);
            last_loud = i;
        }
        if (at.size() < 2) return at;
        int swings = 0;
        const auto first = static_cast<std::size_t>((at[1] + 0.05) * 48'000);
        for (std::size_t i = first; i < first + 4800 && i + 1 < samples.size(); ++i) {
            if (samples[i] <= 0 && samples[i + 1] > 0) ++swings;
        }
        pitch = swings * 10;
        return at;
    }
};

TEST_F(RenderedSound, OfALiveFilmIsInStepWithItsPicture) {
    for (const char* film : {"a.mkv", "a.mp4"}) {
        const auto run = folder.run(std::string("pennywort render beeps.html --live --size 64x48 "
                                                "--seconds 5 -o ") +
                                    film);
        ASSERT_EQ(run.status, 0) << run.errors;
        double pitch = 0;
        const auto seen = flashes(film);
        const auto heard = beeps(film, pitch);
        EXPECT_NEAR(pitch, 1000, 20);
        ASSERT_GE(seen.size(), 4u) << run.errors;
        // Of the first one, with which a silent page begins to sound, the runtime has lost a piece.
        std::vector<double> apart;
        for (const double beep : heard) {
            double nearest = 1;
            for (std::size_t i = 1; i < seen.size(); ++i) {
                if (std::abs(beep - seen[i]) < std::abs(nearest)) nearest = beep - seen[i];
            }
            if (std::abs(nearest) < 0.3) apart.push_back(nearest);
        }
        ASSERT_GE(apart.size(), 4u) << film;
        std::sort(apart.begin(), apart.end());
        EXPECT_NEAR(apart[apart.size() / 2], 0, 0.020) << film << ": a frame";
        EXPECT_NEAR(apart.front(), 0, 0.030) << film;
        EXPECT_NEAR(apart.back(), 0, 0.030) << film;
    }
}

TEST_F(RenderedSound, IsToldWhereTheFilmHasNone) {
    auto run = folder.run("pennywort render beeps.html --live --size 64x48 --seconds 2 -o a.y4m");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("the page has sound, and a.y4m holds none"), std::string::npos)
        << run.errors;
    run = folder.run("pennywort render beeps.html --live --mute --size 64x48 --seconds 2 -o a.mkv");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("the page has sound"), std::string::npos) << run.errors;
    double pitch = 0;
    EXPECT_TRUE(beeps("a.mkv", pitch).empty());
}

TEST_F(RenderedSound, AloneIsAWavFile) {
    const auto run =
        folder.run("pennywort render beeps.html --live --size 64x48 --seconds 4 -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    double pitch = 0;
    EXPECT_GE(beeps("a.wav", pitch).size(), 3u);
    EXPECT_NEAR(pitch, 1000, 20);
    EXPECT_EQ(folder.read("samples").size(), std::size_t(4 * 48'000) * sizeof(float));
}

}  // namespace
}  // namespace pennywort::host
