// shutdown_test.cpp - the end of the runtime: what it waits for, what it gives up on, what may come
// after.
#include <memory>
#include <thread>

#include "loam/trace.h"
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using ShutdownTest = FakeRuntimeTest;
using strings = std::vector<std::string>;
using manager = cWebDisplayCEFBrowserManager;

TEST_F(ShutdownTest, ShutdownEndsTheRuntimeOnceAndAsksAgain) {
    start();
    shut_down();
    EXPECT_FALSE(fake().initialised());
    EXPECT_EQ(fake().shutdowns(), 2);
    EXPECT_FALSE(manager::IsInitialized());
    shut_down();
    EXPECT_EQ(fake().shutdowns(), 2);
}

TEST_F(ShutdownTest, NothingWorksAfterShutdown) {
    start();
    loop_works(2);
    shut_down();
    const long before = fake().works();
    loop_a_while();
    EXPECT_EQ(fake().works(), before);
}

TEST_F(ShutdownTest, AfterAFailedStartShutdownLeavesTheRuntimeAlone) {
    script().init_exit_code = 1;
    EXPECT_FALSE(manager::Startup(""));
    shut_down();
    EXPECT_EQ(fake().shutdowns(), 0);
    EXPECT_FALSE(manager::IsInitialized());
}

TEST_F(ShutdownTest, WithAnArgumentTheRuntimeIsLeftRunning) {
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

TEST_F(ShutdownTest, ShutdownClosesADisplayWhosePageIsLoading) {
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

TEST_F(ShutdownTest, ShutdownWaitsForABrowserThatIsOnItsWay) {
    script().create_after_works = 5;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    loop_works(1);
    shut_down();
    EXPECT_EQ(fake().browser_count(), 1);
    EXPECT_TRUE(fake().browser(1).closed);
}

TEST_F(ShutdownTest, ShutdownWaitsForABrowserThatIsClosing) {
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

TEST_F(ShutdownTest, ShutdownDoesNotWaitForEverForACreationThatIsNotAnswered) {
    script().creation_never_answers = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    loop_works(2);
    shut_down();
    EXPECT_FALSE(fake().initialised());
}

TEST_F(ShutdownTest, ShutdownDoesNotWaitForEverForABrowserThatDoesNotClose) {
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

TEST_F(ShutdownTest, CloseGivesUpOnABrowserThatDoesNotClose) {
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

TEST_F(ShutdownTest, ShutdownInACallbackIsIgnored) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [] { cWebDisplayCEFBrowserManager::Shutdown(); };
    show(s);
    EXPECT_TRUE(fake().initialised());
    EXPECT_TRUE(manager::IsInitialized());
    EXPECT_EQ(fake().shutdowns(), 0);
}

TEST_F(ShutdownTest, ADisplayMayOutliveTheRuntime) {
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

TEST_F(ShutdownTest, OpenTasksThatWaitAtTheEndGiveTheirDisplaysBack) {
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

}  // namespace
