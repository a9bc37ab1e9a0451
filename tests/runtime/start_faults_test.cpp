// start_faults_test.cpp - a browser runtime that cannot be had: the host goes on without pages, and
// the program says why and what to do.
#include <ostream>

#include "start_fixture.h"

namespace pennywort::host {
namespace {

struct fault {
    const char* name;
    const char* script;  // what is spoilt
    const char* cause;
    const char* remedy;
};
void PrintTo(const fault& one, std::ostream* out) { *out << one.name; }

class StartFault : public StartTest, public testing::WithParamInterface<fault> {
protected:
    program_run run_spoilt(const std::string& command) const {
        return run(GetParam().script + ("\n" + command));
    }
};

TEST_P(StartFault, TheHostGoesOnWithoutPages) {
    const program_run host = run_spoilt("probe");
    SCOPED_TRACE(host.output + host.errors);
    EXPECT_EQ(host.status, 0);
    EXPECT_TRUE(line_of(host.output, "end") == "end");
    const std::string start = line_of(host.output, "start");
    EXPECT_EQ(start.substr(0, 10), "start 0 0 ");
    EXPECT_TRUE(holds(start, GetParam().cause)) << start;
    EXPECT_TRUE(holds(start, GetParam().remedy)) << start;
    EXPECT_EQ(line_of(host.output, "opened"),
              "opened 0 ticked 0 sent -1 loading 0 frames 0 left 0");
    // Nothing has been begun that would keep a later start from saying the same.
    EXPECT_EQ(line_of(host.output, "again"), "again" + start.substr(5));
}

TEST_P(StartFault, TheProgramNamesCauseAndRemedyInOneLineAndLeavesNoFile) {
    const program_run program = run_spoilt("pennywort -o picture.y4m");
    EXPECT_EQ(program.status, 1);
    EXPECT_EQ(program.errors.substr(0, 11), "pennywort: ");
    EXPECT_EQ(program.errors.find('\n'), program.errors.size() - 1) << program.errors;
    EXPECT_TRUE(holds(program.errors, GetParam().cause)) << program.errors;
    EXPECT_TRUE(holds(program.errors, GetParam().remedy)) << program.errors;
    EXPECT_FALSE(has("picture.y4m"));
}

const std::string k_own_runtime =
    "rm host/libcef.so\n"
    "cp -l \"$runtime/libcef.so\" host/ 2>/dev/null || cp \"$runtime/libcef.so\" host/\n"
    "ln -s \"$runtime\"/*.{dat,bin,pak} host/\n";
const std::string k_no_icu_data = k_own_runtime + "rm host/icudtl.dat";
const std::string k_no_snapshot = k_own_runtime + "rm host/*.bin";

const std::string k_cut_icu_data =
    k_no_icu_data + "; head -c 1000000 \"$runtime/icudtl.dat\" >host/icudtl.dat";
const std::string k_empty_icu_data = k_no_icu_data + "; touch host/icudtl.dat";

const fault k_library_faults[] = {
    {"NoLibrary", "rm host/libcef.so", "(libcef.so) is not in", "get-runtime"},
    {"ALinkToNowhere", "ln -sfn nowhere host/libcef.so", "is not in", "get-runtime"},
    {"AnEmptyFolderOfTheUsersToo", "rm host/libcef.so; mkdir empty; export CEF_ROOT=$PWD/empty",
     "/empty, ", "CEF_ROOT"},
    {"AFolderOfTheName", "rm host/libcef.so; mkdir host/libcef.so", "cannot be loaded", "CEF_ROOT"},
    {"AFileOfText", "rm host/libcef.so; echo text >host/libcef.so", "cannot be loaded",
     "get-runtime"},
    {"AnEmptyFile", "rm host/libcef.so; touch host/libcef.so", "cannot be loaded", "get-runtime"},
    {"TheBeginningOfTheLibrary",
     "rm host/libcef.so; head -c 1000000 \"$runtime/libcef.so\" >host/libcef.so", "ended by signal",
     "--self-check"},
    {"AnotherLibrary", "cp --remove-destination \"$beside/libloam.so.0\" host/libcef.so",
     "lacks the function cef_api_hash", "CEF_ROOT"},
    {"OneFunctionMissing", "export CEF_ROOT='" FAKE_RUNTIME_MISSING_EXPORT_FOLDER "'",
     "lacks the function cef_get_exit_code", "CEF_ROOT"},
    {"AnotherHash",
     "cp --remove-destination '" OTHER_HASH_LIBRARY
     "' host/libcef.so; ln -s \"$runtime\"/*.{dat,bin} host/; mkdir host/real; ln -s "
     "\"$runtime/libcef.so\" host/real/",
     "hash 0123456789abcdef0123456789abcdef01234567", "install the runtime"},
    {"NoUnicodeData", k_no_icu_data.c_str(), "icudtl.dat", "get-runtime"},
    {"UnicodeDataThatIsCut", k_cut_icu_data.c_str(), "icudtl.dat is damaged", "anew"},
    {"UnicodeDataThatIsEmpty", k_empty_icu_data.c_str(), "icudtl.dat is damaged", "anew"},
    {"NoSnapshot", k_no_snapshot.c_str(), "snapshot", "get-runtime"},
};
const fault k_folder_faults[] = {
    {"NoHelper", "rm host/CEFChildProcess", "CEFChildProcess is missing", "beside the host"},
    {"AHelperThatMayNotRun", "chmod a-x host/CEFChildProcess", "may not be run", "install it"},
    {"AFolderAsHelper", "rm host/CEFChildProcess; mkdir host/CEFChildProcess", "is missing",
     "install it"},
    {"AHelperThatIsNoProgram", "echo text >host/CEFChildProcess", "does not work", "--self-check"},
    {"AHelperThatCrashes", "printf '#!/bin/sh\\nkill -SEGV $$' >host/CEFChildProcess",
     "ended by signal 11", "--self-check"},
    {"AHelperThatHangs", "printf '#!/bin/sh\\nexec sleep 600' >host/CEFChildProcess",
     "does not end", "--self-check"},
    {"AHelperThatFindsNoRuntime",
     "mkdir apart; mv host/CEFChildProcess apart/; cp -P host/lib{loam,pennywort}* apart/;"
     "ln -s ../apart/CEFChildProcess host/",
     "(libcef.so) is not in", "--self-check"},
    {"NoLocales", "rm host/rsrc/ChromeLocales", "ChromeLocales", "copy or link"},
    {"ALinkToNoLocales", "ln -sfn nowhere host/rsrc/ChromeLocales", "ChromeLocales",
     "copy or link"},
    {"AnEmptyFolderOfLocales", "rm host/rsrc/ChromeLocales; mkdir host/rsrc/ChromeLocales",
     "ChromeLocales", "copy or link"},
    {"LocalesOfOtherLanguagesOnly",
     "rm host/rsrc/ChromeLocales; mkdir host/rsrc/ChromeLocales;"
     "cp \"$runtime\"/locales/da.pak host/rsrc/ChromeLocales/",
     "ChromeLocales", "copy or link"},
    {"ALocaleThatIsEmpty",
     "rm host/rsrc/ChromeLocales; cp -r \"$runtime/locales\" host/rsrc/ChromeLocales;"
     ": >host/rsrc/ChromeLocales/en-US.pak",
     "en-US.pak is damaged", "anew"},
    {"ALocaleThatIsCut",
     "rm host/rsrc/ChromeLocales; cp -r \"$runtime/locales\" host/rsrc/ChromeLocales;"
     "truncate -s -1 host/rsrc/ChromeLocales/en-US.pak",
     "en-US.pak is damaged", "anew"},
    {"NoFolderForTemporaryFiles", "export TMPDIR=/proc/nowhere", "/proc/nowhere", "set TMPDIR"},
    {"TooLongAFolderForTemporaryFiles",
     "export TMPDIR=$PWD/tmp/$(printf 'x%.0s' {1..90}); mkdir $TMPDIR", "is too long",
     "set TMPDIR"},
    {"TooFewOpenFiles", "ulimit -n 100", "only 100 files open at once", "ulimit -n"},
    {"TooSmallFiles", "ulimit -f 2048", "only 2 MiB in a file", "ulimit -f"},
    {"TooFewAddresses", "ulimit -v 8388608", "only 8 GiB of addresses", "ulimit -v"},
};

std::string name_of(const testing::TestParamInfo<fault>& one) { return one.param.name; }
INSTANTIATE_TEST_SUITE_P(Library, StartFault, testing::ValuesIn(k_library_faults), name_of);
INSTANTIATE_TEST_SUITE_P(Folder, StartFault, testing::ValuesIn(k_folder_faults), name_of);

// The runtime opens more where it may: a shell's own bound is not the last word.
TEST_F(StartTest, ABoundOfOpenFilesThatMayBeRaisedIsNotTheEnd) {
    const program_run host =
        run("ulimit -Sn 100\npennywort -o picture.y4m --size 160x96 --seconds 0.2");
    EXPECT_EQ(host.status, 0) << host.errors;
    EXPECT_TRUE(has("picture.y4m"));
}

TEST_F(StartTest, AnEmptyFolderOfTheUsersIsNotTheEnd) {
    const program_run host =
        run("mkdir empty; export CEF_ROOT=$PWD/empty\npennywort -o picture.y4m --seconds 0.2");
    EXPECT_EQ(host.status, 0) << host.errors;
    EXPECT_TRUE(has("picture.y4m"));
}

// The shortest that does its work: it hands everything to the runtime, and what that says of a
// process without a type, -1, becomes the status 255.
TEST_F(StartTest, AHelperOfTheHostsOwnIsItsOwnAffair) {
    const program_run host = run(
        "mv host/CEFChildProcess host/ours\n"
        "printf '#!/bin/sh\\ncase \"$*\" in *--type=*) exec \"$(dirname \"$0\")/ours\" \"$@\";; "
        "esac\nexit 255' >host/CEFChildProcess\n"
        "chmod a+x host/CEFChildProcess\n"
        "host/CEFChildProcess --self-check; echo \"helper $?\"\n"
        "pennywort -o picture.y4m --seconds 0.2");
    EXPECT_TRUE(holds(host.output, "helper 255")) << host.output;
    EXPECT_EQ(host.status, 0) << host.errors;
    EXPECT_TRUE(has("picture.y4m"));
}

// A machine without a display, and no switch that says so.
TEST_F(StartTest, AStartThatTheRuntimeRefusesNamesItsLog) {
    const program_run program = run("unset DISPLAY WAYLAND_DISPLAY\npennywort --gpu");
    EXPECT_EQ(program.status, 1);
    EXPECT_TRUE(holds(program.errors, "exit code 1")) << program.errors;
    EXPECT_TRUE(holds(program.errors, "/config/Tarnhelm/cef_debug_log.txt")) << program.errors;
    EXPECT_TRUE(has("config/Tarnhelm/cef_debug_log.txt"));
    EXPECT_EQ(program.errors.find('\n'), program.errors.size() - 1) << program.errors;
}

}  // namespace
}  // namespace pennywort::host
