// page_loads_test.cpp - the states of a main frame's loads, and which frames may be seen in them.
#include "webdisplay/page_loads.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace pennywort::webdisplay {
namespace {

constexpr load_policy k_keeps{false, true, false};
constexpr load_policy k_tells{false, false, true};

// One letter for one event, at http://a/ where it needs a URL: A asked, S asked at the start,
// s stirs, B begins, E ends, F fails, x aborted and given up, L lost, C closed, N starts over.
void play(page_loads& loads, const std::string& events) {
    const std::string url = "http://a/";
    for (const char event : events) {
        switch (event) {
            case 'A':
                loads.ask(url);
                break;
            case 'S':
                loads.ask_at_start(url);
                break;
            case 's':
                loads.stir();
                break;
            case 'B':
                loads.begin(url);
                break;
            case 'E':
                loads.end(url);
                break;
            case 'F':
                loads.fail(url, "ERR");
                break;
            case 'x':
                loads.give_up(loads.abort());
                break;
            case 'L':
                loads.lose();
                break;
            case 'C':
                loads.close();
                break;
            default:
                loads.start_over();
        }
    }
}

struct phase_case {
    const char* events;
    load_phase want;
    bool holds_picture;
    const char* lost_load;  // what comes again
};
void PrintTo(const phase_case& c, std::ostream* out) { *out << c.events; }

constexpr phase_case k_phases[] = {
    {"", load_phase::none, false, ""},
    {"A", load_phase::asked, false, ""},
    {"Ax", load_phase::none, false, ""},
    {"As", load_phase::asked, false, ""},
    {"AsB", load_phase::on_its_way, false, ""},
    {"AsBE", load_phase::loaded, false, ""},
    {"AsBEB", load_phase::on_its_way, true, ""},
    {"AsBEAx", load_phase::loaded, false, ""},
    {"AsF", load_phase::failed, true, ""},
    {"AsFE", load_phase::failed, true, ""},
    {"AsFA", load_phase::asked, true, ""},
    {"AsFAx", load_phase::failed, true, ""},
    {"AsFAsB", load_phase::on_its_way, true, ""},
    {"AsFAsBE", load_phase::loaded, true, ""},
    {"AsBEL", load_phase::lost, true, ""},
    {"AsBEAL", load_phase::lost, true, "http://a/"},
    {"AsBEAsL", load_phase::lost, true, "http://a/"},
    {"AsBEAsBL", load_phase::lost, true, ""},
    {"AsBEALA", load_phase::asked, true, ""},
    {"AsBEAxL", load_phase::lost, true, ""},
    {"SL", load_phase::lost, true, ""},
    {"SsLA", load_phase::asked, true, ""},
    {"AsBEC", load_phase::closed, false, ""},
    {"AsFN", load_phase::none, false, ""},
    {"AsBECNS", load_phase::asked, true, ""},
};

class PageLoadsTest : public testing::TestWithParam<phase_case> {};

TEST_P(PageLoadsTest, ComesToItsPhase) {
    page_loads loads(k_keeps);
    play(loads, GetParam().events);
    EXPECT_EQ(loads.phase(), GetParam().want);
    EXPECT_EQ(loads.holds_picture(), GetParam().holds_picture);
    EXPECT_EQ(loads.take_lost_load(), GetParam().lost_load);
}
INSTANTIATE_TEST_SUITE_P(All, PageLoadsTest, testing::ValuesIn(k_phases),
                         [](const auto& one) { return "Events" + std::string(one.param.events); });

struct status_case {
    int status;
    bool is_asked_for;  // that a status may fail
    load_phase want;
};
void PrintTo(const status_case& c, std::ostream* out) {
    *out << c.status << (c.is_asked_for ? "" : "ByDefault");
}

constexpr status_case k_statuses[] = {
    {0, true, load_phase::on_its_way},    {200, true, load_phase::on_its_way},
    {206, true, load_phase::on_its_way},  {399, true, load_phase::on_its_way},
    {400, true, load_phase::failed},      {404, true, load_phase::failed},
    {503, true, load_phase::failed},      {999, true, load_phase::failed},
    {404, false, load_phase::on_its_way}, {503, false, load_phase::on_its_way},
};

class PageStatusTest : public testing::TestWithParam<status_case> {};

TEST_P(PageStatusTest, FailsThePageWhereTheHostAsksForIt) {
    load_policy policy = k_keeps;
    policy.fail_on_error_status = GetParam().is_asked_for;
    page_loads loads(policy);
    play(loads, "AsBE");
    loads.ask("http://b/");
    const bool has_failed = GetParam().want == load_phase::failed;
    EXPECT_EQ(loads.begin("http://b/", GetParam().status), !has_failed);
    EXPECT_EQ(loads.phase(), GetParam().want);
    EXPECT_EQ(loads.url(), "http://b/");
    EXPECT_EQ(loads.asked_url(), "");
    EXPECT_EQ(
        loads.error(),
        has_failed ? "the server answered with status " + std::to_string(GetParam().status) : "");
    EXPECT_EQ(loads.admits(true), !has_failed) << "whether a picture of it is shown";
    loads.end("http://b/");
    EXPECT_EQ(loads.phase(), has_failed ? load_phase::failed : load_phase::loaded);
    EXPECT_FALSE(has_failed && loads.release_picture());
    // The next one is a page like any other.
    loads.ask("http://c/");
    EXPECT_TRUE(loads.begin("http://c/", 200));
    EXPECT_TRUE(loads.end("http://c/"));
    EXPECT_EQ(loads.phase(), load_phase::loaded);
}
INSTANTIATE_TEST_SUITE_P(All, PageStatusTest, testing::ValuesIn(k_statuses), [](const auto& one) {
    return "Status" + std::to_string(one.param.status) +
           (one.param.is_asked_for ? "" : "ByDefault");
});

TEST(PageLoads, WithoutASettingALostPageAndAHeldPictureAreUnknown) {
    page_loads loads;
    play(loads, "AsBEAL");
    EXPECT_EQ(loads.phase(), load_phase::asked);
    EXPECT_EQ(loads.take_lost_load(), "");
    play(loads, "F");
    EXPECT_FALSE(loads.holds_picture());
}

TEST(PageLoads, AReportingHostGetsEveryPicture) {
    page_loads loads({true, false, false});
    play(loads, "AsBEL");
    EXPECT_TRUE(loads.is_lost());
    EXPECT_FALSE(loads.holds_picture());
}

// --- what has loaded

TEST(PageLoads, WhatTheBrowserShowsInThePlaceOfAFailedPageIsToldAsLoadedUnlessTheHostMinds) {
    for (const bool tells : {false, true}) {
        page_loads loads(tells ? k_tells : load_policy{});
        loads.fail("http://bad/", "ERR");
        EXPECT_EQ(loads.end("http://bad/"), !tells);
        EXPECT_EQ(loads.phase(), load_phase::failed) << "whatever is told";
        EXPECT_TRUE(loads.end("http://other/"));
    }
}

TEST(PageLoads, APageThatComesAfterItsFailureHasLoaded) {
    page_loads loads;
    loads.fail("http://a/", "ERR");
    loads.begin("http://a/");
    EXPECT_TRUE(loads.end("http://a/"));
}

TEST(PageLoads, ThePageThatEndsWhileAnotherIsAskedForLeavesThatOneAsked) {
    page_loads loads;
    play(loads, "AsB");
    loads.ask("http://b/");
    EXPECT_TRUE(loads.end("http://a/"));
    EXPECT_EQ(loads.phase(), load_phase::asked);
    EXPECT_EQ(loads.asked_url(), "http://b/");
    loads.give_up(loads.abort());
    EXPECT_EQ(loads.phase(), load_phase::loaded);
}

// --- what the browser ignores

TEST(PageLoads, OnlyWhatTheBrowserTookNoNoticeOfIsIgnored) {
    page_loads loads(k_tells);
    const unsigned ticket = loads.ask("http://");
    EXPECT_FALSE(loads.is_ignored(ticket, true)) << "it is loading";
    EXPECT_TRUE(loads.is_ignored(ticket, false));
    EXPECT_EQ(loads.phase(), load_phase::none);
    EXPECT_FALSE(loads.is_ignored(ticket, false)) << "said once";
}

TEST(PageLoads, NothingIsSaidOfAnIgnoredUrlUnlessTheHostMinds) {
    page_loads loads;
    EXPECT_FALSE(loads.is_ignored(loads.ask("http://"), false));
    EXPECT_EQ(loads.phase(), load_phase::asked);
}

TEST(PageLoads, WhatStirredOrWasReplacedIsNotIgnored) {
    page_loads loads(k_tells);
    const unsigned first = loads.ask("http://a/");
    const unsigned second = loads.ask("http://b/");
    EXPECT_FALSE(loads.is_ignored(first, false));
    loads.stir();
    EXPECT_FALSE(loads.is_ignored(second, false));
}

TEST(PageLoads, AnAbortOfTheLoadBeforeGivesUpNothing) {
    page_loads loads;
    loads.ask("http://a/");
    const unsigned first = loads.abort();
    loads.ask("http://b/");
    loads.give_up(first);
    EXPECT_EQ(loads.asked_url(), "http://b/");
}

// --- frames

struct frame_case {
    const char* events;
    bool admits_painted;
    bool admits_blank;
};
void PrintTo(const frame_case& c, std::ostream* out) { *out << c.events; }

constexpr frame_case k_frames[] = {
    {"", true, true},
    {"AsBE", true, true},
    {"AsBEA", true, true},
    // One page after another.
    {"AsBEAsB", true, false},
    {"AsBEAsBE", true, false},
    {"AsBEAsBEA", true, false},
    {"AsF", false, false},
    {"AsFA", false, false},
    // One after another that failed: what comes may show that.
    {"AsFAsB", false, false},
    {"AsFAsBE", false, false},
    {"AsBEL", false, false},
    {"AsBELA", false, false},
    {"AsBELAB", true, false},
    {"AsFAsBEA", false, false},
    // The empty page of a new browser, before one is asked for and after that.
    {"AsBECN", false, false},
    {"AsBECNBE", false, false},
    {"AsBECNBEA", false, false},
    {"AsBECNSB", true, false},
    {"AsBECNBEAsB", true, false},
    {"N", true, true},
};

class PageFramesTest : public testing::TestWithParam<frame_case> {};

TEST_P(PageFramesTest, AreAdmittedOrNot) {
    for (const bool has_painted : {true, false}) {
        page_loads loads(k_keeps);
        play(loads, GetParam().events);
        EXPECT_EQ(loads.admits(has_painted),
                  has_painted ? GetParam().admits_painted : GetParam().admits_blank);
    }
}
INSTANTIATE_TEST_SUITE_P(All, PageFramesTest, testing::ValuesIn(k_frames),
                         [](const auto& one) { return "Events" + std::string(one.param.events); });

// The first may be of the page before.
TEST(PageLoads, AfterSomePaintedFramesEveryFrameIsAdmitted) {
    page_loads loads(k_keeps);
    play(loads, "AsBEAsB");
    for (int i = 0; i < 9; ++i) EXPECT_TRUE(loads.admits(true));
    EXPECT_FALSE(loads.admits(false));
    EXPECT_TRUE(loads.admits(true));
    EXPECT_TRUE(loads.admits(false));
    play(loads, "AsB");
    EXPECT_TRUE(loads.admits(true));
    EXPECT_FALSE(loads.admits(false)) << "of the next page the first ones count again";
}

// Of the page that its server sent with an error status there is as much to see as of any other.
TEST(PageLoads, NoFrameOfAFailedPageIsAdmittedWhenAnotherHasBegun) {
    for (const char* events : {"AsFAsB", "AsBEAsFAsBE", "AsFAsBAsB"}) {
        page_loads loads(k_keeps);
        play(loads, events);
        EXPECT_TRUE(loads.doubts_picture());
        for (int i = 0; i < 9; ++i) EXPECT_FALSE(loads.admits(true)) << events;
        EXPECT_TRUE(loads.admits(true)) << events;
        EXPECT_TRUE(loads.admits(false)) << events;
        EXPECT_FALSE(loads.doubts_picture());
        play(loads, "AsB");
        EXPECT_TRUE(loads.admits(true)) << "the page before that one has not failed";
    }
}

TEST(PageLoads, AHostThatGetsEveryPictureDoubtsNone) {
    page_loads loads;
    play(loads, "AsFAsB");
    EXPECT_FALSE(loads.doubts_picture());
}

// Whether the one before has failed, or the page behind it has not been seen yet.
TEST(PageLoads, TheFirstPageOfANewBrowserIsNotDoubted) {
    for (const char* events : {"AsFCNSB", "AsFAsBCNSB", "AsFNSB", "AsFAsBNSB"}) {
        page_loads loads(k_keeps);
        play(loads, events);
        EXPECT_FALSE(loads.doubts_picture()) << events;
        EXPECT_TRUE(loads.admits(true)) << events;
    }
}

TEST(PageLoads, FramesOfTheEmptyPageAreNotCountedAsThoseOfTheFirst) {
    page_loads loads(k_keeps);
    play(loads, "AsBECN");
    for (int i = 0; i < 9; ++i) EXPECT_FALSE(loads.admits(true));
    play(loads, "SB");
    EXPECT_TRUE(loads.admits(true));
    EXPECT_FALSE(loads.admits(false));
}

TEST(PageLoads, WhatWasHeldBackOfThePageBeforeIsNotReleasedByTheNext) {
    page_loads loads(k_keeps);
    play(loads, "AsBEAsB");
    EXPECT_FALSE(loads.admits(false));
    play(loads, "AsB");
    EXPECT_FALSE(loads.release_picture());
}

TEST(PageLoads, APageBehindAFailedOneIsShownWhenItSaysThatItHasPainted) {
    page_loads loads(k_keeps);
    play(loads, "AsFAsB");
    EXPECT_FALSE(loads.admits(true));
    EXPECT_TRUE(loads.release_picture()) << "it may have come to rest";
    EXPECT_FALSE(loads.doubts_picture());
    EXPECT_TRUE(loads.admits(true));
}

TEST(PageLoads, APageThatSaysItHasPaintedIsShownAndAFailedOneIsNot) {
    page_loads loads(k_keeps);
    play(loads, "AsF");
    EXPECT_FALSE(loads.admits(true));
    EXPECT_FALSE(loads.release_picture());
    play(loads, "AsBE");
    EXPECT_FALSE(loads.admits(false));
    EXPECT_TRUE(loads.release_picture());
    EXPECT_FALSE(loads.release_picture()) << "it holds nothing any more";
    EXPECT_TRUE(loads.admits(false));
}

// Painting it once more would be a frame too many for a host that counts them.
TEST(PageLoads, APageOfWhichNothingWasHeldBackIsNotPaintedAgain) {
    page_loads loads(k_keeps);
    play(loads, "AsBEAsBE");
    EXPECT_FALSE(loads.admits(false));
    EXPECT_TRUE(loads.admits(true));
    EXPECT_FALSE(loads.release_picture());
    EXPECT_FALSE(loads.holds_picture()) << "it has said so";
}

}  // namespace
}  // namespace pennywort::webdisplay
