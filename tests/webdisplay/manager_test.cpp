// manager_test.cpp - how the runtime is driven and ended: pacing, the host's gate, shut-down.
#include <atomic>
#include <thread>

#include "loam/message_loop.h"
#include "loam/trace.h"
#include "tests/webdisplay/fake_runtime_test.h"
#include "tests/webdisplay/test_process.h"

namespace {

using ManagerTest = FakeRuntimeTest;
using strings = std::vector<std::string>;
using manager = cWebDisplayCEFBrowserManager;

// Runs the loop through some twenty steps of its own, which a timer of 15 ms has many ticks in.
void loop_a_while() {
    for (int i = 0; i < 20; ++i) zMessageLoop::RunOnce(20000);
}

TEST_F(ManagerTest, WithoutAStartThereIsNoManager) {
    EXPECT_FALSE(manager::IsInitialized());
    shut_down();
    manager::SetCanRunCefMessageLoopFn([] { return false; });
    EXPECT_EQ(fake().shutdowns(), 0);
}

TEST_F(ManagerTest, MakesDisplaysBeforeItIsStarted) {
    cWebDisplayBrowser* display = manager::CreateBrowser(page("http://a/", 7, 8), 25);
    ASSERT_NE(display, nullptr);
    long width = 0, height = 0;
    display->GetSize(width, height);
    EXPECT_EQ(width, 7);
    EXPECT_EQ(height, 8);
    EXPECT_EQ(display->Release(), 0);
}

TEST_F(ManagerTest, TheDefaultManagerIsTheStartedOne) {
    start();
    manager* first = &manager::Default();
    EXPECT_TRUE(manager::Startup(""));
    EXPECT_EQ(&manager::Default(), first);
}

// --- the gate

TEST_F(ManagerTest, AGateThatIsShutHoldsAllWorkOff) {
    start();
    int asked = 0;
    bool open = false;
    manager::SetCanRunCefMessageLoopFn([&] {
        ++asked;
        return open;
    });
    const long before = fake().works();
    ASSERT_TRUE(loop_until([&] { return asked >= 50; }));
    EXPECT_EQ(fake().works(), before);
    open = true;
    EXPECT_TRUE(loop_until([&] { return fake().works() > before; }));
}

TEST_F(ManagerTest, WithoutAGateTheWorkGoesOn) {
    start();
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([&] { return ++asked, false; });
    ASSERT_TRUE(loop_until([&] { return asked >= 3; }));
    const long before = fake().works();
    manager::SetCanRunCefMessageLoopFn({});
    EXPECT_TRUE(loop_until([&] { return fake().works() > before + 3; }));
    EXPECT_EQ(asked, 3);
}

TEST_F(ManagerTest, AGateSetBeforeTheStartIsDroppedUncalled) {
    auto held = std::make_shared<int>(0);
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([held, &asked] { return ++asked, false; });
    EXPECT_EQ(held.use_count(), 1);
    start();
    loop_works(3);
    EXPECT_EQ(asked, 0);
}

TEST_F(ManagerTest, AGateIsReplacedAndLostAtTheEnd) {
    start();
    auto first = std::make_shared<int>(0), second = std::make_shared<int>(0);
    manager::SetCanRunCefMessageLoopFn([first] { return true; });
    EXPECT_EQ(first.use_count(), 2);
    manager::SetCanRunCefMessageLoopFn([second] { return true; });
    EXPECT_EQ(first.use_count(), 1);
    shut_down();
    EXPECT_EQ(second.use_count(), 1);
}

TEST_F(ManagerTest, AGateMayReplaceItself) {
    start();
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([&] {
        ++asked;
        manager::SetCanRunCefMessageLoopFn({});
        return true;
    });
    loop_works(3);
    EXPECT_EQ(asked, 1);
}

TEST_F(ManagerTest, AGateThatThrowsIsShut) {
    start();
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([&]() -> bool {
        ++asked;
        throw 1;
    });
    const long before = fake().works();
    ASSERT_TRUE(loop_until([&] { return asked >= 5; }));
    EXPECT_EQ(fake().works(), before);
}

TEST_F(ManagerTest, ADisplayWaitsWhileTheGateIsShutAndThenComes) {
    start();
    bool open = false;
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([&] { return ++asked, open; });
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return asked >= 70; }));
    EXPECT_EQ(fake().browser_count(), 0);
    open = true;
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://a/"); }));
}

TEST_F(ManagerTest, CloseDoesNotWaitForAGate) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    manager::SetCanRunCefMessageLoopFn([] { return false; });
    s->Close();
    EXPECT_TRUE(fake().browser(1).closed);
}

// --- pacing

TEST_F(ManagerTest, TheTimerWorksThoughNobodyAsks) {
    start();
    const long before = fake().works();
    EXPECT_TRUE(loop_until([&] { return fake().works() >= before + 20; }));
}

TEST_F(ManagerTest, OnRequestItWorksWhenTheRuntimeAsksOnAnyThread) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    std::atomic<int> done{0};
    std::thread([&] {
        for (int i = 0; i < 100; ++i) fake().post([&] { ++done; });
    }).join();
    EXPECT_GE(fake().schedules(), 100);
    EXPECT_TRUE(loop_until([&] { return done == 100; }));
}

TEST_F(ManagerTest, OnRequestADelayedTaskRuns) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    script().animate = true;
    start();
    screen s(page("http://a/"), 120);
    show(s);
    s.seen.frames.clear();
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() >= 20; }));
}

TEST_F(ManagerTest, OnRequestItWorksNowAndThenThoughNobodyAsks) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    loop_a_while();
    const long before = fake().works();
    const int asked = fake().schedules();
    EXPECT_TRUE(loop_until([&] { return fake().works() >= before + 3; }));
    EXPECT_EQ(fake().schedules(), asked);
}

TEST_F(ManagerTest, OnRequestRequestsThatComeAfterTheEndAreHarmless) {
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

TEST_F(ManagerTest, OnRequestAGateHoldsTheWorkOffToo) {
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

TEST_F(ManagerTest, APacingSetAfterTheStartChangesNothing) {
    start();
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    const long before = fake().works();
    EXPECT_TRUE(loop_until([&] { return fake().works() >= before + 10; }));
}

// A host may run its loop in a callback (a dialog): the runtime's work must not be entered twice.
TEST_F(ManagerTest, ALoopInsideACallbackDoesNotEnterTheWorkAgain) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [] { loop_a_while(); };
    show(s);
    EXPECT_FALSE(s.seen.frames.empty());
    EXPECT_EQ(fake().violations(), strings{});
}

TEST_F(ManagerTest, ALoopInsideACallbackOnRequestDoesNotEnterTheWorkAgain) {
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

// --- the end

TEST_F(ManagerTest, ShutdownEndsTheRuntimeOnceAndAsksAgain) {
    start();
    shut_down();
    EXPECT_FALSE(fake().initialised());
    EXPECT_EQ(fake().shutdowns(), 2);
    EXPECT_FALSE(manager::IsInitialized());
    shut_down();
    EXPECT_EQ(fake().shutdowns(), 2);
}

TEST_F(ManagerTest, NothingWorksAfterShutdown) {
    start();
    loop_works(2);
    shut_down();
    const long before = fake().works();
    loop_a_while();
    EXPECT_EQ(fake().works(), before);
}

TEST_F(ManagerTest, AfterAFailedStartShutdownLeavesTheRuntimeAlone) {
    script().init_exit_code = 1;
    EXPECT_FALSE(manager::Startup(""));
    shut_down();
    EXPECT_EQ(fake().shutdowns(), 0);
    EXPECT_FALSE(manager::IsInitialized());
}

TEST_F(ManagerTest, WithAnArgumentTheRuntimeIsLeftRunning) {
    EXPECT_TRUE(manager::Startup("keep"));
    screen s(page("http://a/"));
    show(s);
    shut_down();
    EXPECT_EQ(fake().shutdowns(), 0);
    EXPECT_TRUE(fake().initialised());
    EXPECT_FALSE(manager::IsInitialized());
    const long before = fake().works();
    EXPECT_TRUE(loop_until([&] { return fake().works() > before + 3; })) << "the timer is active";
    s->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    s.release();
    // A later start takes the running one over, and can end it.
    EXPECT_TRUE(manager::Startup(""));
    EXPECT_TRUE(manager::IsInitialized());
    EXPECT_EQ(fake().initialisations(), 1);
}

TEST_F(ManagerTest, ShutdownClosesADisplayWhosePageIsLoading) {
    script().pages["http://a/"].never_ends = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    shut_down();
    EXPECT_TRUE(fake().browser(1).closed);
    EXPECT_FALSE(s->IsLoading());
    s->LoadUrl("http://b/");
    s->Close();
}

TEST_F(ManagerTest, ShutdownWaitsForABrowserThatIsOnItsWay) {
    script().create_after_works = 5;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    loop_works(1);
    shut_down();
    EXPECT_EQ(fake().browser_count(), 1);
    EXPECT_TRUE(fake().browser(1).closed);
}

TEST_F(ManagerTest, ShutdownWaitsForABrowserThatIsClosing) {
    script().close_after_works = 10;
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.on_frame = [&] { s.release(); };
    fake().post([] { fake().paint(1); });
    ASSERT_TRUE(loop_until([&] { return fake().browser(1).do_close_asked; }));
    shut_down();
    EXPECT_TRUE(fake().browser(1).closed);
}

TEST_F(ManagerTest, ShutdownDoesNotWaitForEverForACreationThatIsNotAnswered) {
    script().creation_never_answers = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    loop_works(2);
    shut_down();
    EXPECT_FALSE(fake().initialised());
}

TEST_F(ManagerTest, ShutdownDoesNotWaitForEverForABrowserThatDoesNotClose) {
    script().ignore_close = true;
    m_expected_violations = {"cef_shutdown was called with browser 1 open"};
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([&] { s.release(); });
    loop_works(1);
    shut_down();
    EXPECT_FALSE(fake().initialised());
}

TEST_F(ManagerTest, CloseGivesUpOnABrowserThatDoesNotClose) {
    script().ignore_close = true;
    strings traces;
    zTraceManager::Default()->SetSink([&](const char* text) { traces.emplace_back(text); });
    start();
    screen s(page("http://a/"));
    show(s);
    s->Close();
    EXPECT_FALSE(fake().browser(1).closed);
    EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
    EXPECT_FALSE(traces.empty());
    zTraceManager::Default()->SetSink({});
    // The late end of the browser finds nobody, and does no harm.
    script().ignore_close = false;
    fake().post([] { fake().close_from_page(1); });
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
}

TEST_F(ManagerTest, ShutdownInACallbackIsIgnored) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [] { cWebDisplayCEFBrowserManager::Shutdown(); };
    show(s);
    EXPECT_TRUE(fake().initialised());
    EXPECT_TRUE(manager::IsInitialized());
    EXPECT_EQ(fake().shutdowns(), 0);
}

TEST_F(ManagerTest, ADisplayMayOutliveTheRuntime) {
    start();
    screen s(page("http://a/"));
    show(s);
    shut_down();
    EXPECT_FALSE(s->Open());
    s->SetSize(5, 5);
    s->Repaint();
    s->DeleteCookies("http://a/");
    EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
}

TEST_F(ManagerTest, OpenTasksThatWaitAtTheEndGiveTheirDisplaysBack) {
    start();
    auto held = std::make_shared<int>(0);
    screen s(page("http://a/"));
    s->ExecuteJavascript("x", 0, [held](const std::string&) {});
    manager::SetCanRunCefMessageLoopFn([] { return false; });
    std::thread([&] { EXPECT_TRUE(s->Open()); }).join();
    s.release();
    shut_down();
    EXPECT_EQ(held.use_count(), 1);
}

// --- no leaks

TEST_F(ManagerTest, TwoHundredDisplaysLeaveNothingBehind) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    const auto show_one = [] {
        screen s(page("http://a/"));
        show(s);
        s->ExecuteJavascript("return 1", 0, [](const std::string&) {});
    };
    show_one();  // what the first one brings up stays
    const std::string leaks = fake().leaks(), held = fake().held();
    const int threads = test_process::threads(), descriptors = test_process::descriptors();
    for (int i = 0; i < 200; ++i) show_one();
    settle();
    EXPECT_EQ(fake().leaks(), leaks);
    EXPECT_EQ(fake().held(), held);
    EXPECT_EQ(test_process::threads(), threads);
    EXPECT_EQ(test_process::descriptors(), descriptors);
    EXPECT_EQ(fake().browser_count(), 201);
}

TEST_F(ManagerTest, FiftyDisplaysAtOnceAllShowTheirPages) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    std::vector<std::unique_ptr<screen>> screens;
    for (int i = 0; i < 50; ++i) {
        screens.push_back(std::make_unique<screen>(page("http://a/")));
        ASSERT_TRUE((*screens.back())->Open());
    }
    EXPECT_TRUE(loop_until([&] {
        for (const auto& s : screens) {
            if (!s->seen.heard("loaded http://a/") || s->seen.frames.empty()) return false;
        }
        return true;
    }));
    for (const auto& s : screens) EXPECT_EQ(s->seen.events.size(), 1u);
}

}  // namespace
