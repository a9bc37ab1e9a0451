// page_timeline_test.cpp - the machine that moves a page's time: its frames, and the questions
// between them.
#include "webdisplay/page_timeline.h"

#include <algorithm>
#include <functional>

#include "core/limits.h"
#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

TEST_F(PageTimeline, UnseenFramesLieJustBeforeThePagesTime) {
    stand();
    page.stamps.clear();
    ask(0);
    expect_stamps_around(5'002'300);
    EXPECT_TRUE(ends.empty());
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
}

// So nothing of it is left undrawn when the first frame begins.
TEST_F(PageTimeline, ThePageRestsInTheLastUnseenFrame) {
    stand();
    const auto at = [&](const char* expression) {
        std::vector<std::ptrdiff_t> found;
        for (std::size_t i = 0; i < page.calls.size(); ++i) {
            const bool is_it = page.calls[i]["params"].value("expression", "") == expression;
            if (is_it) found.push_back(static_cast<std::ptrdiff_t>(i));
        }
        return found;
    };
    const auto before = at(page_scripts::k_turn).size();
    ask(0);
    paint();
    ask(20'000);
    paint();
    const auto turns = at(page_scripts::k_turn);
    const auto rest = at("window['thinternal rest'](true)");
    const auto no_rest = at("window['thinternal rest'](false)");
    ASSERT_EQ(turns.size() - before, 6u) << "four unseen, and two";
    ASSERT_EQ(rest.size(), 1u);
    ASSERT_EQ(no_rest.size(), 1u);
    EXPECT_LT(turns[before + 2], rest[0]);
    EXPECT_LT(rest[0], turns[before + 3]);
    EXPECT_LT(turns[before + 3], no_rest[0]);
    EXPECT_LT(no_rest[0], turns[before + 4]);
}

// The browser has taken the frame, and the page was not on its list yet.
TEST_F(PageTimeline, AFrameThatPassesThePageByIsBegunAgain) {
    stand();
    page.stamps.clear();
    page.passed_by = 2;
    ask(0);
    EXPECT_EQ(page.stamps.size(), 1u);
    pass(99ms);
    EXPECT_EQ(page.stamps.size(), 1u);
    pass(1ms);
    pass(200ms);
    EXPECT_EQ(page.stamps.size(), 7u) << "two that are lost, four unseen, the first";
    for (int i = 0; i < 6; ++i) EXPECT_EQ(page.stamps[i], (5'002'300 - 10 + i) * 1000LL) << i;
    EXPECT_EQ(page.stamps.back(), 5'002'300'000);
    paint();
    page.passed_by = 1;
    ask(20'000);
    EXPECT_EQ(ends.size(), 1u);
    pass(100ms);
    EXPECT_EQ(page.stamps.back(), 5'022'301'000);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, APageThatIsBusyWithItsTurnHasThatOneOnly) {
    begin();
    page.silent_at = "Runtime.evaluate";
    ask(20'000);
    const auto stamps = page.stamps.size();
    page.refuses = 1'000'000;
    pass(10s);
    EXPECT_EQ(page.stamps.size(), stamps);
    EXPECT_LT(1'000'000 - page.refuses, 20) << "and is not asked all the time";
    EXPECT_TRUE(page.faults.empty());
}

// Its first unseen frame is begun again and again; those behind it, and the page's time 0, still
// come later.
TEST_F(PageTimeline, TimesRiseHoweverLongThePageIsBusyBeforeItsFirstFrame) {
    stand();
    page.stamps.clear();
    page.passed_by = 1'000'000;
    ask(0);
    for (int i = 0; i < 20; ++i) pass(1s);
    page.passed_by = 0;
    page.is_in_frame = true;
    turn();
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
    EXPECT_EQ(page.stamps.back(), 5'002'300'000);
    EXPECT_EQ(std::adjacent_find(page.stamps.begin(), page.stamps.end(), std::greater_equal<>()),
              page.stamps.end());
}

TEST_F(PageTimeline, OneThatIsAlwaysPassedByFails) {
    stand();
    page.passed_by = 1'000'000;
    ask(0);
    for (int i = 0; i < 40; ++i) pass(1s);
    EXPECT_EQ(ends, std::vector{k_failed});
    EXPECT_LT(page.stamps.back(), 5'002'300'000) << "nothing of it is the page's time 0 yet";
    EXPECT_EQ(page.faults, std::vector<std::string>{
                               "the page has had no turn to draw within 30 s, though no script of "
                               "it is busy"});
}

TEST_F(PageTimeline, OneThatIsNotDrawnWithoutAStyleSheetFailsByItsName) {
    stand();
    page.passed_by = 1'000'000;
    page.blocked_by = "http://a/b.css";
    ask(0);
    for (int i = 0; i < 40; ++i) pass(1s);
    EXPECT_EQ(ends, std::vector{k_failed});
    EXPECT_EQ(page.faults, std::vector<std::string>{
                               "the page draws nothing before its style sheet is there, which has "
                               "not come within 30 s: http://a/b.css"});
}

TEST_F(PageTimeline, OneWhoseScriptIsBusyDoesNotSayWhatItWaitsFor) {
    stand();
    page.passed_by = 1'000'000;
    page.silent_about = page_scripts::k_blocked_by;
    ask(0);
    for (int i = 0; i < 40; ++i) pass(1s);
    EXPECT_EQ(ends, std::vector{k_failed});
    ASSERT_EQ(page.faults.size(), 1u);
    EXPECT_NE(page.faults[0].find("one of its scripts"), std::string::npos) << page.faults[0];
}

TEST_F(PageTimeline, ATurnThatComesWhileThePageIsAskedForWhatItWaitsIsOne) {
    begin();
    page.passed_by = 1'000'000;
    page.silent_about = page_scripts::k_blocked_by;
    ask(20'000);
    pass(30s);
    const json asked = page.calls.back();
    ASSERT_EQ(asked["params"]["expression"], page_scripts::k_blocked_by);
    const json none{{"result", {{"type", "string"}, {"value", ""}}}};
    for (const int id : page.turns) say(json{{"id", id}, {"result", json::object()}}.dump());
    say(json{{"id", asked["id"]}, {"result", none}}.dump());
    EXPECT_TRUE(page.faults.empty());
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, EachFrameIsStampedWithItsOwnMoment) {
    stand();
    page.stamps.clear();
    for (int n = 0; n < 100; ++n) {
        ask(std::llround(n * 1e6 / 59.94));
        paint();
    }
    EXPECT_EQ(ends, std::vector<frame_end>(100, k_painted));
    const std::int64_t zero = page.stamps[4];
    for (int n = 1; n < 100; ++n) {
        EXPECT_EQ(page.stamps[4 + n] - zero, std::llround(n * 1e6 / 59.94) * 1000) << n;
    }
    EXPECT_NEAR(page.clock_ms - 5002.3, std::round(99 * 1e6 / 59.94) / 1000, 1e-6);
}

TEST_F(PageTimeline, APictureBeforeThePagesTurnIsToldAfterIt) {
    stand();
    page.silent_at = "";
    EXPECT_TRUE(timeline.advance(0, [this](frame_end how) { ends.push_back(how); }));
    turn();
    // The frame is over by now; of the next one the picture comes first.
    paint();
    EXPECT_TRUE(timeline.advance(20'000, [this](frame_end how) { ends.push_back(how); }));
    timeline.step(clock.now());
    for (int i = 0; i < 3; ++i) {
        for (const auto& one : page.take_answers()) timeline.message_came(one);
        timeline.step(clock.now());
        if (page.is_in_frame) break;
    }
    ASSERT_TRUE(page.is_in_frame);
    timeline.painted();
    timeline.step(clock.now());
    EXPECT_EQ(ends.size(), 1u);
    turn();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, AFrameWithoutAPictureIsToldWhenTheNextIsTaken) {
    begin();
    ask(20'000);
    EXPECT_EQ(ends.size(), 1u);
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged}));
    paint();
    EXPECT_EQ(ends.back(), k_painted);
}

TEST_F(PageTimeline, AFrameThatIsRefusedIsBegunAgain) {
    begin();
    page.refuses = 10;
    ask(20'000);
    for (int i = 0; i < 10; ++i) pass(1ms);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, TheNextFrameIsBegunWithThePictureOfTheOneBefore) {
    stand();
    ask(0);
    page.refuses = 1;
    ask(20'000);
    const auto stamps = page.stamps.size();
    paint();
    EXPECT_EQ(page.stamps.size(), stamps + 1) << "without waiting for a tick";
}

// The browser draws a frame to its end before it takes the next, which is tried meanwhile.
TEST_F(PageTimeline, APictureMayComeWhileTheNextFrameIsRefused) {
    stand();
    ask(0);
    page.refuses = 3;
    ask(20'000);
    EXPECT_TRUE(ends.empty());
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
    for (int i = 0; i < 3; ++i) pass(1ms);
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged}));
}

TEST_F(PageTimeline, OneThatIsNeverTakenFailsAndSoDoThoseThatWait) {
    begin();
    page.refuses = 1'000'000;
    ask(20'000);
    ask(40'000);
    for (int i = 0; i < 25'000 && ends.size() < 3; ++i) pass(1ms);
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed, k_failed}));
    ASSERT_FALSE(page.faults.empty());
    EXPECT_EQ(page.faults.back(), "the browser takes no frame");
    EXPECT_FALSE(timeline.advance(60'000, {}));
}

// The browser gives no time to a page that is about to go.
class NextPage : public PageTimeline, public testing::WithParamInterface<bool> {};

TEST_P(NextPage, ThatDoesNotComeFailsByItsAddress) {
    const bool is_given_up = GetParam();
    begin();
    say(k_navigated);
    const auto tell = [&](const char* what, const char* frame, const char* url) {
        const json params{{"frameId", frame}, {"url", url}};
        say(json{{"method", what}, {"params", params}}.dump());
    };
    tell("Page.frameRequestedNavigation", "b", "http://a/of-a-frame");
    tell("Page.frameRequestedNavigation", "a", "http://a/next");
    tell("Page.frameStoppedLoading", is_given_up ? "a" : "b", "");
    page.silent_at = "Emulation.setVirtualTimePolicy";
    ask(20'000);
    pass(30s);
    pass(5s);
    const char* const fault =
        is_given_up ? "the page hangs: one of its scripts has not come to an end within 30 s"
                    : "the page moves on to another one, which does not come: http://a/next";
    EXPECT_EQ(page.faults, std::vector<std::string>{fault});
}

INSTANTIATE_TEST_SUITE_P(Given, NextPage, testing::Bool(),
                         [](const auto& one) { return one.param ? "Up" : "Time"; });

TEST_F(PageTimeline, AFetchThatNeverEndsIsLeftBehindAndTold) {
    begin();
    page.holds_time = true;
    ask(20'000);
    EXPECT_EQ(ends.size(), 1u);
    pass(29s);
    EXPECT_TRUE(expressions_with("thinternal clock: a fetch").empty());
    pass(1s);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    EXPECT_EQ(expressions_with("held the time of the page for 30 s").size(), 1u);
}

TEST_F(PageTimeline, AFetchThatIsMeantToStayOpenHoldsItOnce) {
    begin();
    page.holds_time = true;
    ask(20'000);
    pass(30s);
    paint();
    for (std::int64_t n = 2; n < 5; ++n) {
        ask(n * 20'000);
        pass(20ms);
        paint();
        EXPECT_EQ(ends.size(), static_cast<std::size_t>(n) + 1);
    }
    EXPECT_EQ(expressions_with("thinternal clock: a fetch").size(), 1u) << "told once";
    EXPECT_NEAR(page.clock_ms, 5002.3 + 80, 1e-3) << "and each frame is at its moment";
}

TEST_F(PageTimeline, APageThatNeverComesToItsFrameFails) {
    begin();
    page.silent_at = "Runtime.evaluate";
    ask(20'000);
    pass(29s);
    EXPECT_EQ(ends.size(), 1u);
    pass(2s);
    pass(2s);
    EXPECT_EQ(ends.back(), k_failed);
    EXPECT_FALSE(page.faults.empty());
}

TEST_F(PageTimeline, WhatTheFirstFrameAsksForIsWaitedForButNotForEver) {
    stand();
    page.stamps.clear();
    page.silent_about = page_scripts::k_settled;
    ask(0);
    pass(9'999ms);
    EXPECT_EQ(page.stamps.size(), 1u);
    pass(1ms);
    expect_stamps_around(5'002'300);
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
}

TEST_F(PageTimeline, MomentsMustRiseAndNotTooManyMayWait) {
    EXPECT_FALSE(timeline.advance(0, {}));
    prepare();
    EXPECT_FALSE(timeline.advance(0, {}));
    load();
    EXPECT_FALSE(timeline.advance(-1, {}));
    for (std::size_t i = 0; i < k_max_waiting_page_frames; ++i) {
        EXPECT_TRUE(timeline.advance(static_cast<std::int64_t>(i) * 10, {})) << i;
    }
    EXPECT_FALSE(timeline.advance(1000, {}));
    turn();
    EXPECT_FALSE(timeline.advance(10, {}));
}

TEST_F(PageTimeline, AValueIsAskedForBetweenTwoFramesAndNoTimePasses) {
    begin();
    ask(20'000);
    question("first");
    question("second");
    EXPECT_EQ(values, (std::vector<std::string>{"first", "second"}))
        << "although nobody knows yet whether a picture comes";
    EXPECT_EQ(ends.size(), 1u);
    const double before = page.clock_ms;
    pass(1h);
    EXPECT_EQ(page.clock_ms, before);
    ask(40'000);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged, k_painted}));
}

// In the order in which they were asked for, though nothing has begun yet.
TEST_F(PageTimeline, AQuestionWaitsForTheFramesBeforeIt) {
    stand();
    page.refuses = 1;
    EXPECT_TRUE(timeline.advance(0, {}));
    EXPECT_TRUE(timeline.advance(20'000, {}));
    question("later");
    EXPECT_TRUE(values.empty());
    pass(1ms);
    EXPECT_EQ(values, std::vector<std::string>{"later"});
}

TEST_F(PageTimeline, WhatThrowsAndWhatIsLostHasNoValue) {
    stand();
    question("throw");
    EXPECT_EQ(values, std::vector<std::string>{""});
    page.silent_at = "Runtime.evaluate";
    question("first");
    question("second");
    EXPECT_EQ(values.size(), 1u);
    timeline.page_lost();
    EXPECT_EQ(values, (std::vector<std::string>{"", "", ""}));
    EXPECT_FALSE(timeline.ask("1", {}));
}

TEST_F(PageTimeline, QuestionsThatWaitAreBounded) {
    EXPECT_FALSE(timeline.ask("1", {})) << "no page yet";
    stand();
    page.silent_at = "Runtime.evaluate";
    EXPECT_TRUE(timeline.ask("1", {}));
    turn();
    std::size_t taken = 0;
    while (timeline.ask("1", {})) ++taken;
    EXPECT_EQ(taken, k_max_waiting_page_frames);
}

TEST_F(PageTimeline, AnAnswerMayAskForTheNextFrameAndTheNextValue) {
    stand();
    EXPECT_TRUE(timeline.ask("first", [this](const std::string& value) {
        values.push_back(value);
        EXPECT_TRUE(timeline.advance(0, [this](frame_end how) { ends.push_back(how); }));
        EXPECT_TRUE(
            timeline.ask("second", [this](const std::string& next) { values.push_back(next); }));
    }));
    turn();
    EXPECT_EQ(values, (std::vector<std::string>{"first", "second"}));
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
}

TEST_F(PageTimeline, WhyAPageFailsIsToldBeforeItsFramesAre) {
    stand();
    std::size_t told = 0;
    EXPECT_TRUE(timeline.advance(0, [&](frame_end) { told = page.faults.size(); }));
    timeline.page_lost();
    EXPECT_EQ(page.faults, std::vector<std::string>{"the page is lost"});
    EXPECT_EQ(told, 1u);
}

struct moved_case {
    double ahead_ms;              // the next page's clock, of what was asked for
    std::int64_t shift_us;        // of the stamps from there on
    std::vector<double> budgets;  // of the frames from there on
    bool is_read_late = false;
};

class TimelineOfTwoPages : public PageTimeline, public testing::WithParamInterface<moved_case> {};

// In the same process its clock is ahead by a part of the move; in another it is another clock,
// which is stopped first, a microsecond later. It has two frames that nobody sees, since its first
// pictures may come late.
TEST_P(TimelineOfTwoPages, GoesOnWithTheNextOneInTheFrameUnderWay) {
    begin();
    page.stamps.clear();
    page.moves_on_ms = GetParam().ahead_ms;
    page.is_read_late = GetParam().is_read_late;
    const auto turns = expressions_with("turn").size();
    ask(20'000);
    pass(1ms);
    EXPECT_EQ(expressions_with("turn").size(), turns + 4)
        << "that of the next page, too, and in two frames that nobody sees";
    EXPECT_EQ(expressions_with("films").back(), "window['thinternal films'](20000,true)");
    paint();
    const auto calls = static_cast<std::ptrdiff_t>(page.calls.size());
    for (const int us : {40'000, 60'000}) {
        ask(us);
        paint();
    }
    EXPECT_EQ(ends, std::vector(4, k_painted));
    std::vector<std::int64_t> stamps;
    for (const int us : {20'000 - 10, 20'000 - 9, 20'000, 40'000, 60'000}) {
        stamps.push_back((5'002'300 + GetParam().shift_us + us) * 1000);
    }
    EXPECT_EQ(page.stamps, stamps);
    std::vector<double> budgets;
    std::for_each(page.calls.begin() + calls, page.calls.end(), [&](const json& call) {
        const double budget = call["params"].value("budget", 0.0);
        if (budget > 0) budgets.push_back(std::trunc(budget * 1000) / 1000);
    });
    EXPECT_EQ(budgets, GetParam().budgets);
}

INSTANTIATE_TEST_SUITE_P(Ahead, TimelineOfTwoPages,
                         testing::Values(moved_case{0, 0, {20, 20}}, moved_case{7.5, 0, {12.5, 20}},
                                         moved_case{20, 0, {20}}, moved_case{-5, 0, {25, 20}},
                                         moved_case{1234.5, 1'234'501, {20, 20}},
                                         moved_case{-1234.5, -1'234'499, {20, 20}},
                                         moved_case{0, 0, {19.9, 20}, true}));

// Else the browser would put its clock ahead by 10 ms.
TEST_F(PageTimeline, ThePageThatIsMovedOnToIsGivenTimeBesideItsFetchesOnlyAfterASecond) {
    begin();
    page.moves_on_ms = 0;
    page.is_read_late = page.next_holds_time = true;
    const auto count_of = [&](const char* policy) {
        return std::count_if(page.calls.begin(), page.calls.end(), [&](const json& call) {
            const json& params = call["params"];
            return params.value("budget", 0.0) == 0.1 && params["policy"] == policy;
        });
    };
    ask(20'000);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(count_of("advance"), 0) << i;
        pass(20ms);
    }
    EXPECT_EQ(count_of("pauseIfNetworkFetchesPending"), 50);
    EXPECT_EQ(count_of("advance"), 1);
    page.holds_time = false;
    paint();
    EXPECT_EQ(ends, std::vector(2, k_painted));
}

TEST_F(PageTimeline, AFrameOfThePageThatMovesOnIsNotThePage) {
    begin();
    const auto turns = expressions_with("turn").size();
    say(R"({"method":"Page.frameNavigated","params":{"frame":{"id":"b","parentId":"a"}}})");
    ask(20'000);
    EXPECT_EQ(expressions_with("turn").size(), turns + 1);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, ADialogIsAnsweredWithYesAndWhatItSuggests) {
    begin();
    say(R"({"method":"Page.javascriptDialogOpening","params":{"type":"alert","message":"a"}})");
    EXPECT_EQ(page.calls.back()["method"], "Page.handleJavaScriptDialog");
    EXPECT_EQ(page.calls.back()["params"], (json{{"accept", true}, {"promptText", ""}}));
    say(R"({"method":"Page.javascriptDialogOpening",
            "params":{"type":"prompt","message":"a","defaultPrompt":"Oslo"}})");
    EXPECT_EQ(page.calls.back()["params"], (json{{"accept", true}, {"promptText", "Oslo"}}));
}

// Whatever a page sends: nothing of it may end the host or be taken for an answer.
TEST_F(PageTimeline, NonsenseFromThePageIsIgnored) {
    stand();
    for (
        const char* text :
        {"", "{", "[]", "null", "7", "{\"id\":\"1\"}", "{\"id\":99999999999999999999}",
         "{\"id\":1.5,\"method\":5}", "{\"method\":{}}", "{\"method\":\"Target.attachedToTarget\"}",
         "{\"method\":\"Target.attachedToTarget\",\"params\":[]}",
         "{\"method\":\"Target.attachedToTarget\",\"params\":{\"targetInfo\":7}}",
         "{\"method\":\"Target.attachedToTarget\",\"params\":{\"targetInfo\":{\"type\":\"worker\"},"
         "\"sessionId\":{}}}",
         "{\"method\":\"Runtime.bindingCalled\",\"params\":{\"name\":[]}}",
         "{\"id\":1,\"result\":\"\xff\"}"}) {
        EXPECT_NO_THROW(timeline.message_came(text)) << text;
        turn();
    }
    ask(0);
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
