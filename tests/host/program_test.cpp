// tests/host/program_test.cpp - the program from its user's side, as far as it gets without the
// browser runtime.
#include <gtest/gtest.h>

#include <string>

#include "tests/host/program.h"

namespace pennywort::host {
namespace {

class Program : public testing::Test {
protected:
    // One line about the fault, and nothing else.
    static void expect_refusal(const program_run& run, int status, const std::string& part) {
        EXPECT_EQ(run.status, status) << run.errors;
        EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
        EXPECT_EQ(run.errors.substr(0, 11), "pennywort: ") << run.errors;
        EXPECT_EQ(run.errors.find('\n'), run.errors.size() - 1) << run.errors;
        EXPECT_EQ(run.output, "");
    }

    program_folder folder;
    // The program with all that it needs beside it, except the runtime.
    const std::string no_runtime =
        "mkdir -p host/rsrc/ChromeLocales\n"
        "cp '" PENNYWORT_PROGRAM
        "' host/\n"
        "printf '\\5\\0\\0\\0\\1%b\\22\\0\\0\\0' '\\0\\0\\0\\0\\0\\0\\0\\0\\0' "
        ">host/rsrc/ChromeLocales/en-US.pak\n"
        "touch host/CEFChildProcess\n"
        "chmod +x host/CEFChildProcess\n"
        "export LD_LIBRARY_PATH=$(dirname '" PENNYWORT_PROGRAM
        "') CEF_ROOT=$PWD/host\n"
        "host=$PWD/host/pennywort\n"
        "pennywort() { \"$host\" \"$@\"; }\n";
};

TEST_F(Program, WrongArgumentsEndWithStatus2AndOneLine) {
    expect_refusal(folder.run("pennywort render about:blank --size 0x0"), 2, "--size 0x0");
    expect_refusal(folder.run("pennywort render missing.html"), 2, "missing.html");
    expect_refusal(folder.run("pennywort render $'two\\nlines'"), 2, "two lines");
    expect_refusal(folder.run("pennywort"), 2, "no command is named: render, live");
}

TEST_F(Program, AMissingRuntimeIsToldWithTheRemedyAndLeavesNoFile) {
    const auto run = folder.run(no_runtime + "pennywort render about:blank -o a.y4m");
    expect_refusal(run, 1, "CEF_ROOT");
    EXPECT_FALSE(folder.has("a.y4m"));
}

TEST_F(Program, AMissingRuntimeLeavesNoMovieEither) {
    const auto run = folder.run(no_runtime + "pennywort render about:blank -o a.mkv");
    EXPECT_EQ(run.status, 1);
    EXPECT_FALSE(folder.has("a.mkv"));
}

TEST_F(Program, AMissingFfmpegIsToldBeforeTheRuntimeStarts) {
    const auto run = folder.run(no_runtime + "PATH=/nowhere pennywort render about:blank -o a.mov");
    expect_refusal(run, 1, "ffmpeg is not there");
}

TEST_F(Program, AMissingOutputFolderIsToldBeforeTheRuntimeStarts) {
    for (const char* name : {"no/a.png", "no/a-%d.png", "no/a.y4m", "no/a.mov"}) {
        const auto run = folder.run(no_runtime + "pennywort render about:blank -o " + name);
        expect_refusal(run, 1, "no/a");
        EXPECT_EQ(run.errors.find("CEF_ROOT"), std::string::npos) << run.errors;
    }
}

TEST_F(Program, AFullDiskIsTold) {
    const auto run =
        folder.run(no_runtime + "pennywort render about:blank --format y4m -o /dev/full");
    expect_refusal(run, 1, "/dev/full: No space left");
}

TEST_F(Program, AnOutputThatIsAFolderIsToldBeforeTheRuntimeStarts) {
    for (const char* name : {"a.png", "a.y4m", "a.mov"}) {
        const auto run = folder.run(no_runtime + "mkdir -p " + name +
                                    "\npennywort render about:blank -o " + name);
        expect_refusal(run, 1, name);
        EXPECT_EQ(run.errors.find("CEF_ROOT"), std::string::npos) << run.errors;
    }
}

TEST_F(Program, WhatStandardOutputDoesNotTakeIsAFailure) {
    EXPECT_EQ(folder.run("pennywort --help >/dev/full").status, 1);
    EXPECT_EQ(folder.run("pennywort --help >&-").status, 1);
    const auto run = folder.run(no_runtime + "pennywort render about:blank --json >/dev/full");
    EXPECT_EQ(run.status, 1);
}

TEST_F(Program, WithJsonAFailureIsInTheLastLineToo) {
    const auto run = folder.run(no_runtime + "pennywort render about:blank --json");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("\"failure\":\""), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find('\n'), run.output.size() - 1);
}

TEST_F(Program, AStandardOutputThatIsClosedTakesNoFrames) {
    const auto run = folder.run(no_runtime + "pennywort render about:blank -o - >&-");
    expect_refusal(run, 1, "standard output is closed");
    EXPECT_EQ(run.errors.find("CEF_ROOT"), std::string::npos) << run.errors;
}

TEST_F(Program, OptionsThatFfmpegDoesNotKnowAreWrongArguments) {
    const auto run = folder.run(
        no_runtime + "pennywort render about:blank -o a.mov --ffmpeg-options '-nonsense 1'");
    expect_refusal(run, 2, "--ffmpeg-options: ffmpeg says: Unrecognized option 'nonsense'");
    EXPECT_FALSE(folder.has("a.mov"));
}

TEST_F(Program, WorksWithoutStandardStreams) {
    EXPECT_EQ(folder.run(no_runtime + "pennywort render about:blank --json <&- >&- 2>&-").status,
              1);
}

TEST_F(Program, ACallOfNobodyIsAFailureInOneLine) {
    expect_refusal(folder.run("pennywort call http://127.0.0.1:1/ m"), 1, "no connection");
}

TEST_F(Program, VerboseShowsTheTraces) {
    for (const char* what : {"call http://127.0.0.1:1/ m", "fetch http://127.0.0.1:1/"}) {
        const auto run = folder.run("pennywort " + std::string(what) + " --verbose");
        EXPECT_NE(run.errors.find("WinHttpSendRequest - failed"), std::string::npos) << run.errors;
        EXPECT_EQ(run.output, "");
    }
}

TEST_F(Program, HelpAndVersionGoToStandardOutput) {
    const auto help = folder.run("pennywort render --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.errors, "");
    EXPECT_NE(help.output.find("--wait-for"), std::string::npos);
    const auto version = folder.run("pennywort --version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output.substr(0, 10), "pennywort ");
}

}  // namespace
}  // namespace pennywort::host
