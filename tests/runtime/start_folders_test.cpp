// start_folders_test.cpp - folders of a user that are in use, left over, unwritable or not there:
// the runtime starts all the same, and nothing of its own is left behind.
#include <ostream>

#include "start_fixture.h"

namespace pennywort::host {
namespace {

// What becomes of the cache that the user's hosts share.
enum class cache { shared, apart };
struct folders {
    const char* name;
    const char* script;  // what the host finds
    cache used;
    const char* trace;  // what it says about it; empty: nothing
};
void PrintTo(const folders& one, std::ostream* out) { *out << one.name; }

class StartFolders : public StartTest, public testing::WithParamInterface<folders> {
protected:
    program_run run_there(const std::string& command) const {
        return run(GetParam().script + ("\n" + command));
    }
};

TEST_P(StartFolders, TheHostStartsAndLeavesNoFolderOfItsOwn) {
    const program_run host = run_there("probe; ls -d tmp/TarnhelmCache-*");
    SCOPED_TRACE(host.output + host.errors);
    EXPECT_EQ(line_of(host.output, "start"), "start 1 1 ");
    EXPECT_EQ(line_of(host.output, "painted"), "painted 1");
    EXPECT_EQ(line_of(host.output, "private"),
              GetParam().used == cache::apart ? "private folders 1" : "private folders 0");
    const std::string said = line_of(host.output, "trace cWebDisplayCEFBrowserManager");
    if (*GetParam().trace) {
        EXPECT_TRUE(holds(said, GetParam().trace)) << said;
        EXPECT_TRUE(holds(said, "/tmp/TarnhelmCache-")) << said;
    } else {
        EXPECT_EQ(said, "");
    }
    EXPECT_EQ(line_of(host.output, "end"), "end");
    EXPECT_EQ(line_of(host.output, "tmp/"), "");
}

TEST_P(StartFolders, TheProgramRenders) {
    const program_run program = run_there("pennywort --frames 1 -o picture.png");
    EXPECT_EQ(program.status, 0) << program.errors;
    EXPECT_TRUE(has("picture.png"));
}

// The number of a process that has ended, and a name of this machine, as the runtime has them.
#define LOCK_OF_A_DEAD_PROCESS \
    "sh -c :& dead=$!; wait; ln -s \"$(uname -n)-$dead\" $cache/SingletonLock"
const folders k_folders[] = {
    {"Fresh", "", cache::shared, ""},
    {"ALockOfADeadProcess", "mkdir $cache;" LOCK_OF_A_DEAD_PROCESS, cache::shared, ""},
    {"ALockThatIsNone", "mkdir $cache; touch $cache/SingletonLock", cache::apart, "is in use or"},
    {"ALockOfALivingProcess", "mkdir $cache; ln -s \"$(uname -n)-$$\" $cache/SingletonLock",
     cache::apart, "is in use or"},
    {"ALockOfAnotherMachine", "mkdir $cache; ln -s another-machine-1 $cache/SingletonLock",
     cache::apart, "is in use or"},
    // Nothing can be made in that file system, whoever asks.
    {"ACacheThatCannotBeWritten", "ln -s /proc $cache", cache::apart, "cannot be written"},
    {"AFileInPlaceOfTheCache", "touch $cache", cache::apart, "no folder for the cache"},
    {"NoFolderForData", "export XDG_CONFIG_HOME=/proc/nowhere", cache::apart,
     "no folder for the cache"},
    {"NoFolderForLogs", "touch config/Tarnhelm", cache::shared, ""},
    {"NoHome", "unset HOME", cache::shared, ""},
    {"AHomeThatIsNotThere", "export HOME=$PWD/nowhere", cache::shared, ""},
    {"NeitherHomeNorData", "unset XDG_CONFIG_HOME; export HOME=/proc/nowhere", cache::apart,
     "no folder for the cache"},
};
INSTANTIATE_TEST_SUITE_P(All, StartFolders, testing::ValuesIn(k_folders),
                         [](const auto& one) { return std::string(one.param.name); });

// --- two hosts

// A first host that has shown a page and stays, with its process number in `first`; it writes into
// first.txt and ends when `let_go` is called.
const std::string k_first_host =
    "mkfifo stay; host/runtime_start_probe stay <stay >first.txt & first=$!\n"
    "exec 8>stay\n"
    "until grep -q 'private folders' first.txt; do kill -0 $first || exit 99; sleep 0.05; done\n"
    "let_go() { exec 8>&-; wait $first; echo \"first $?\"; cat first.txt; }\n";

TEST_F(StartTest, TwoHostsAtOnceBothShowTheirPages) {
    const program_run both = run(k_first_host +
                                 "probe >second.txt; echo \"second $?\"; let_go\n"
                                 "cat second.txt >&2; ls -d tmp/TarnhelmCache-*");
    SCOPED_TRACE(both.output + both.errors);
    EXPECT_EQ(line_of(both.output, "first"), "first 0");
    EXPECT_EQ(line_of(both.output, "start"), "start 1 1 ");
    EXPECT_EQ(line_of(both.output, "private"), "private folders 0");
    EXPECT_EQ(line_of(both.output, "trace cWeb"), "");
    EXPECT_EQ(line_of(both.output, "second"), "second 0");
    EXPECT_EQ(line_of(both.errors, "start"), "start 1 1 ");
    EXPECT_EQ(line_of(both.errors, "painted"), "painted 1");
    EXPECT_EQ(line_of(both.errors, "private"), "private folders 1");
    const std::string said = line_of(both.errors, "trace cWeb");
    EXPECT_TRUE(holds(said, "/config/TarnhelmCache is in use")) << said;
    EXPECT_TRUE(holds(said, "/tmp/TarnhelmCache-")) << said;
    EXPECT_EQ(line_of(both.output, "tmp/"), "") << "the private folder goes with its host";
}

TEST_F(StartTest, TheProgramRendersBesideAnotherHostAndSaysSoWhenAsked) {
    const program_run both = run(k_first_host +
                                 "pennywort --frames 1 -o picture.png; echo \"second $?\"\n"
                                 "pennywort --frames 1 --verbose >verbose.txt 2>&1\n"
                                 "grep -c 'is in use.* keeps its data in' verbose.txt\n"
                                 "let_go; ls -d tmp/TarnhelmCache-*");
    EXPECT_EQ(line_of(both.output, "second"), "second 0") << both.errors;
    EXPECT_EQ(both.errors.find("in use"), std::string::npos) << both.errors;
    EXPECT_EQ(line_of(both.output, "1"), "1") << both.output;
    EXPECT_EQ(line_of(both.output, "first"), "first 0") << both.output;
    EXPECT_EQ(line_of(both.output, "tmp/"), "");
    EXPECT_TRUE(has("picture.png"));
}

TEST_F(StartTest, TheCacheOfAHostThatWasKilledIsUsedAgain) {
    const program_run next =
        run(k_first_host + "kill -9 $first; wait $first; ls -d $cache/SingletonLock; probe");
    SCOPED_TRACE(next.output + next.errors);
    EXPECT_EQ(line_of(next.output, "config/"), "config/TarnhelmCache/SingletonLock");
    EXPECT_EQ(line_of(next.output, "start"), "start 1 1 ");
    EXPECT_EQ(line_of(next.output, "painted"), "painted 1");
    EXPECT_EQ(line_of(next.output, "private"), "private folders 0");
    EXPECT_EQ(line_of(next.output, "trace cWeb"), "");
}

}  // namespace
}  // namespace pennywort::host
