// tests/host/interrupt_test_linux.cpp - the first and the second wish to end.
#include "host/system/interrupt.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

// As the system and other processes send one: to the process, and not to the thread that runs.
void wish(int number) { ::kill(::getpid(), number); }

bool hears(const interrupt_watch& watch) {
    return tests::eventually([&watch] { return watch.status() != 0; });
}

[[noreturn]] void end_unless_killed() {
    static_cast<void>(tests::eventually([] { return false; }));
    ::_exit(1);
}

TEST(InterruptDeathTest, TheSecondOneEndsTheProgramAtOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const interrupt_watch watch;
            wish(SIGINT);
            if (hears(watch)) wish(SIGINT);
            end_unless_killed();
        },
        testing::KilledBySignal(SIGINT), "");
}

TEST(InterruptDeathTest, OneThatNobodyWatchesEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            { const interrupt_watch watch; }
            wish(SIGINT);
            end_unless_killed();
        },
        testing::KilledBySignal(SIGINT), "");
}

TEST(Interrupt, NothingIsNotedUnasked) { EXPECT_EQ(interrupt_watch().status(), 0); }

TEST(Interrupt, TheFirstOneIsNotedWithItsExitStatus) {
    {
        const interrupt_watch watch;
        wish(SIGINT);
        EXPECT_TRUE(hears(watch));
        EXPECT_EQ(watch.status(), 130);
    }
    const interrupt_watch watch;
    EXPECT_EQ(watch.status(), 0);
    wish(SIGTERM);
    EXPECT_TRUE(hears(watch));
    EXPECT_EQ(watch.status(), 143);
}

// As the browser runtime does while it starts: its handler would end the program.
TEST(Interrupt, OneIsHeardWhateverHandlerALibraryHasSet) {
    const interrupt_watch watch;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(number, [](int) { ::_exit(1); });
    }
    wish(SIGTERM);
    EXPECT_TRUE(hears(watch));
    EXPECT_EQ(watch.status(), 143);
}

// Of a thread that holds nothing back, such as one that a library had before.
TEST(Interrupt, AThreadThatLetsOneThroughHearsItForTheProgram) {
    const interrupt_watch watch;
    sigset_t none;
    sigset_t held;
    ::sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, &held);
    std::raise(SIGTERM);
    ::pthread_sigmask(SIG_SETMASK, &held, nullptr);
    EXPECT_EQ(watch.status(), 143);
}

TEST(Interrupt, TheSignalsThatAThreadHoldsBackAreAsTheyWere) {
    sigset_t before;
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
    {
        const interrupt_watch watch;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
        EXPECT_TRUE(::sigismember(&after, SIGTERM));
    }
    ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EQ(::sigismember(&after, number), ::sigismember(&before, number)) << number;
    }
}

// The system and the shell both tell of a terminal that is gone.
// Or it would end the program, whose film is whole by then.
TEST(Interrupt, OneThatComesAtTheEndOfTheWatchIsTaken) {
    for (int i = 0; i < 200; ++i) {
        const interrupt_watch watch;
        wish(SIGHUP);
        ASSERT_TRUE(hears(watch));
        wish(SIGHUP);
    }
}

TEST(Interrupt, ALostTerminalIsNotedHoweverOftenItIsTold) {
    const interrupt_watch watch;
    for (int i = 0; i < 3; ++i) {
        wish(SIGHUP);
        EXPECT_TRUE(hears(watch));
    }
    EXPECT_EQ(watch.status(), 129);
}

TEST(Interrupt, WhoWasStartedToOutliveTheTerminalDoes) {
    const auto before = std::signal(SIGHUP, SIG_IGN);
    {
        const interrupt_watch watch;
        wish(SIGHUP);
        EXPECT_EQ(watch.status(), 0);
        wish(SIGTERM);
        EXPECT_TRUE(hears(watch));
        EXPECT_EQ(watch.status(), 143);
    }
    wish(SIGHUP);
    EXPECT_EQ(std::signal(SIGHUP, before), SIG_IGN);
}

TEST(InterruptDeathTest, CtrlCEndsAProgramWhoseTerminalIsLostAtOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const interrupt_watch watch;
            wish(SIGHUP);
            if (hears(watch)) wish(SIGINT);
            end_unless_killed();
        },
        testing::KilledBySignal(SIGINT), "");
}

}  // namespace
}  // namespace pennywort::host
