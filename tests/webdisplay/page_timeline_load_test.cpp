// page_timeline_load_test.cpp - the machine that moves a page's time: until a page
// stands at its time 0.
#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

TEST_F(PageTimeline, TheClockStandsOnThePagesGridBeforeAPageIsLoaded) {
    prepare();
    EXPECT_EQ(page.loads, 1);
    EXPECT_NEAR(page.clock_ms, 5002.3, 1e-9);
    EXPECT_TRUE(timeline.is_loadable());
    EXPECT_EQ(page.count_of("Page.addScriptToEvaluateOnNewDocument"), 2u);
    const auto first = std::find_if(page.calls.begin(), page.calls.end(), [](const json& call) {
        return call["params"].contains("initialVirtualTime");
    });
    ASSERT_NE(first, page.calls.end());
    EXPECT_EQ((*first)["params"]["initialVirtualTime"], 1'699'999'999.998);
}

TEST_F(PageTimeline, ABrowserThatShowsNothingIsTickedOnAndThenPreparedAllTheSame) {
    timeline.browser_arrived();
    turn();
    for (int i = 0; i < 110; ++i) pass(20ms);
    pass(5ms);
    EXPECT_EQ(page.stamps.size(), 102u) << "and two of the trial";
    EXPECT_EQ(page.loads, 1);
}

TEST_F(PageTimeline, APageThatHasLoadedStandsAtItsTimeZero) {
    stand();
    EXPECT_NEAR(page.clock_ms, 5002.3, 1e-9);
    pass(1h);
    EXPECT_NEAR(page.clock_ms, 5002.3, 1e-9);
    EXPECT_EQ(page.loads, 1);
}

TEST_F(PageTimeline, APageWithAnotherClockIsLoadedOnceMore) {
    prepare();
    page.clock_ms = 9123.4;
    load();
    EXPECT_EQ(page.stands, 0);
    EXPECT_TRUE(timeline.is_loading_again());
    pass(5ms);
    EXPECT_EQ(page.loads, 2);
    EXPECT_NEAR(page.clock_ms, 9123.5, 1e-9);
    load();
    EXPECT_EQ(page.stands, 1);
}

// On a busy machine it did, a fifth of a millisecond. The page was then taken for one in another
// process, was stopped in its load, and one with frames of its own never loaded.
TEST_F(PageTimeline, AClockThatRunsOnBeforeItStopsIsNotTakenForAnother) {
    page.stops_late_ms = 3;
    prepare();
    EXPECT_NEAR(page.clock_ms, 5005.3, 1e-9);
    const auto before = page.count_of("Emulation.setVirtualTimePolicy");
    say(k_navigated);
    ASSERT_EQ(page.count_of("Emulation.setVirtualTimePolicy"), before + 1);
    EXPECT_FALSE(page.calls.back()["params"].contains("budget"));
    load();
    EXPECT_EQ(page.stands, 1);
    EXPECT_EQ(page.loads, 1);
}

// It is stopped there as soon as it is heard of, and loads on while no time passes.
TEST_F(PageTimeline, APageInAnotherProcessIsStoppedThereAndGivenItsDay) {
    prepare();
    page.clock_ms = 9123.4;
    const auto before = static_cast<std::ptrdiff_t>(page.calls.size());
    say(k_navigated);
    std::vector<json> policies;
    std::for_each(page.calls.begin() + before, page.calls.end(), [&](const json& call) {
        if (call["method"] == "Emulation.setVirtualTimePolicy") policies.push_back(call["params"]);
    });
    ASSERT_EQ(policies.size(), 2u);
    EXPECT_EQ(policies[0]["budget"], 0.001);
    EXPECT_FALSE(policies[1].contains("budget"));
    for (const json& one : policies) {
        EXPECT_EQ(one["policy"], "pauseIfNetworkFetchesPending");
        EXPECT_EQ(one["initialVirtualTime"], 1'700'000'000.0);
    }
    load();
    EXPECT_TRUE(timeline.is_loading_again());
}

TEST_F(PageTimeline, EachMoveSaysTheDayForAProcessThatThePageMayComeTo) {
    begin();
    ask(20'000);
    const auto move = std::find_if(page.calls.rbegin(), page.calls.rend(), [](const json& call) {
        return call["params"].contains("budget");
    });
    ASSERT_NE(move, page.calls.rend());
    EXPECT_EQ((*move)["params"]["initialVirtualTime"], 1'700'000'000.02);
}

TEST_F(PageTimeline, OneWhoseClockIsAnotherEachTimeFails) {
    prepare();
    for (int i = 0; i < 5; ++i) {
        page.clock_ms += 100.3;
        load();
        pass(5ms);
    }
    EXPECT_EQ(page.loads, 3);
    EXPECT_EQ(page.stands, 0);
    EXPECT_FALSE(page.faults.empty());
}

TEST_F(PageTimeline, ATimeThatThePageWouldTakeForAnEarlierOneIsLeftFree) {
    page.goes_over_at = {{5'002'300, 95}, {5'002'400, 90}, {5'002'500, 89}};
    prepare();
    for (int i = 0; i < 2; ++i) pass(5ms);
    EXPECT_EQ(page.loads, 1);
    load();
    page.stamps.clear();
    ask(0);
    EXPECT_NEAR(page.clock_ms, 5002.5, 1e-9);
    expect_stamps_around(5'002'500);
    for (const std::int64_t stamp : page.stamps) {
        page.stamps = {stamp};
        EXPECT_NEAR(page.told_ms(), 5002.5, 1e-9) << "at " << stamp;
    }
}

TEST_F(PageTimeline, OneThatRoundsByNoRuleIsLoadedAllTheSame) {
    for (int us = 5'000'000; us < 5'010'000; us += 100) page.goes_over_at[us] = 100;
    prepare();
    for (int i = 0; i < 30; ++i) pass(5ms);
    EXPECT_EQ(page.loads, 1);
    EXPECT_NEAR(page.clock_ms, 5003.2, 1e-9);
}

// A page's own inspector begins as the browser has heard of the last one.
TEST_F(PageTimeline, APageIsAskedForWhenItsTasksAreHeardToRunAndTheyAreLetRunOnceMore) {
    timeline.browser_arrived();
    turn();
    pass(20ms);
    timeline.painted();
    const auto is_let_run = [&](const json& call) {
        return call["params"].value("policy", "") == "pauseIfNetworkFetchesPending" &&
               !call["params"].contains("budget");
    };
    const auto lets = [&] {
        return std::count_if(page.calls.begin(), page.calls.end(), is_let_run);
    };
    for (int i = 0; i < 100 && lets() == 0; ++i) {
        for (const auto& one : page.take_answers()) timeline.message_came(one);
        timeline.step(clock.now());
        clock.advance(1ms);
    }
    EXPECT_EQ(lets(), 1);
    EXPECT_EQ(page.loads, 0);
    turn();
    EXPECT_EQ(page.loads, 1);
    say(k_navigated);
    EXPECT_EQ(lets(), 2);
    load();
    EXPECT_EQ(page.stands, 1);
}

// The trial's frame is lost, and another point of the grid is tried.
TEST_F(PageTimeline, APageWithoutATurnIsTriedAgain) {
    prepare_to_try();
    page.passed_by = 1;
    pass(5ms);
    EXPECT_EQ(page.loads, 0);
    pass(200ms);
    pass(5ms);
    EXPECT_EQ(page.loads, 1);
    EXPECT_NEAR(page.clock_ms, 5002.4, 1e-9);
}

// It says another time than the frame that is tried then would.
TEST_F(PageTimeline, ATurnThatComesAfterItsTrialIsNotThatOfTheNext) {
    prepare_to_try();
    page.silent_about = "turn";
    pass(5ms);
    const int late = page.calls.back()["id"];
    pass(200ms);
    pass(5ms);
    const auto shown = page.stamps.size();
    say(json{{"id", late}, {"result", {{"result", {{"value", 5002.2}}}}}}.dump());
    EXPECT_EQ(page.stamps.size(), shown) << "the next trial waits for its own";
}

TEST_F(PageTimeline, ALostPageFailsWhatWaitsAndAnotherOneBeginsAnew) {
    stand();
    ask(0);
    ask(20'000);
    timeline.page_lost();
    turn();
    EXPECT_EQ(ends, (std::vector{k_unchanged, k_failed}));
    EXPECT_FALSE(timeline.advance(40'000, {}));
    timeline.ask_load();
    turn();
    pass(5ms);
    EXPECT_EQ(page.loads, 2);
    EXPECT_FALSE(timeline.is_loading_again());
    load();
    EXPECT_EQ(page.stands, 2);
    ends.clear();
    ask(0);
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
}

TEST_F(PageTimeline, AnotherPageIsGivenTheTimeAnew) {
    begin();
    page.holds_time = true;
    ask(20'000);
    pass(30s);
    paint();
    page.holds_time = false;
    go_to_next_page();
    ask(0);
    paint();
    page.holds_time = true;
    ask(20'000);
    pass(1s);
    EXPECT_EQ(ends.size(), 3u);
}

TEST_F(PageTimeline, ThePageThatThePageMovesOnToIsGivenTheTimeAnew) {
    begin();
    page.holds_time = true;
    ask(20'000);
    pass(30s);
    paint();
    const auto times_forced = [&] {
        return std::count_if(page.calls.begin(), page.calls.end(), [](const json& call) {
            return call["params"].value("policy", "") == "advance";
        });
    };
    EXPECT_EQ(times_forced(), 1);
    say(k_navigated);
    ask(40'000);
    pass(29s);
    EXPECT_EQ(times_forced(), 1) << "what it fetches holds it";
    pass(1s);
    EXPECT_EQ(times_forced(), 2);
}

// A host that goes on from frame to frame, and does not know yet that the page is left.
TEST_F(PageTimeline, AWishInAnswerToAFailureIsNotThatOfTheNextPage) {
    begin();
    int refused = 0;
    const auto wish_again = [&] {
        if (!timeline.advance(100'000, {})) ++refused;
        if (!timeline.ask("1", {})) ++refused;
    };
    EXPECT_TRUE(timeline.advance(20'000, [&](frame_end) { wish_again(); }));
    turn();
    EXPECT_TRUE(timeline.advance(40'000, [&](frame_end) { wish_again(); }));
    EXPECT_TRUE(timeline.ask("2", [&](const std::string&) { wish_again(); }));
    timeline.ask_load();
    turn();
    EXPECT_EQ(refused, 6);
    pass(5ms);
    load();
    EXPECT_EQ(page.stands, 2);
    const auto shown = page.stamps.size();
    pass(1s);
    EXPECT_EQ(page.stamps.size(), shown) << "nothing has been asked of this page";
}

// --- when a page counts as loaded

class TimelineOfText : public PageTimeline {
protected:
    TimelineOfText() : PageTimeline("dom") {}
};

constexpr const char* k_dom = R"({"method":"Page.domContentEventFired","params":{}})";

TEST_F(TimelineOfText, StandsWhenThePagesOwnTextIsThere) {
    prepare();
    say(k_dom);
    EXPECT_EQ(page.stands, 0) << "that of the empty page";
    say(R"({"method":"Page.frameNavigated","params":{"frame":{"id":"b","parentId":"a"}}})");
    say(k_dom);
    EXPECT_EQ(page.stands, 0) << "that of a frame in it";
    say(k_navigated);
    say(k_dom);
    EXPECT_EQ(page.stands, 1);
    load();
    EXPECT_EQ(page.stands, 1) << "the rest of it comes when it comes";
}

TEST_F(TimelineOfText, StandsAtLatestWhenAllOfThePageIs) {
    prepare();
    load();
    EXPECT_EQ(page.stands, 1);
}

TEST_F(TimelineOfText, DoesNotWaitLongForWhatThePageFetches) {
    begin();
    page.holds_time = true;
    ask(20'000);
    pass(499ms);
    EXPECT_EQ(ends.size(), 1u);
    pass(1ms);
    paint();
    EXPECT_EQ(ends.size(), 2u);
    EXPECT_EQ(expressions_with("held the time of the page for 0.5 s").size(), 1u);
}

class TimelineOfTruth : public PageTimeline {
protected:
    TimelineOfTruth() : PageTimeline("window.isReady") {}
};

TEST_F(TimelineOfTruth, StandsWhenTheExpressionIsTrue) {
    page.is_true = true;
    prepare();
    load();
    pass(1s);
    EXPECT_EQ(page.stands, 0) << "it is not asked of the page before";
    page.is_true = false;
    timeline.message_came(k_navigated);
    pass(1s);
    EXPECT_EQ(page.stands, 0);
    EXPECT_EQ(expressions_with("isReady").back(), "!!(window.isReady\n)");
    page.is_true = true;
    pass(20ms);
    EXPECT_EQ(page.stands, 1);
}

TEST_F(TimelineOfTruth, AnExpressionThatIsNoJavaScriptIsToldBeforeThePageIsAskedFor) {
    page.no_script = "SyntaxError: Unexpected token ')'";
    prepare();
    ASSERT_EQ(page.faults.size(), 1u);
    EXPECT_EQ(page.faults[0],
              "the expression of the page's start is no JavaScript: "
              "SyntaxError: Unexpected token ')'");
    EXPECT_EQ(page.loads, 0);
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
