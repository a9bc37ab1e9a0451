// manager_test.cpp - the manager before and after its start, and many displays at once.
#include <memory>

#include "tests/support/eventually.h"
#include "tests/webdisplay/fake_runtime_test.h"
#include "tests/webdisplay/test_process.h"

namespace {

using ManagerTest = FakeRuntimeTest;
using manager = cWebDisplayCEFBrowserManager;

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

TEST_F(ManagerTest, TwoHundredDisplaysLeaveNothingBehind) {
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    start();
    const auto show_one = [] {
        screen s(page("http://a/"));
        show(s);
        s->ExecuteJavascript("return 1", 0, [](const std::string&) {});
    };
    show_one();  // what the first one brings up stays
    settle();
    const std::string leaks = fake().leaks(), held = fake().held();
    const int threads = test_process::threads(), descriptors = test_process::descriptors();
    for (int i = 0; i < 200; ++i) show_one();
    settle();
    EXPECT_EQ(fake().leaks(), leaks);
    EXPECT_EQ(fake().held(), held);
    // A thread that has been joined may be counted a moment longer.
    EXPECT_TRUE(pennywort::tests::eventually([&] { return test_process::threads() <= threads; }));
    EXPECT_TRUE(
        pennywort::tests::eventually([&] { return test_process::descriptors() <= descriptors; }));
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
