// display_queue_test.cpp - the queue of URLs of a display that is shown by the runtime.
#include <thread>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using DisplayTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

TEST_F(DisplayTest, AUrlQueuedBeforeTheBrowserIsThereIsLoadedWhenItComes) {
    script().create_after_works = 3;
    start();
    screen s(page(""));
    ASSERT_TRUE(s->Open());
    loop_works(1);
    s->LoadUrl("http://late/");
    EXPECT_TRUE(fake().browser_count() == 0);
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://late/"); }));
    EXPECT_EQ(fake().browser(1).loads, strings{"http://late/"});
}

TEST_F(DisplayTest, TheUrlThatTheBrowserStartedWithIsNotLoadedTwice) {
    script().create_after_works = 3;
    start();
    screen s(page("http://a/"));
    s->LoadNextUrl();
    ASSERT_TRUE(s->Open());
    loop_works(1);
    s->LoadNextUrl();
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://a/"); }));
    settle();
    EXPECT_EQ(fake().browser(1).loads, strings{});
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
}

TEST_F(DisplayTest, APageIsNotInterruptedByTheNextUrl) {
    script().pages["http://slow/"].never_ends = true;
    start();
    screen s(page("http://slow/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    s->LoadUrl("http://b/");
    s->LoadNextUrl();
    settle();
    EXPECT_EQ(fake().browser(1).loads, strings{});
    fake().post([] { fake().finish_load(1); });
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_TRUE(s.seen.heard("loaded http://slow/"));
}

TEST_F(DisplayTest, AnIdlePageIsReplacedAtOnce) {
    start();
    screen s(page("http://a/"));
    show(s);
    s->LoadUrl("http://b/");
    EXPECT_EQ(fake().browser(1).loads, strings{"http://b/"});
    EXPECT_TRUE(s->IsLoading());
}

TEST_F(DisplayTest, UrlsAreQueuedFromOtherThreads) {
    start();
    screen s(page("http://a/"));
    show(s);
    std::thread([&] { s->LoadUrl("http://b/"); }).join();
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_TRUE(s.seen.all_on_display_thread);
}

TEST_F(DisplayTest, QueuedPagesComeOneAfterAnother) {
    script().pages["http://b/"].error = -6;
    script().pages["http://b/"].error_text = "ERR_FILE_NOT_FOUND";
    start();
    screen s(page("http://a/"));
    for (const char* url : {"http://b/", "http://c/", "http://d/"}) s->LoadUrl(url);
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://d/"); }));
    EXPECT_EQ(fake().browser(1).start_url, "http://a/");
    EXPECT_EQ(fake().browser(1).loads, (strings{"http://b/", "http://c/", "http://d/"}));
    EXPECT_TRUE(s.seen.heard("failed http://b/: ERR_FILE_NOT_FOUND"));
    EXPECT_TRUE(s.seen.heard("loaded http://c/"));
}

TEST_F(DisplayTest, APageThatIsQueuedInTheCallbackOfTheOneBeforeFollowsIt) {
    start();
    screen s(page("http://a/"));
    s.seen.on_event = [&](const std::string& event) {
        if (event == "loaded http://a/") s->LoadUrl("http://b/");
    };
    ASSERT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

}  // namespace
