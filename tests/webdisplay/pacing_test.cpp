// pacing_test.cpp - when the runtime's work is done: by the timer, on request, and never within
// itself.
#include <atomic>
#include <thread>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using PacingTest = FakeRuntimeTest;
using strings = std::vector<std::string>;
using manager = cWebDisplayCEFBrowserManager;

TEST_F(PacingTest, TheTimerWorksThoughNobodyAsks) {
    start();
    const long before = fake().works();
    EXPECT_TRUE(loop_until([&] { return fake().works() >= before + 20; }));
}

TEST_F(PacingTest, OnRequestItWorksWhenTheRuntimeAsksOnAnyThread) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    std::atomic<int> done{0};
    std::thread([&] {
        for (int i = 0; i < 100; ++i) fake().post([&] { ++done; });
    }).join();
    EXPECT_GE(fake().schedules(), 100);
    EXPECT_TRUE(loop_until([&] { return done == 100; }));
}

TEST_F(PacingTest, OnRequestADelayedTaskRuns) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    script().animate = true;
    start();
    screen s(page("http://a/"), 120);
    show(s);
    s.seen.frames.clear();
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() >= 20; }));
}

TEST_F(PacingTest, OnRequestItWorksNowAndThenThoughNobodyAsks) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    loop_a_while();
    const long before = fake().works();
    const int asked = fake().schedules();
    EXPECT_TRUE(loop_until([&] { return fake().works() >= before + 3; }));
    EXPECT_EQ(fake().schedules(), asked);
}

TEST_F(PacingTest, OnRequestRequestsThatComeAfterTheEndAreHarmless) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    std::atomic<bool> done{false};
    std::thread poster([&] {
        while (!done) fake().post([] {});
    });
    loop_works(5);
    shut_down();
    done = true;
    poster.join();
    loop_a_while();
}

TEST_F(PacingTest, OnRequestAGateHoldsTheWorkOffToo) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    bool open = false;
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([&] { return ++asked, open; });
    bool done = false;
    fake().post([&] { done = true; });
    ASSERT_TRUE(loop_until([&] { return asked >= 5; }));
    EXPECT_FALSE(done);
    open = true;
    EXPECT_TRUE(loop_until([&] { return done; }));
}

TEST_F(PacingTest, APacingSetAfterTheStartChangesNothing) {
    start();
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    const long before = fake().works();
    EXPECT_TRUE(loop_until([&] { return fake().works() >= before + 10; }));
}

// A host may run its loop in a callback (a dialog): the runtime's work must not be entered twice.
TEST_F(PacingTest, ALoopInsideACallbackDoesNotEnterTheWorkAgain) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [] { loop_a_while(); };
    show(s);
    EXPECT_FALSE(s.seen.frames.empty());
    EXPECT_EQ(fake().violations(), strings{});
}

TEST_F(PacingTest, ALoopInsideACallbackOnRequestDoesNotEnterTheWorkAgain) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    script().animate = true;
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [&] {
        s.seen.on_frame = {};
        loop_a_while();
    };
    show(s);
    s.seen.frames.clear();
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() > 3; })) << "and the frames go on";
    EXPECT_EQ(fake().violations(), strings{});
}

}  // namespace
