// work_gate_test.cpp - the host's gate, which holds the runtime's work off while it is shut.
#include <memory>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using WorkGateTest = FakeRuntimeTest;
using manager = cWebDisplayCEFBrowserManager;

TEST_F(WorkGateTest, AGateThatIsShutHoldsAllWorkOff) {
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

TEST_F(WorkGateTest, WithoutAGateTheWorkGoesOn) {
    start();
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([&] { return ++asked, false; });
    ASSERT_TRUE(loop_until([&] { return asked >= 3; }));
    const long before = fake().works();
    manager::SetCanRunCefMessageLoopFn({});
    EXPECT_TRUE(loop_until([&] { return fake().works() > before + 3; }));
    EXPECT_EQ(asked, 3);
}

TEST_F(WorkGateTest, AGateSetBeforeTheStartIsDroppedUncalled) {
    auto held = std::make_shared<int>(0);
    int asked = 0;
    manager::SetCanRunCefMessageLoopFn([held, &asked] { return ++asked, false; });
    EXPECT_EQ(held.use_count(), 1);
    start();
    loop_works(3);
    EXPECT_EQ(asked, 0);
}

TEST_F(WorkGateTest, AGateIsReplacedAndLostAtTheEnd) {
    start();
    auto first = std::make_shared<int>(0), second = std::make_shared<int>(0);
    manager::SetCanRunCefMessageLoopFn([first] { return true; });
    EXPECT_EQ(first.use_count(), 2);
    manager::SetCanRunCefMessageLoopFn([second] { return true; });
    EXPECT_EQ(first.use_count(), 1);
    shut_down();
    EXPECT_EQ(second.use_count(), 1);
}

TEST_F(WorkGateTest, AGateMayReplaceItself) {
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

TEST_F(WorkGateTest, AGateThatThrowsIsShut) {
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

TEST_F(WorkGateTest, ADisplayWaitsWhileTheGateIsShutAndThenComes) {
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

TEST_F(WorkGateTest, CloseDoesNotWaitForAGate) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    manager::SetCanRunCefMessageLoopFn([] { return false; });
    s->Close();
    EXPECT_TRUE(fake().browser(1).closed);
}

}  // namespace
