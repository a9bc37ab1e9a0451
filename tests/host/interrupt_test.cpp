// tests/host/interrupt_test.cpp - the first and the second wish to end.
#include "host/system/interrupt.h"

#include <gtest/gtest.h>

#include <csignal>

namespace pennywort::host {
namespace {

TEST(InterruptDeathTest, TheSecondOneEndsTheProgramAtOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const interrupt_watch watch;
            std::raise(SIGINT);
            std::raise(SIGINT);
        },
        testing::KilledBySignal(SIGINT), "");
}

TEST(InterruptDeathTest, OneThatNobodyWatchesEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            { const interrupt_watch watch; }
            std::raise(SIGINT);
        },
        testing::KilledBySignal(SIGINT), "");
}

TEST(Interrupt, NothingIsNotedUnasked) { EXPECT_EQ(interrupt_watch().status(), 0); }

TEST(Interrupt, TheFirstOneIsNotedWithItsExitStatus) {
    {
        const interrupt_watch watch;
        std::raise(SIGINT);
        EXPECT_EQ(watch.status(), 130);
    }
    const interrupt_watch watch;
    EXPECT_EQ(watch.status(), 0);
    std::raise(SIGTERM);
    EXPECT_EQ(watch.status(), 143);
}

// The system and the shell both tell of a terminal that is gone.
TEST(Interrupt, ALostTerminalIsNotedHoweverOftenItIsTold) {
    const interrupt_watch watch;
    for (int i = 0; i < 3; ++i) std::raise(SIGHUP);
    EXPECT_EQ(watch.status(), 129);
}

TEST(Interrupt, WhoWasStartedToOutliveTheTerminalDoes) {
    const auto before = std::signal(SIGHUP, SIG_IGN);
    {
        const interrupt_watch watch;
        std::raise(SIGHUP);
        EXPECT_EQ(watch.status(), 0);
        std::raise(SIGTERM);
        EXPECT_EQ(watch.status(), 143);
    }
    std::raise(SIGHUP);
    EXPECT_EQ(std::signal(SIGHUP, before), SIG_IGN);
}

TEST(InterruptDeathTest, CtrlCEndsAProgramWhoseTerminalIsLostAtOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const interrupt_watch watch;
            std::raise(SIGHUP);
            std::raise(SIGINT);
        },
        testing::KilledBySignal(SIGINT), "");
}

}  // namespace
}  // namespace pennywort::host
