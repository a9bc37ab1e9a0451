// tests/host/render_interrupted_test.cpp - the program on the real browser runtime: runs that end
// early, and what their files hold then.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

using namespace std::string_literals;

class RenderEnded : public MovingPage {
protected:
    // What a film of the moving page leaves that is ended once it has frames: `end` does that to
    // $pid, and `look` looks at what there is then. The status is the program's.
    program_run ended_film(const std::string& options, const std::string& end,
                           const std::string& look) const {
        return folder.run("rm -f log stream [ab][.-]*\n'" PENNYWORT_PROGRAM
                          "' render moving.html --size 64x48 --seconds 600 " +
                          options +
                          " 2>log & pid=$!\n"
                          "until grep -q ' [1-9][0-9]*/30000 frames' log; do\n"
                          "  kill -0 $pid 2>/dev/null || break\n"
                          "  sleep 0.1\n"
                          "done\n" +
                          end + "\nwait $pid; status=$?; cat log >&2\n" + look + "\nexit $status");
    }
    static constexpr const char* k_count =
        "ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames "
        "-of csv=p=0 ";
};

// The page's process dies while frames are taken: the file is completed, and the failure told.
TEST_F(RenderEnded, ADeadRendererProcessFailsAndLeavesAPlayableFile) {
    const auto run =
        ended_film("-o a.y4m",
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
                   "kill -KILL $(renderers $pid)",
                   k_count + "a.y4m"s);
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_NE(run.errors.find("the page's process has ended"), std::string::npos) << run.errors;
    EXPECT_GT(std::atoi(run.output.c_str()), 0) << run.output;
}

TEST_F(RenderEnded, AnInterruptionCompletesEachKindOfFilm) {
    for (const std::string film : {"a.mkv", "a.mp4", "a.webm", "a.gif", "a.mov --key b.mov",
                                   "a.mp4 --live", "a.mov --fields"}) {
        const auto run =
            ended_film("-o " + film, "kill -INT $pid",
                       "for film in [ab].*; do "s + k_count + "$film || exit 99; done");
        EXPECT_EQ(run.status, 130) << film << run.errors;
        EXPECT_GT(std::atoi(run.output.c_str()), 0) << film << run.output;
        if (film.find("--key") == film.npos) continue;
        const auto second = run.output.find('\n') + 1;
        EXPECT_EQ(std::atoi(run.output.c_str()), std::atoi(run.output.c_str() + second))
            << run.output;
    }
}

// What is said of the film is what is in it: of each kind as many frames as the summary has.
TEST_F(RenderEnded, WhatAnInterruptedRunSaysOfItsFilmIsTrue) {
    for (const std::string film :
         {"a.mkv", "a.mov", "a.mp4", "a.webm", "a.gif", "a.y4m", "a-%05d.png", "a.mp4 --live",
          "a.mov --fields", "- --format matroska --exact"}) {
        const auto run = ended_film("--json -o " + film + " >stream", "kill -INT $pid",
                                    "cat log stream | grep -a '^{' >json\n"
                                    "if [ -e a-00001.png ]; then ls a-*.png | wc -l\n"
                                    "else "s +
                                        k_count + "$(ls a.* 2>/dev/null || echo stream); fi");
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

TEST_F(RenderEnded, ALostTerminalCompletesTheFileToo) {
    const auto run =
        ended_film("-o a.mp4", "kill -HUP $pid; kill -HUP $pid 2>/dev/null", k_count + "a.mp4"s);
    EXPECT_EQ(run.status, 129) << run.errors;
    EXPECT_GT(std::atoi(run.output.c_str()), 0) << run.errors;
}

TEST_F(RenderEnded, AnFfmpegThatIsKilledEndsTheRunAtOnceAndIsTold) {
    for (const std::string film : {"a.mkv", "a.mov", "a.mp4 --live"}) {
        const auto run = ended_film("-o " + film,
                                    "for p in /proc/[0-9]*; do\n"
                                    "  q=${p#/proc/}\n"
                                    "  [ \"$(awk '/^PPid:/{print $2}' $p/status 2>/dev/null)\" = "
                                    "$pid ] && [ \"$(cat $p/comm)\" = ffmpeg ] && kill -KILL $q\n"
                                    "done",
                                    "");
        EXPECT_EQ(run.status, 1) << film << run.errors;
        EXPECT_NE(
            run.errors.find("ffmpeg could not write " + film.substr(0, 5) + ": exit status 137"),
            std::string::npos)
            << run.errors;
        EXPECT_EQ(run.errors.find("137; what there is of it cannot be played") != std::string::npos,
                  film != "a.mkv")
            << "only a Matroska file needs no index" << run.errors;
        EXPECT_EQ(run.errors.find(" each at its moment"), std::string::npos) << run.errors;
    }
}

TEST_F(RenderEnded, ARequestToEndBeforeTheFirstFrameLeavesNoFile) {
    folder.write("endless.html", "<script>for(;;);</script>");
    const auto run = folder.run("'" PENNYWORT_PROGRAM
                                "' render endless.html -o a.mkv 2>log & pid=$!\n"
                                "until grep -q loading log; do sleep 0.1; done\n"
                                "kill -TERM $pid; wait $pid");
    EXPECT_EQ(run.status, 143) << run.errors;
    EXPECT_FALSE(folder.has("a.mkv"));
}

}  // namespace
}  // namespace pennywort::host
