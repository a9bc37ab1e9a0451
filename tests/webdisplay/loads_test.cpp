// loads_test.cpp - how loads are reported: those that end well, those that fail, and those whose
// page goes away under them.
#include "loam/trace.h"
#include "tests/webdisplay/fake_runtime_test.h"
#include "webdisplay/page_scripts.h"

namespace {

using LoadsTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

std::string last_loaded(const screen& s) {
    zString url;
    s->GetUrlForLastPageLoaded(url);
    return std::string(url.View());
}

// --- pages that load

TEST_F(LoadsTest, APageIsReportedOnceWhenItsMainFrameHasLoaded) {
    script().pages["http://a/"].frames = {"http://frame/"};
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    EXPECT_EQ(last_loaded(s), "http://a/");
}

TEST_F(LoadsTest, ALoadThatIsReplacedReportsOnlyThePageThatStays) {
    start();
    screen s(page("http://a/"));
    script().pages["http://slow/"].never_ends = true;
    show(s);
    s.seen.events.clear();
    fake().post([] { fake().navigate(1, "http://slow/"); });
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    fake().post([] { fake().navigate(1, "http://b/"); });
    ASSERT_TRUE(loop_until([&] { return !s->IsLoading(); }));
    EXPECT_EQ(s.seen.events, strings{"loaded http://b/"});
}

// --- failures

TEST_F(LoadsTest, AnAbortedLoadIsNoFailure) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().load_error(1, true, -3, "ERR_ABORTED", "http://x/"); });
    settle();
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
}

TEST_F(LoadsTest, AFailureIsReportedWithItsUrlAndText) {
    script().pages["http://a/"].error = -105;
    script().pages["http://a/"].error_text = "ERR_NAME_NOT_RESOLVED";
    start();
    screen s(page("http://a/"));
    show(s);
    ASSERT_FALSE(s.seen.events.empty());
    EXPECT_EQ(s.seen.events[0], "failed http://a/: ERR_NAME_NOT_RESOLVED");
}

TEST_F(LoadsTest, AFailureInASubFrameIsReportedToo) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().load_error(1, false, -6, "ERR_FILE_NOT_FOUND", "file:///frame"); });
    settle();
    EXPECT_TRUE(s.seen.heard("failed file:///frame: ERR_FILE_NOT_FOUND"));
}

TEST_F(LoadsTest, ARedirectLoopEndsAsAFailure) {
    script().pages["http://a/"].redirect_to = "http://b/";
    script().pages["http://b/"].redirect_to = "http://a/";
    start();
    screen s(page("http://a/"));
    show(s);
    ASSERT_FALSE(s.seen.events.empty());
    EXPECT_NE(s.seen.events[0].find("ERR_TOO_MANY_REDIRECTS"), std::string::npos);
}

TEST_F(LoadsTest, AFailedPageIsReportedAsLoadedToo) {
    script().pages["http://bad/"].error = -105;
    start();
    screen s(page("http://good/"));
    show(s);
    s->LoadUrl("http://bad/");
    settle();
    EXPECT_EQ(s.seen.events,
              (strings{"loaded http://good/", "failed http://bad/: ", "loaded http://bad/"}));
    EXPECT_EQ(last_loaded(s), "http://bad/");
}

TEST_F(LoadsTest, AFailedPageIsNotReportedAsLoadedToAHostThatMinds) {
    script().pages["http://bad/"].error = -105;
    script().pages["http://bad/"].error_text = "ERR_NAME_NOT_RESOLVED";
    start();
    zRecord settings = page("http://good/");
    settings.SetBool("web_tell_every_load", true);
    screen s(settings);
    show(s);
    s->LoadUrl("http://bad/");
    settle();
    EXPECT_EQ(s.seen.events,
              (strings{"loaded http://good/", "failed http://bad/: ERR_NAME_NOT_RESOLVED"}));
    EXPECT_EQ(last_loaded(s), "http://good/");
}

// A host that minds every load.
class GivenUpTest : public LoadsTest {
protected:
    static zRecord minding(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_tell_every_load", true);
        settings.SetBool("web_refuse_downloads", true);
        return settings;
    }
    void SetUp() override {
        LoadsTest::SetUp();
        script().pages["http://none/"].error = -3;
    }
};

TEST_F(GivenUpTest, APageThatComesToNothingIsToldAndTheNextOneComes) {
    start();
    screen s(minding("http://a/"));
    show(s);
    s->LoadUrl("http://none/");
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    ASSERT_EQ(s.seen.events.size(), 3u);
    EXPECT_EQ(s.seen.events[1].rfind("failed http://none/: the browser has given it up", 0), 0u)
        << s.seen.events[1];
}

TEST_F(GivenUpTest, SoIsTheFirstOne) {
    start();
    screen s(minding("http://none/"));
    ASSERT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([&] { return !s.seen.events.empty(); }));
}

TEST_F(GivenUpTest, ADownloadIsCalledOneAndThePageBehindItIsNot) {
    start();
    screen s(minding("http://a/"));
    show(s);
    s.seen.on_request = [](const std::string& url) {
        if (url == "http://none/") fake().may_download(1, url);
    };
    s->LoadUrl("http://none/");
    ASSERT_TRUE(loop_until([&] { return s.seen.events.size() == 2; }));
    EXPECT_EQ(s.seen.events[1], "failed http://none/: it is a download and no page");
    s.seen.on_request = {};
    s->LoadUrl("http://none/");
    ASSERT_TRUE(loop_until([&] { return s.seen.events.size() == 3; }));
    EXPECT_EQ(s.seen.events[2].find("download"), std::string::npos) << s.seen.events[2];
}

TEST_F(GivenUpTest, APageThatLeadsElsewhereMeanwhileHasNotFailed) {
    script().pages["http://slow/"].never_ends = true;
    start();
    screen s(minding("http://a/"));
    show(s);
    s->LoadUrl("http://slow/");
    settle();
    fake().post([] { fake().navigate(1, "http://b/"); });
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", "loaded http://b/"}));
}

TEST_F(LoadsTest, APageThatFailedIsReportedAsLoadedWhenItComesAfterAll) {
    script().pages["http://bad/"].error = -105;
    start();
    screen s(page("http://bad/"));
    ASSERT_TRUE(s->Open());
    settle();
    script().pages.clear();
    s->LoadUrl("http://bad/");
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://bad/"); }));
    EXPECT_EQ(last_loaded(s), "http://bad/");
}

TEST_F(LoadsTest, AnErrorPageOfTheServersOwnIsALoadedPage) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().load_end(1, true, 404, ""); });
    settle();
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", "loaded http://a/"}));
}

// Of a host that wants no server's error page on air.
class ErrorStatusTest : public LoadsTest {
protected:
    static zRecord minding(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_fail_on_error_status", true);
        settings.SetBool("web_keep_last_picture", true);
        settings.SetBool("web_tell_every_load", true);
        return settings;
    }
    void SetUp() override {
        LoadsTest::SetUp();
        script().pages["http://gone/"].status = 404;
    }
};

// Frames of the failed one may still come, and it may take long to load, or for ever.
TEST_F(ErrorStatusTest, ThePageBehindItIsAskedToSayWhenItHasPaintedAsSoonAsItBegins) {
    start();
    screen s(minding("http://a/"));
    show(s);
    const auto watches = [&] {
        return count_of(scripts_of(1),
                        std::string(pennywort::webdisplay::page_scripts::k_paint_watch));
    };
    s->LoadUrl("http://gone/");
    ASSERT_TRUE(loop_until([&] { return s.seen.events.size() == 2; }));
    const auto before = watches();
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    settle();
    EXPECT_EQ(watches() - before, 2) << "when it begins, and when it has loaded";
}

TEST_F(ErrorStatusTest, IsAFailureAndNothingOfThePageIsShown) {
    script().animate = true;
    start();
    screen s(minding("http://a/"));
    show(s);
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    std::size_t frames_before = 0;
    s.seen.on_event = [&](const std::string&) { frames_before = s.seen.frames.size(); };
    s->LoadUrl("http://gone/");
    const std::string failed = "failed http://gone/: the server answered with status 404";
    ASSERT_TRUE(loop_until([&] { return s.seen.heard(failed); }));
    loop_a_while();
    EXPECT_EQ(s.seen.frames.size(), frames_before);
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", failed}));
    cWebDisplayPageStatus status;
    s->GetPageStatus(status);
    EXPECT_EQ(status.phase, cWebDisplayPagePhase::Failed);
    EXPECT_EQ(status.url.View(), "http://gone/");
    EXPECT_EQ(status.error.View(), "the server answered with status 404");
    EXPECT_EQ(last_loaded(s), "http://a/");
}

TEST_F(ErrorStatusTest, OfAPageThatThePageItselfMovesOnToIsAFailureToo) {
    start();
    screen s(minding("http://a/"));
    show(s);
    fake().post([] { fake().navigate(1, "http://gone/"); });
    EXPECT_TRUE(loop_until([&] { return s.seen.events.size() == 2; }));
    EXPECT_EQ(s.seen.events[1], "failed http://gone/: the server answered with status 404");
}

TEST_F(ErrorStatusTest, OfTheFirstPageGivesOnePictureOfTheBackgroundAndTheQueueGoesOn) {
    script().animate = true;
    start();
    screen s(minding("http://gone/"));
    s.seen.on_event = [&](const std::string&) { EXPECT_EQ(s.seen.frames.size(), 1u); };
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return !s.seen.events.empty(); }));
    EXPECT_EQ(s.seen.events[0], "failed http://gone/: the server answered with status 404");
    s.seen.on_event = {};
    s->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

TEST_F(LoadsTest, AFailureInASubFrameLeavesThePageALoadedOne) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] {
        fake().load_error(1, false, -6, "ERR_FILE_NOT_FOUND", "http://a/");
        fake().load_end(1, true, 0, "");
    });
    settle();
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", "failed http://a/: ERR_FILE_NOT_FOUND",
                                      "loaded http://a/"}));
}

TEST_F(LoadsTest, APageAfterAFailureWhoseEndNeverCameIsReported) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().load_error(1, true, -6, "ERR_FILE_NOT_FOUND", "http://b/"); });
    settle();
    s->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

// --- a page whose process goes

// Of a host that minds.
class LostPageTest : public FakeRuntimeTest {
protected:
    static zRecord page(const char* url) {
        zRecord settings = FakeRuntimeTest::page(url);
        settings.SetBool("web_keep_last_picture", true);
        return settings;
    }
    // A display whose page is still loading when its process ends.
    void lose_page(screen& s) {
        script().loading_outlives_renderer = true;
        script().pages["http://a/"].never_ends = true;
        start();
        ASSERT_TRUE(s->Open());
        ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
        settle();
        fake().post([] { fake().kill_renderer(1); });
        settle();
        ASSERT_TRUE(fake().browser(1).loading);
    }
    static zRecord reporting_page(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_report_lost_page", true);
        return settings;
    }
};

TEST_F(LostPageTest, IsNotLoadingWhateverTheRuntimeSays) {
    screen s(page("http://a/"));
    lose_page(s);
    EXPECT_FALSE(s->IsLoading());
}

TEST_F(LostPageTest, IsReplacedByTheNextPage) {
    screen s(page("http://a/"));
    lose_page(s);
    s->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_EQ(last_loaded(s), "http://b/");
}

TEST_F(LostPageTest, IsReplacedByOnePageOnlyAndTheOthersWaitTheirTurn) {
    screen s(page("http://a/"));
    lose_page(s);
    for (const char* url : {"http://b/", "http://c/", "http://d/"}) s->LoadUrl(url);
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://d/"); }));
    EXPECT_EQ(s.seen.events, (strings{"loaded http://b/", "loaded http://c/", "loaded http://d/"}));
}

TEST_F(LostPageTest, WithAPageWaitingBehindItWaitsForTheHost) {
    screen s(page("http://a/"));
    s->LoadUrl("http://b/");
    lose_page(s);
    EXPECT_EQ(s.seen.events, strings{});
    s->LoadNextUrl();
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

TEST_F(LostPageTest, IsToldToAHostThatAskedForIt) {
    screen s(reporting_page("http://a/"));
    lose_page(s);
    EXPECT_TRUE(
        loop_until([&] { return s.seen.heard("failed http://a/: the page's process has ended"); }));
    EXPECT_EQ(s.seen.events.size(), 1U);
}

TEST_F(LostPageTest, IsFollowedByTheOneThatWaitedIfItIsTold) {
    script().pages["http://a/"].never_ends = true;
    screen s(reporting_page("http://a/"));
    start();
    ASSERT_TRUE(s->Open());
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    settle();
    fake().post([] { fake().kill_renderer(1); });
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_EQ(s.seen.events,
              (strings{"failed http://a/: the page's process has ended", "loaded http://b/"}));
}

TEST_F(LostPageTest, IsNotToldOnceTheDisplayIsClosed) {
    screen s(reporting_page("http://a/"));
    start();
    show(s);
    fake().post([&] {
        fake().kill_renderer(1);
        s->Close();
    });
    settle();
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
}

TEST_F(LoadsTest, APageWhoseProcessEndsIsTheRuntimesAffairUnlessTheHostMinds) {
    script().loading_outlives_renderer = true;
    script().pages["http://b/"].never_ends = true;
    strings traces;
    zTraceManager::Default()->SetSink([&](const char* text) { traces.emplace_back(text); });
    start();
    screen s(page("http://a/"));
    show(s);
    s->LoadUrl("http://b/");
    settle();
    fake().post([] { fake().kill_renderer(1); });
    settle();
    zTraceManager::Default()->SetSink({});
    EXPECT_TRUE(s->IsLoading()) << "as the runtime says";
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    EXPECT_EQ(fake().browser(1).loads, strings{"http://b/"});
    EXPECT_EQ(traces, strings{});
}

// The real runtime aborts it, and tells that before the end of the process or after it.
class OnItsWayTest : public FakeRuntimeTest {
protected:
    static zRecord page(const char* url) {
        zRecord settings = FakeRuntimeTest::page(url);
        settings.SetBool("web_keep_last_picture", true);
        return settings;
    }
    // `between` comes when the host has asked for http://b/ and before it has begun.
    void ask_for_b(screen& s, const std::function<void()>& between) {
        start();
        show(s);
        fake().post([&] {
            s->LoadUrl("http://b/");
            between();
        });
        settle();
    }
    static void abort_b() { fake().load_error(1, true, -3, "ERR_ABORTED", "http://b/"); }
};

TEST_F(OnItsWayTest, APageComesThoughTheOneBeforeItIsLost) {
    screen s(page("http://a/"));
    ask_for_b(s, [] {
        fake().kill_renderer(1);
        abort_b();
    });
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", "loaded http://b/"}));
}

TEST_F(OnItsWayTest, APageComesAlsoIfItsAbortIsToldFirst) {
    screen s(page("http://a/"));
    ask_for_b(s, [] {
        abort_b();
        fake().kill_renderer(1);
    });
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

TEST_F(OnItsWayTest, APageComesBeforeThoseBehindIt) {
    screen s(page("http://a/"));
    ask_for_b(s, [&] {
        s->LoadUrl("http://c/");
        fake().kill_renderer(1);
    });
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://c/"); }));
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", "loaded http://b/", "loaded http://c/"}));
}

TEST_F(OnItsWayTest, APageThatTheHostHasReplacedSinceDoesNotComeAfterAll) {
    screen s(page("http://a/"));
    ask_for_b(s, [&] {
        fake().kill_renderer(1);
        s->LoadUrl("http://c/");
    });
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://c/"); }));
    settle();
    EXPECT_EQ(s.seen.events, (strings{"loaded http://a/", "loaded http://c/"}));
}

// A page that is about to be left gives up what its frames are still loading.
TEST_F(OnItsWayTest, AnAbortInAFrameOfTheOldPageDoesNotCount) {
    script().pages["http://b/"].never_ends = true;
    screen s(page("http://a/"));
    ask_for_b(s, [] { fake().load_error(1, false, -3, "ERR_ABORTED", "http://a/frame"); });
    fake().post([] { fake().kill_renderer(1); });
    EXPECT_TRUE(loop_until([&] { return count_of(s.seen.requests, "http://b/") == 2; }));
}

TEST_F(OnItsWayTest, APageThatWasAbortedOtherwiseIsNotAskedForAgain) {
    screen s(page("http://a/"));
    s.seen.allow_requests = true;
    start();
    show(s);
    s.seen.allow_requests = false;
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s.seen.requests.size() == 2; }));
    settle();
    s.seen.allow_requests = true;
    fake().post([] { fake().kill_renderer(1); });
    settle();
    EXPECT_EQ(s.seen.requests, (strings{"http://a/", "http://b/"}));
}

TEST_F(LoadsTest, ARendererKilledWhileItsPageLoadsLeavesTheDisplayUsable) {
    script().pages["http://a/"].never_ends = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    fake().post([] { fake().kill_renderer(1); });
    ASSERT_TRUE(loop_until([&] { return !s->IsLoading(); }));
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

}  // namespace
