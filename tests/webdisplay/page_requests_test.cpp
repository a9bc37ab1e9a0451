// page_requests_test.cpp - the requests of a page, and what its host says to them.
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using PageRequestsTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

TEST_F(PageRequestsTest, TheHostIsAskedAboutEveryRequestOfTheMainFrameOnTheDisplayThread) {
    script().pages["http://a/"].resources = {"http://a/x.css", "http://a/y.png"};
    script().pages["http://a/"].frames = {"http://frame/"};
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.requests, (strings{"http://a/", "http://a/x.css", "http://a/y.png"}));
    EXPECT_TRUE(s.seen.all_on_display_thread);
    for (const auto& request : fake().requests()) {
        EXPECT_TRUE(request.allowed) << request.url;
        EXPECT_EQ(request.answered_on_ui_thread, request.main_frame) << request.url;
    }
    EXPECT_EQ(fake().requests().size(), 4u);
}

TEST_F(PageRequestsTest, ARefusedPageIsNotLoadedAndNoFailure) {
    start();
    screen s(page("http://a/"));
    s.seen.allow_requests = false;
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return !fake().requests().empty(); }));
    settle();
    EXPECT_FALSE(fake().requests()[0].allowed);
    EXPECT_EQ(s.seen.events, strings{});
    EXPECT_FALSE(s->IsLoading());
}

TEST_F(PageRequestsTest, WithoutAReceiverEveryRequestPasses) {
    start();
    screen s(page("http://a/"));
    s->SetPageCallbackReceiver(nullptr);
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return fake().browser(1).url == "http://a/"; }));
    EXPECT_TRUE(fake().requests()[0].allowed);
}

TEST_F(PageRequestsTest, AResourceRefusedIsCancelledAlone) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.allow_requests = false;
    fake().request(1, "http://a/tracker.js", true);
    fake().request(1, "http://frame/x.js", false);
    ASSERT_TRUE(loop_until([] { return fake().requests().size() == 3; }));
    settle();
    for (const auto& request : fake().requests()) {
        EXPECT_EQ(request.allowed, request.url != "http://a/tracker.js") << request.url;
    }
}

TEST_F(PageRequestsTest, RequestsThatWaitWhenTheDisplayGoesAreAnswered) {
    start();
    screen s(page("http://a/"));
    show(s);
    for (int i = 0; i < 20; ++i) fake().request(1, "http://a/late", true);
    fake().settle_io();
    s.release();
    settle();
    EXPECT_EQ(fake().requests().size(), 21u);
}

TEST_F(PageRequestsTest, RequestsThatWaitAtShutdownAreDropped) {
    start();
    screen s(page("http://a/"));
    show(s);
    for (int i = 0; i < 20; ++i) fake().request(1, "http://a/late", true);
    fake().settle_io();
    shut_down();
    s.release();
}

}  // namespace
