// display_faults_test.cpp - closings that meet, openings that fail, URLs that are ignored, requests
// that nobody asks about: what used to wait for ten seconds, or for ever.
#include <atomic>
#include <thread>

#include "loam/message_loop.h"
#include "loam/trace.h"
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using strings = std::vector<std::string>;
using namespace std::string_literals;
using manager = cWebDisplayCEFBrowserManager;

class DisplayFaultsTest : public FakeRuntimeTest {
protected:
    void SetUp() override {
        FakeRuntimeTest::SetUp();
        zTraceManager::Default()->SetSink(
            [this](const char* text) { m_traces.emplace_back(text); });
    }
    void TearDown() override {
        FakeRuntimeTest::TearDown();
        zTraceManager::Default()->SetSink({});
    }
    // A closing that waited in vain says so.
    bool waited_in_vain() const {
        for (const std::string& text : m_traces) {
            if (text.find("in time") != std::string::npos) return true;
        }
        return false;
    }
    static cWebDisplayPageStatus status_of(const screen& s) {
        cWebDisplayPageStatus status;
        s->GetPageStatus(status);
        return status;
    }
    static zRecord keeping_page(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_keep_last_picture", true);
        return settings;
    }

    static zRecord telling_page(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_tell_every_load", true);
        return settings;
    }

    strings m_traces;
};

// --- closings that meet

TEST_F(DisplayFaultsTest, ManyThreadsCloseAtOnceAndAllSeeTheEnd) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    constexpr int k_threads = 4;
    std::atomic<int> closing{k_threads};
    std::vector<std::thread> hosts;
    for (int i = 0; i < k_threads; ++i) {
        hosts.emplace_back([&] {
            s->Close();
            --closing;
        });
    }
    EXPECT_TRUE(loop_until([&] { return closing == 0; }));
    for (auto& host : hosts) host.join();
    EXPECT_EQ(fake().browser(1).closes, 1);
    EXPECT_FALSE(waited_in_vain());
}

TEST_F(DisplayFaultsTest, TheDisplayThreadClosesWhileAnotherOneDoes) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    std::thread other([&] { s->Close(); });
    s->Close();
    other.join();
    EXPECT_TRUE(fake().browser(1).closed);
    EXPECT_EQ(fake().browser(1).closes, 1);
    EXPECT_FALSE(waited_in_vain());
}

TEST_F(DisplayFaultsTest, ACallbackClosesWhatIsClosingAlready) {
    script().close_after_works = 3;
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.on_frame = [&] { s->Close(); };
    fake().post([] { fake().paint(1); });  // comes while the closing below drives the runtime
    s->Close();
    EXPECT_TRUE(fake().browser(1).closed);
    EXPECT_EQ(fake().browser(1).closes, 1);
    EXPECT_FALSE(waited_in_vain());
}

TEST_F(DisplayFaultsTest, CloseOnTheDisplayThreadAsksAtOnce) {
    start();
    screen s(page("http://a/"));
    show(s);
    const long works = fake().works();
    s->Close();
    EXPECT_TRUE(fake().browser(1).closed);
    EXPECT_EQ(fake().works(), works + 1) << "one step behind each wait";
}

TEST_F(DisplayFaultsTest, OpenAndCloseOfTwoThreadsLeaveNoClientWithoutItsDisplay) {
    script().keep_clients = true;
    start();
    constexpr int k_rounds = 100;
    std::atomic<bool> done{false};
    std::thread host([&] {
        for (int round = 0; round < k_rounds; ++round) {
            screen s(page("http://a/"));
            std::thread closer([&] { s->Close(); });
            s->Open();
            closer.join();
        }
        done = true;
    });
    EXPECT_TRUE(loop_until([&] { return done.load(); }));
    host.join();
    settle();
    // Each client is called once more; one whose owner hung in the air would not survive it.
    for (int i = 1; i <= fake().browser_count(); ++i) {
        int width = 0;
        int height = 0;
        fake().view_rect(i, width, height);
        EXPECT_EQ(width, 1);
    }
}

// --- openings

TEST_F(DisplayFaultsTest, AnOpeningThatFailedIsTriedAgainByTheNext) {
    script().fail_create_at = 1;
    start();
    screen s(page("http://a/"));
    EXPECT_TRUE(s->Open());
    settle();
    EXPECT_EQ(fake().creates(), 1);
    EXPECT_EQ(status_of(s).phase, cWebDisplayPagePhase::Closed);
    show(s);
    EXPECT_EQ(fake().creates(), 2);
    EXPECT_TRUE(s.seen.heard("loaded http://a/"));
    EXPECT_EQ(m_traces.front(),
              "cWebDisplayCEFBrowser::Open: the runtime made no browser for http://a/\n");
}

TEST_F(DisplayFaultsTest, ADisplayWhosePageHasClosedItselfOpensAgain) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().close_from_page(1); });
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_EQ(status_of(s).phase, cWebDisplayPagePhase::Closed);
    s->LoadUrl("http://b/");
    show(s);
    EXPECT_TRUE(s.seen.heard("loaded http://b/"));
}

// --- the end of the runtime

TEST_F(DisplayFaultsTest, ShutdownWithinShutdownIsRefused) {
    script().window_handle = 77;
    script().close_after_works = 5;
    start();
    screen s(page("http://a/"));
    s.engine().SetParentWindow(reinterpret_cast<HWND>(std::uintptr_t{77}));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://a/"); }));
    int calls = 0;
    zMessageLoop::Current()->Post([&] {
        ++calls;
        manager::Shutdown();
    });
    shut_down();
    EXPECT_EQ(calls, 1) << "came while the windowed browser closed";
    EXPECT_FALSE(manager::IsInitialized());
    EXPECT_EQ(fake().shutdowns(), 2);
}

TEST_F(DisplayFaultsTest, ThePredicateGoesWithAManagerThatNeverStarted) {
    script().init_exit_code = 1;
    EXPECT_FALSE(manager::Startup(""));
    auto held = std::make_shared<int>(0);
    manager::SetCanRunCefMessageLoopFn([held] { return true; });
    EXPECT_EQ(held.use_count(), 2);
    shut_down();
    EXPECT_EQ(held.use_count(), 1);
    loop_a_while();
}

// --- URLs that the browser does not take

TEST_F(DisplayFaultsTest, AUrlThatIsIgnoredLeavesTheQueueToTheHost) {
    script().pages["http://"].is_ignored = true;
    start();
    screen s(page("http://a/"));
    show(s);
    s->LoadUrl("http://");
    settle();
    s->LoadUrl("");
    settle();
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    s->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

TEST_F(DisplayFaultsTest, AUrlThatIsIgnoredFailsAndTheNextOneFollowsForAHostThatMinds) {
    script().pages["http://"].is_ignored = true;
    start();
    screen s(telling_page("http://a/"));
    for (const char* url : {"http://", "", "http://b/"}) s->LoadUrl(url);
    ASSERT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_EQ(s.seen.events,
              (strings{"loaded http://a/", "failed http://: the browser does not take this URL",
                       "loaded http://b/"}));
}

TEST_F(DisplayFaultsTest, TheFirstUrlMayBeIgnoredToo) {
    script().pages["http://"].is_ignored = true;
    start();
    screen s(telling_page("http://"));
    s->LoadUrl("http://b/");
    ASSERT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_TRUE(s.seen.heard("failed http://: the browser does not take this URL"));
}

// The host refuses it, and no page is there whose scripts could ask for the next.
TEST_F(DisplayFaultsTest, AFirstUrlThatComesToNothingIsFollowedByTheNextForAHostThatMinds) {
    script().page_answers_next_url = false;
    start();
    screen s(telling_page("http://a/"));
    s.seen.on_request = [&](const std::string& url) { s.seen.allow_requests = url != "http://a/"; };
    s->LoadUrl("http://b/");
    ASSERT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

TEST_F(DisplayFaultsTest, AFirstUrlThatComesToNothingLeavesTheQueueToTheHost) {
    script().page_answers_next_url = false;
    start();
    screen s(page("http://a/"));
    s.seen.on_request = [&](const std::string& url) { s.seen.allow_requests = url != "http://a/"; };
    s->LoadUrl("http://b/");
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return !fake().requests().empty(); }));
    settle();
    EXPECT_EQ(s.seen.events, strings{});
    s->LoadNextUrl();
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

// --- requests

TEST_F(DisplayFaultsTest, WhereNobodyIsAskedRequestsPassOnTheThreadTheyCameOn) {
    script().pages["http://a/"].resources = {"http://a/x.css"};
    start();
    screen s(page("http://a/"));
    s->SetPageCallbackReceiver(nullptr);
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return fake().requests().size() == 2; }));
    for (const auto& request : fake().requests()) {
        EXPECT_TRUE(request.allowed);
        EXPECT_FALSE(request.asynchronous) << request.url;
    }
}

TEST_F(DisplayFaultsTest, AQuestionAboutARequestWakesTheDisplayThread) {
    start();
    screen s(page("http://a/"));
    show(s);
    int ticks = 0;
    manager::SetCanRunCefMessageLoopFn([&] { return ++ticks, true; });
    fake().request(1, "http://a/x.png", true);
    fake().settle_io();
    // Without waiting for anything, so that no tick of the timer is due yet but by chance.
    for (int i = 0; i < 20 && s.seen.requests.size() < 2; ++i) zMessageLoop::RunOnce(0);
    EXPECT_EQ(s.seen.requests.size(), 2u);
    manager::SetCanRunCefMessageLoopFn({});
}

// --- the last picture

TEST_F(DisplayFaultsTest, AFailedPageIsNotPaintedWhereThePictureStays) {
    script().pages["http://bad/"].error = -105;
    start();
    screen s(keeping_page("http://a/"));
    show(s);
    const std::size_t frames = s.seen.frames.size();
    ASSERT_GT(frames, 0u);
    s->LoadUrl("http://bad/");
    ASSERT_TRUE(loop_until([&] { return status_of(s).phase == cWebDisplayPagePhase::Failed; }));
    settle();
    fake().post([] { fake().paint(1); });
    settle();
    EXPECT_EQ(s.seen.frames.size(), frames);
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return status_of(s).phase == cWebDisplayPagePhase::Loaded; }));
    settle();
    EXPECT_EQ(s.seen.frames.size(), frames) << "it may be of the one that failed";
    fake().post([] { fake().message(1, "execute", {u"thinternal-page-painted"s, u""s}); });
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() > frames; }));
    zString last;
    s->GetUrlForLastPageLoaded(last);
    EXPECT_EQ(last.View(), "http://b/");
}

TEST_F(DisplayFaultsTest, WhereTheFirstPageFailsTheBackgroundIsPaintedOnce) {
    script().pages["http://bad/"].error = -105;
    start();
    zRecord settings = keeping_page("http://bad/");
    settings.SetBool("web_host_clock", true);  // or the runtime would paint before the page came
    screen s(settings);
    show(s);
    s->NextFrame();
    settle();
    ASSERT_EQ(s.seen.frames.size(), 1u);
    EXPECT_EQ(s.seen.frames[0].number, 0xFF000000u);
    EXPECT_EQ(s.seen.frames[0].width, 64);
    EXPECT_EQ(s.seen.frames[0].height, 36);
}

TEST_F(DisplayFaultsTest, TheStatusTellsWhatIsShownAskedForAndWaiting) {
    script().pages["http://b/"].never_ends = true;
    start();
    screen s(page("http://a/"));
    EXPECT_EQ(status_of(s).phase, cWebDisplayPagePhase::None);
    EXPECT_EQ(status_of(s).waiting, 1u);
    show(s);
    s->LoadUrl("http://b/");
    settle();
    s->LoadUrl("http://c/");
    const cWebDisplayPageStatus status = status_of(s);
    EXPECT_EQ(status.phase, cWebDisplayPagePhase::Asked);
    EXPECT_EQ(status.url.View(), "http://a/");
    EXPECT_EQ(status.asked.View(), "http://b/");
    EXPECT_EQ(status.waiting, 1u);
    s->Close();
    EXPECT_EQ(status_of(s).phase, cWebDisplayPagePhase::Closed);
}

}  // namespace
