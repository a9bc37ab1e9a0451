// display_close_test.cpp - closing and releasing a display in every state, from its callbacks and
// from other threads.
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "tests/support/eventually.h"
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using strings = std::vector<std::string>;

class DisplayCloseTest : public FakeRuntimeTest {
protected:
    // Runs `work` on another thread, and the loop of this one until it is done.
    static void do_elsewhere(const std::function<void()>& work) {
        std::atomic<bool> done{false};
        std::thread host([&] {
            work();
            done = true;
        });
        EXPECT_TRUE(loop_until([&] { return done.load(); }));
        host.join();
    }
    // Runs the loop until the one browser has come and gone; false if it does not.
    static bool loop_until_it_went() {
        return loop_until([] { return fake().browser_count() == 1 && fake().browser(1).closed; });
    }
};

TEST_F(DisplayCloseTest, CloseWaitsForTheRuntime) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    s->Close();
    const fake_cef_browser b = fake().browser(1);
    EXPECT_TRUE(b.closed);
    EXPECT_EQ(b.closes, 1);
    EXPECT_TRUE(b.close_forced);
    EXPECT_FALSE(s->IsLoading());
    EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
    EXPECT_EQ(fake().late_calls(), strings{});
}

// What the close has still to do must not take the new browser with it.
TEST_F(DisplayCloseTest, ADisplayThatIsOpenedAgainDuringItsCloseStaysOpen) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    std::function<void()> open_when_gone = [&] {
        if (fake().browser(1).closed) {
            s->Open();
        } else {
            fake().post(open_when_gone);
        }
    };
    fake().post(open_when_gone);
    s->Close();
    EXPECT_TRUE(loop_until([&] { return s->ExecuteJavascript("x", 0, {}) == 0; }));
}

TEST_F(DisplayCloseTest, CloseTwiceAsksOnce) {
    start();
    screen s(page("http://a/"));
    show(s);
    s->Close();
    s->Close();
    EXPECT_EQ(fake().browser(1).closes, 1);
}

TEST_F(DisplayCloseTest, ClosesFromAnotherThreadWhileTheDisplayThreadGoesOn) {
    script().close_after_works = 2;
    start();
    screen s(page("http://a/"));
    show(s);
    do_elsewhere([&] { s->Close(); });
    EXPECT_TRUE(fake().browser(1).closed);
}

TEST_F(DisplayCloseTest, TheLastReleaseClosesFromAnyThread) {
    start();
    screen s(page("http://a/"));
    show(s);
    do_elsewhere([&] { s.release(); });
    EXPECT_TRUE(fake().browser(1).closed);
}

TEST_F(DisplayCloseTest, ClosedBeforeItsBrowserArrivesItLeavesNoneBehind) {
    script().create_after_works = 4;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    loop_works(1);
    ASSERT_EQ(fake().creates(), 1);
    s->Close();
    ASSERT_TRUE(loop_until_it_went());
    EXPECT_EQ(s.seen.events, strings{});
    EXPECT_TRUE(s.seen.frames.empty());
}

TEST_F(DisplayCloseTest, ReleasedBeforeItsBrowserArrivesItLeavesNoneBehind) {
    script().create_after_works = 4;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    loop_works(1);
    s.release();
    EXPECT_TRUE(loop_until_it_went());
}

TEST_F(DisplayCloseTest, ClosedBeforeItsTurnCameItAsksForNoBrowser) {
    start();
    screen s(page("http://a/"));
    std::thread([&] { EXPECT_TRUE(s->Open()); }).join();
    s->Close();
    settle();
    EXPECT_EQ(fake().creates(), 0);
}

TEST_F(DisplayCloseTest, ReleasedBeforeItsTurnCameItIsGone) {
    start();
    auto held = std::make_shared<int>(0);
    screen s(page("http://a/"));
    s->ExecuteJavascript("x", 0, [held](const std::string&) {});
    std::thread([&] { EXPECT_TRUE(s->Open()); }).join();
    s.release();
    settle();
    EXPECT_EQ(held.use_count(), 1);
    for (int i = 1; i <= fake().browser_count(); ++i) EXPECT_TRUE(fake().browser(i).closed);
}

TEST_F(DisplayCloseTest, ClosesWhileAPageLoads) {
    script().pages["http://a/"].never_ends = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    s->Close();
    EXPECT_TRUE(fake().browser(1).closed);
    EXPECT_EQ(s.seen.events, strings{});
}

TEST_F(DisplayCloseTest, ClosesInItsOwnFrame) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [&] { s->Close(); };
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_EQ(s.seen.frames.size(), 1u);
}

TEST_F(DisplayCloseTest, ClosesInItsOwnFrameThoughTheRuntimeTakesItsTime) {
    script().close_after_works = 3;
    script().animate = true;
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [&] { s->Close(); };
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_EQ(s.seen.frames.size(), 1u) << "a closed display hears nothing more";
}

TEST_F(DisplayCloseTest, IsReleasedInItsOwnFrame) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [&] { s.release(); };
    ASSERT_TRUE(s->Open());
    EXPECT_TRUE(loop_until_it_went());
    EXPECT_EQ(s.seen.frames.size(), 1u);
}

TEST_F(DisplayCloseTest, IsReleasedInEachOfItsPageCallbacks) {
    script().pages["http://bad/"].error = -2;
    start();
    screen loaded(page("http://a/")), failed(page("http://bad/"));
    loaded.seen.on_event = [&](const std::string&) { loaded.release(); };
    failed.seen.on_event = [&](const std::string&) { failed.release(); };
    ASSERT_TRUE(loaded->Open());
    ASSERT_TRUE(failed->Open());
    EXPECT_TRUE(loop_until([] {
        return fake().browser_count() == 2 && fake().browser(1).closed && fake().browser(2).closed;
    }));
    EXPECT_EQ(loaded.seen.events.size(), 1u);
    EXPECT_EQ(failed.seen.events.size(), 1u);
}

TEST_F(DisplayCloseTest, ABrowserThatClosesByItselfLeavesTheDisplayWithoutOne) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().close_from_page(1); });
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
    EXPECT_FALSE(s->IsLoading());
    s->SetSize(10, 10);
    s->Repaint();
    s->SetVisibility(false);
    s->LoadUrl("http://b/");
    s->Close();
    EXPECT_EQ(fake().late_calls(), strings{});
}

// The runtime may hold the old client longer than the display lives.
TEST_F(DisplayCloseTest, OpenedAgainItIsNoLongerTheOwnerOfTheClientThatAClosedPageLeft) {
    script().keep_clients = true;
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().close_from_page(1); });
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    s->LoadUrl("http://b/");
    show(s);
    ASSERT_EQ(fake().browser_count(), 2);
    fake().post([] {
        fake().message_from_closed(1, "execute",
                                   {std::u16string(u"late"), std::u16string(u"call")});
    });
    settle();
    EXPECT_EQ(s.seen.commands, strings{});
}

TEST_F(DisplayCloseTest, OpensAgainAfterItWasClosed) {
    start();
    screen s(page("http://a/"));
    show(s);
    s->Close();
    s->LoadUrl("http://b/");
    show(s);
    EXPECT_TRUE(s.seen.heard("loaded http://b/"));
    EXPECT_EQ(fake().browser_count(), 2);
    EXPECT_TRUE(fake().browser(1).closed);
    s->Close();
    EXPECT_TRUE(fake().browser(2).closed);
}

TEST_F(DisplayCloseTest, OpensAndClosesFromOtherThreadsAtOnce) {
    start();
    constexpr int k_threads = 3, k_rounds = 15;
    std::atomic<int> running{k_threads};
    std::vector<std::thread> hosts;
    for (int i = 0; i < k_threads; ++i) {
        hosts.emplace_back([&] {
            for (int round = 0; round < k_rounds; ++round) {
                screen s(page("http://a/"));
                EXPECT_TRUE(s->Open());
                if (round % 2) s->Close();
            }
            --running;
        });
    }
    EXPECT_TRUE(loop_until([&] { return running == 0; }));
    for (auto& host : hosts) host.join();
    EXPECT_TRUE(loop_until([] {
        for (int i = 1; i <= fake().browser_count(); ++i) {
            if (!fake().browser(i).closed) return false;
        }
        return true;
    }));
}

TEST_F(DisplayCloseTest, AnotherThreadMayUseADisplayWhileItCloses) {
    script().close_after_works = 2;
    start();
    screen s(page("http://a/"));
    show(s);
    std::atomic<bool> done{false};
    std::thread host([&] {
        while (!done) {
            // Not faster than the runtime: what it has not done yet would pile up before the
            // closing.
            const long seen = fake().works();
            for (int i = 0; i < 50; ++i) {
                s->SetSize(50, 50);
                s->Repaint();
                s->IsLoading();
                s->ExecuteJavascript("x", 0, {});
                s->SetVisibility(true);
            }
            pennywort::tests::eventually([&] { return done || fake().works() != seen; });
        }
    });
    loop_works(2);
    s->Close();
    done = true;
    host.join();
    EXPECT_TRUE(fake().browser(1).closed);
}

}  // namespace
