// page_timeline_test.cpp - the machine that moves a page's time, against a page of a few lines.
#include "webdisplay/page_timeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/limits.h"
#include "tests/support/fake_clock.h"

namespace pennywort::webdisplay {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

// Answers the calls of the inspector as a page does, unless it is told to be silent, and notes
// what it was asked for.
class scripted_page final : public timeline_port {
public:
    static constexpr double k_start_ms = 5000.25;

    void send_to_inspector(const std::string& message) override {
        calls.push_back(json::parse(message));
        outbox.push_back(calls.back());
    }
    bool begin_frame(std::int64_t nanoseconds) override {
        if (refuses > 0) return --refuses, false;
        stamps.push_back(nanoseconds);
        if (passed_by > 0) return --passed_by, true;
        is_in_frame = true;
        return true;
    }
    void load_page() override { ++loads; }
    void page_stands() override { ++stands; }
    void page_fails(const std::string& why) override { faults.push_back(why); }
    void page_sounds(const page_samples& samples) override { heard.push_back(samples); }
    std::string bytes_of_file(const std::string& url) override {
        return url == "file:///a" ? file : std::string();
    }

    // What the page sends back for all that has come; empty when it has nothing to say.
    std::vector<std::string> take_answers() {
        std::vector<std::string> answers;
        for (const json& call : std::exchange(outbox, {})) answer(call, answers);
        if (std::exchange(is_in_frame, false)) {
            const json told{{"type", "number"}, {"value", told_ms()}};
            for (const int id : std::exchange(turns, {})) {
                answers.push_back(result(id, {{"result", told}}));
            }
        }
        return answers;
    }

    std::size_t count_of(const std::string& method) const {
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [&](const json& call) { return call["method"] == method; }));
    }

    std::vector<json> calls;
    std::vector<json> outbox;
    std::vector<std::int64_t> stamps;
    std::vector<int> turns;
    std::vector<std::string> faults;
    int loads = 0;
    int stands = 0;
    int refuses = 0;
    int passed_by = 0;  // frames that are taken and do not come to the page
    // Where in a step of what it tells a page goes over to the next, by that next one.
    std::map<std::int64_t, int> goes_over_at;
    double clock_ms = k_start_ms;
    bool is_in_frame = false;
    bool holds_time = false;   // as a fetch that never ends does
    bool is_true = false;      // what a page's start waits for
    std::string silent_at;     // a method that is not answered
    std::string says_at_load;  // an event that comes with the first answer
    std::vector<page_samples> heard;
    std::string sounds;  // what its driver says at each frame
    bool hangs = false;  // its driver says nothing
    std::string file;

    // What the page takes the last frame's time to be.
    double told_ms() const {
        const std::int64_t us = stamps.back() / 1000;
        const std::int64_t step = us / 100 * 100;
        const auto chosen = goes_over_at.find(step + 100);
        const std::int64_t over = chosen == goes_over_at.end() ? 50 : chosen->second;
        const bool is_over = us - step >= over && us != step;
        return static_cast<double>(is_over ? step + 100 : step) / 1000;
    }

private:
    static std::string result(int id, const json& what = json::object()) {
        return json{{"id", id}, {"result", what}}.dump();
    }

    void answer(const json& call, std::vector<std::string>& answers) {
        const std::string method = call["method"];
        if (method == silent_at) return;
        const int id = call["id"];
        const json& params = call["params"];
        if (params.value("expression", "").find("requestAnimationFrame(at") != std::string::npos) {
            return turns.push_back(id);
        }
        if (method == "Performance.getMetrics") {
            answers.push_back(
                result(id, {{"metrics", {{{"name", "Timestamp"}, {"value", clock_ms / 1000}}}}}));
            return;
        }
        if (params.value("expression", "").find("thinternal films") != std::string::npos) {
            const json value{{"result", {{"type", "string"}, {"value", sounds}}}};
            return hangs ? void() : answers.push_back(result(id, value));
        }
        if (params.contains("returnByValue")) {
            const std::string expression = params["expression"];
            if (expression.substr(0, 3) == "!!(") {
                const json truth{{"result", {{"type", "boolean"}, {"value", is_true}}}};
                return answers.push_back(result(id, truth));
            }
            const json value{{"result", {{"type", "string"}, {"value", expression}}}};
            const json thrown{{"result", {{"value", json::object()}}},
                              {"exceptionDetails", {{"text", "Uncaught"}}}};
            return answers.push_back(result(id, expression == "throw" ? thrown : value));
        }
        answers.push_back(result(id));
        if (method != "Emulation.setVirtualTimePolicy") return;
        if (params.contains("budget")) budget = params["budget"];
        const bool moves = params.contains("budget") && !holds_time;
        if (!moves && !(params["policy"] == "advance" && holds_time)) return;
        // As the browser does: in whole microseconds, what is beyond them cut off.
        clock_ms = std::round(clock_ms * 1000) / 1000 + std::trunc(budget * 1000) / 1000;
        answers.push_back(json{{"method", "Emulation.virtualTimeBudgetExpired"}}.dump());
    }

    double budget = 0;
};

class PageTimeline : public testing::Test {
protected:
    explicit PageTimeline(const char* start = "")
        : timeline(page, 1'700'000'000, page_start::of(start)) {}

    // Until nothing moves any more without time.
    void turn() {
        timeline.step(clock.now());
        for (auto answers = page.take_answers(); !answers.empty(); answers = page.take_answers()) {
            for (const auto& one : answers) timeline.message_came(one);
            timeline.step(clock.now());
        }
    }
    void pass(std::chrono::milliseconds time) {
        clock.advance(time);
        turn();
    }
    void paint() {
        timeline.painted();
        turn();
    }
    // To the empty page's first picture, a stopped clock and the wish for a page.
    void prepare() {
        timeline.browser_arrived();
        turn();
        pass(20ms);
        paint();
        pass(5ms);
    }
    void load() {
        timeline.page_loaded();
        turn();
    }
    void stand() {
        prepare();
        load();
        ASSERT_EQ(page.stands, 1);
    }
    void ask(std::int64_t microseconds) {
        EXPECT_TRUE(timeline.advance(microseconds, [this](frame_end how) { ends.push_back(how); }));
        turn();
    }
    void question(const char* expression) {
        EXPECT_TRUE(timeline.ask(expression,
                                 [this](const std::string& value) { values.push_back(value); }));
        turn();
    }
    // The stamps of a page's unseen frames and of the first one behind them.
    void expect_stamps_around(std::int64_t zero_us) {
        ASSERT_EQ(page.stamps.size(), 4u);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(page.stamps[i], (zero_us - 10 + i) * 1000) << i;
        EXPECT_EQ(page.stamps[3], zero_us * 1000);
    }
    double policy_budget() const { return page.calls.back()["params"].value("budget", 0.0); }

    tests::fake_clock clock;
    scripted_page page;
    page_timeline timeline;
    std::vector<frame_end> ends;
    std::vector<std::string> values;
};

constexpr auto k_painted = frame_end::painted;
constexpr auto k_unchanged = frame_end::unchanged;
constexpr auto k_failed = frame_end::failed;

TEST_F(PageTimeline, TheClockStandsOnThePagesGridBeforeAPageIsLoaded) {
    prepare();
    EXPECT_EQ(page.loads, 1);
    EXPECT_NEAR(page.clock_ms, 5002.3, 1e-9);
    EXPECT_TRUE(timeline.is_loadable());
    EXPECT_EQ(page.count_of("Page.addScriptToEvaluateOnNewDocument"), 1u);
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

TEST_F(PageTimeline, UnseenFramesLieJustBeforeThePagesTime) {
    stand();
    page.stamps.clear();
    ask(0);
    expect_stamps_around(5'002'300);
    EXPECT_TRUE(ends.empty());
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
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
    timeline.message_came(R"({"method":"Page.frameNavigated","params":{"frame":{"id":"a"}}})");
    EXPECT_EQ(lets(), 2);
    turn();
    load();
    EXPECT_EQ(page.stands, 1);
}

// The trial's frame is lost, and another point of the grid is tried.
TEST_F(PageTimeline, APageWithoutATurnIsTriedAgain) {
    timeline.browser_arrived();
    turn();
    pass(20ms);
    paint();
    page.passed_by = 1;
    pass(5ms);
    EXPECT_EQ(page.loads, 0);
    pass(200ms);
    pass(5ms);
    EXPECT_EQ(page.loads, 1);
    EXPECT_NEAR(page.clock_ms, 5002.4, 1e-9);
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
    EXPECT_EQ(page.stamps.size(), 6u) << "two that are lost, three unseen, the first";
    for (int i = 0; i < 5; ++i) EXPECT_EQ(page.stamps[i], (5'002'300 - 10 + i) * 1000LL) << i;
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
    stand();
    ask(0);
    paint();
    page.silent_at = "Runtime.evaluate";
    ask(20'000);
    const auto stamps = page.stamps.size();
    page.refuses = 1'000'000;
    pass(10s);
    EXPECT_EQ(page.stamps.size(), stamps);
    EXPECT_LT(1'000'000 - page.refuses, 20) << "and is not asked all the time";
    EXPECT_TRUE(page.faults.empty());
}

TEST_F(PageTimeline, OneThatIsAlwaysPassedByFails) {
    stand();
    page.passed_by = 1'000'000;
    ask(0);
    for (int i = 0; i < 40; ++i) pass(1s);
    EXPECT_EQ(ends, std::vector{k_failed});
    EXPECT_LT(page.stamps.back(), 5'002'300'000) << "nothing of it is the page's time 0 yet";
}

TEST_F(PageTimeline, EachFrameIsStampedWithItsOwnMoment) {
    stand();
    page.stamps.clear();
    for (int n = 0; n < 100; ++n) {
        ask(std::llround(n * 1e6 / 59.94));
        paint();
    }
    EXPECT_EQ(ends, std::vector<frame_end>(100, k_painted));
    const std::int64_t zero = page.stamps[3];
    for (int n = 1; n < 100; ++n) {
        EXPECT_EQ(page.stamps[3 + n] - zero, std::llround(n * 1e6 / 59.94) * 1000) << n;
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
    stand();
    ask(0);
    paint();
    ask(20'000);
    EXPECT_EQ(ends.size(), 1u);
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged}));
    paint();
    EXPECT_EQ(ends.back(), k_painted);
}

TEST_F(PageTimeline, AFrameThatIsRefusedIsBegunAgain) {
    stand();
    ask(0);
    paint();
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
    stand();
    ask(0);
    paint();
    page.refuses = 1'000'000;
    ask(20'000);
    ask(40'000);
    for (int i = 0; i < 25'000 && ends.size() < 3; ++i) pass(1ms);
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed, k_failed}));
    ASSERT_FALSE(page.faults.empty());
    EXPECT_EQ(page.faults.back(), "the browser takes no frame");
    EXPECT_FALSE(timeline.advance(60'000, {}));
}

TEST_F(PageTimeline, AFetchThatNeverEndsIsLeftBehind) {
    stand();
    ask(0);
    paint();
    page.holds_time = true;
    ask(20'000);
    EXPECT_EQ(ends.size(), 1u);
    pass(30s);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, AFetchThatIsMeantToStayOpenHoldsItOnce) {
    stand();
    ask(0);
    paint();
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
    EXPECT_NEAR(page.clock_ms, 5002.3 + 80, 1e-3) << "and each frame is at its moment";
}

TEST_F(PageTimeline, AnotherPageIsGivenTheTimeAnew) {
    stand();
    ask(0);
    paint();
    page.holds_time = true;
    ask(20'000);
    pass(30s);
    paint();
    page.holds_time = false;
    timeline.ask_load();
    turn();
    pass(5ms);
    load();
    ask(0);
    paint();
    page.holds_time = true;
    ask(20'000);
    pass(1s);
    EXPECT_EQ(ends.size(), 3u);
}

// --- when a page counts as loaded

class TimelineOfText : public PageTimeline {
protected:
    TimelineOfText() : PageTimeline("dom") {}

    void say(const char* message) {
        timeline.message_came(message);
        turn();
    }
};

constexpr const char* k_navigated =
    R"({"method":"Page.frameNavigated","params":{"frame":{"id":"a"}}})";
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
    stand();
    ask(0);
    paint();
    page.holds_time = true;
    ask(20'000);
    pass(499ms);
    EXPECT_EQ(ends.size(), 1u);
    pass(1ms);
    paint();
    EXPECT_EQ(ends.size(), 2u);
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
    EXPECT_EQ(page.calls.back()["params"]["expression"], "!!(window.isReady\n)");
    page.is_true = true;
    pass(20ms);
    EXPECT_EQ(page.stands, 1);
}

TEST_F(PageTimeline, APageThatNeverComesToItsFrameFails) {
    stand();
    ask(0);
    paint();
    page.silent_at = "Runtime.evaluate";
    ask(20'000);
    pass(29s);
    EXPECT_EQ(ends.size(), 1u);
    pass(2s);
    EXPECT_EQ(ends.back(), k_failed);
    EXPECT_FALSE(page.faults.empty());
}

TEST_F(PageTimeline, WhatTheFirstFrameAsksForIsWaitedForButNotForEver) {
    stand();
    page.silent_at = "Runtime.evaluate";
    ask(0);
    EXPECT_TRUE(ends.empty());
    // Its turn was asked for by the same method, and is taken to have come.
    page.is_in_frame = false;
    pass(31s);
    EXPECT_EQ(ends, std::vector{k_failed});
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

TEST_F(PageTimeline, WorkersAreWokenTwiceBeforeEachFrame) {
    stand();
    timeline.message_came(R"({"method":"Target.attachedToTarget","params":{"sessionId":"w1",
        "targetInfo":{"type":"worker"}}})");
    timeline.message_came(R"({"method":"Target.attachedToTarget","params":{"sessionId":"f",
        "targetInfo":{"type":"iframe"}}})");
    const auto woken = [&] {
        return std::count_if(page.calls.begin(), page.calls.end(),
                             [](const json& call) { return call.value("sessionId", "") == "w1"; });
    };
    EXPECT_EQ(woken(), 1) << "it is asked to say what it logs";
    EXPECT_EQ(page.calls.back()["method"], "Runtime.enable");
    ask(0);
    paint();
    const auto before = woken();
    ask(20'000);
    paint();
    EXPECT_EQ(woken() - before, 2);
    timeline.message_came(R"({"method":"Target.detachedFromTarget","params":{"sessionId":"w1"}})");
    const auto gone = woken();
    ask(40'000);
    paint();
    EXPECT_EQ(woken(), gone);
    EXPECT_EQ(ends.size(), 3u);
}

TEST_F(PageTimeline, FilmsArePlacedBeforeEachFrameOnceThereIsOne) {
    stand();
    timeline.message_came(
        R"({"method":"Runtime.bindingCalled","params":{"name":"thinternalFilms"}})");
    const auto placed = [&] {
        return std::count_if(page.calls.begin(), page.calls.end(), [](const json& call) {
            return call["params"].value("expression", "").find("thinternal films") !=
                   std::string::npos;
        });
    };
    ask(0);
    paint();
    const auto before = placed();
    ask(20'000);
    paint();
    EXPECT_EQ(placed() - before, 1);
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageTimeline, AFilmThatStallsFailsTheFrame) {
    stand();
    ask(0);
    paint();
    timeline.message_came(
        R"({"method":"Runtime.bindingCalled","params":{"name":"thinternalFilms"}})");
    page.silent_at = "Runtime.evaluate";
    ask(20'000);
    pass(29s);
    EXPECT_EQ(ends.size(), 1u);
    pass(1s);
    EXPECT_EQ(ends.size(), 1u) << "it is asked for once more";
    pass(30s);
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed}));
    EXPECT_EQ(page.faults, std::vector<std::string>{"a film of the page does not follow"});
}

// --- what a page by its own clock sounds like

class SoundingTimeline : public PageTimeline {
protected:
    void say(const std::string& payload) {
        const json params{{"name", "thinternalFilms"}, {"payload", payload}};
        timeline.message_came(json{{"method", "Runtime.bindingCalled"}, {"params", params}}.dump());
        turn();
    }
    std::vector<std::string> expressions_with(const std::string& part) const {
        std::vector<std::string> found;
        for (const json& call : page.calls) {
            const std::string expression = call["params"].value("expression", "");
            if (expression.find(part) != std::string::npos) found.push_back(expression);
        }
        return found;
    }
    void sound() {
        stand();
        say("");
        ask(0);
        paint();
    }
};

TEST_F(SoundingTimeline, IsToldTheMomentOfEachFrameAndSaysWhatWasHeardUntilThen) {
    sound();
    EXPECT_EQ(expressions_with("films"),
              std::vector<std::string>(4, "window['thinternal films'](0)"))
        << "of three frames that nobody sees, and the first";
    EXPECT_TRUE(page.heard.empty());
    page.sounds = "96:AACAPwAAAL8=";
    ask(16'700);
    paint();
    EXPECT_EQ(expressions_with("films").back(), "window['thinternal films'](16700)");
    ASSERT_EQ(page.heard.size(), 1u);
    EXPECT_EQ(page.heard[0].milliseconds, 2);
    EXPECT_EQ(page.heard[0].samples, (std::vector<float>{1, -0.5f}));
    page.sounds = "nonsense";
    ask(33'400);
    paint();
    EXPECT_EQ(page.heard.size(), 1u);
    EXPECT_EQ(ends.size(), 3u);
}

TEST_F(SoundingTimeline, WhatNeverComesIsLeftBehindOnceAndThenFails) {
    sound();
    page.hangs = true;
    ask(20'000);
    pass(29s);
    const auto before = expressions_with("films").size();
    pass(1s);
    EXPECT_EQ(expressions_with("films").size(), before + 1) << "asked for once more";
    EXPECT_TRUE(page.faults.empty());
    pass(30s);
    EXPECT_EQ(page.faults, std::vector<std::string>{"a film of the page does not follow"});
}

TEST_F(SoundingTimeline, IsHandedTheFileThatItPlays) {
    sound();
    page.file = "abc";
    say("file file:///a");
    say("file file:///b'\"");
    EXPECT_EQ(expressions_with("thinternal file'"),
              (std::vector<std::string>{"window['thinternal file'](\"file:///a\",3,'YWJj')",
                                        "window['thinternal file'](\"file:///b'\\\"\",0,'')"}));
}

TEST_F(SoundingTimeline, ALongFileComesInPieces) {
    sound();
    page.file = std::string((6 << 18) + 1, 'x');
    say("file file:///a");
    const auto parts = expressions_with("thinternal file'");
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(parts[0].size(), parts[1].size());
    EXPECT_EQ(parts[2], "window['thinternal file'](\"file:///a\",1572865,'eA==')");
}

TEST_F(PageTimeline, AValueIsAskedForBetweenTwoFramesAndNoTimePasses) {
    stand();
    ask(0);
    paint();
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
}  // namespace pennywort::webdisplay
