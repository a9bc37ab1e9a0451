// page_timeline_media_test.cpp - the machine that moves a page's time: its workers and sounds.
#include <algorithm>

#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

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

TEST_F(PageTimeline, AWorkerThatEndsWhileItIsWokenIsNotWaitedFor) {
    begin();
    say(R"({"method":"Target.attachedToTarget","params":{"sessionId":"w1",
        "targetInfo":{"type":"worker"}}})");
    page.silent_about = "0";
    ask(20'000);
    page.silent_about.clear();
    const auto stamps = page.stamps.size();
    const int woken = page.calls.back()["id"];
    say(R"({"method":"Target.detachedFromTarget","params":{"sessionId":"w1"}})");
    EXPECT_EQ(page.stamps.size(), stamps + 1);
    say(json{{"id", woken}, {"result", json::object()}}.dump());
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

// One that has closed itself answers no more, and the page ends it as soon as it may do something.
// Where it does, the clock stands again before the worker is woken for the next time.
TEST_F(PageTimeline, APageMayEndAWorkerThatHasClosedItself) {
    begin();
    say(R"({"method":"Target.attachedToTarget","params":{"sessionId":"w1",
        "targetInfo":{"type":"worker"}}})");
    const auto policies = [&] {
        std::vector<std::string> all;
        for (const json& call : page.calls) {
            const bool is_one = call["method"] == "Emulation.setVirtualTimePolicy";
            const bool has_budget = is_one && call["params"].contains("budget");
            if (is_one) all.push_back(has_budget ? "moves" : call["params"]["policy"]);
        }
        return all;
    };
    page.silent_about = "0";
    ask(20'000);
    page.silent_about.clear();
    page.calls.clear();
    pass(249ms);
    EXPECT_TRUE(policies().empty()) << "it may be busy";
    pass(1ms);
    EXPECT_EQ(policies(), std::vector<std::string>{"pauseIfNetworkFetchesPending"});
    const auto stamps = page.stamps.size();
    say(R"({"method":"Target.detachedFromTarget","params":{"sessionId":"w1"}})");
    EXPECT_EQ(policies(), (std::vector<std::string>{"pauseIfNetworkFetchesPending", "pause"}));
    EXPECT_EQ(page.stamps.size(), stamps + 1);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    EXPECT_TRUE(expressions_with("a worker has been busy").empty());
}

// One that is busy for longer than anybody waits is told of once, and follows again when it is
// done.
TEST_F(PageTimeline, AWorkerOfThePageThatIsBusyIsLeftBehindUntilItAnswers) {
    begin();
    say(R"({"method":"Target.attachedToTarget","params":{"sessionId":"w1",
        "targetInfo":{"type":"worker"}}})");
    const auto asked = [&] {
        std::vector<int> ids;
        for (const json& call : page.calls) {
            const bool is_of_it = call.value("sessionId", "") == "w1";
            if (is_of_it && call["method"] == "Runtime.evaluate") ids.push_back(call["id"]);
        }
        return ids;
    };
    page.silent_about = "0";
    ask(20'000);
    page.silent_about.clear();
    pass(1s);
    pass(19s);
    EXPECT_EQ(ends.size(), 1u);
    pass(1s);
    paint();
    ask(40'000);
    paint();
    EXPECT_EQ(ends, std::vector(3, k_painted));
    EXPECT_TRUE(page.faults.empty());
    ASSERT_EQ(asked().size(), 1u) << "it is not asked while it is busy";
    EXPECT_EQ(expressions_with("a worker has been busy").size(), 1u);
    say(json{{"id", asked()[0]}, {"result", json::object()}}.dump());
    ask(60'000);
    paint();
    EXPECT_EQ(asked().size(), 3u) << "it follows again";
    page.silent_about = "0";
    ask(80'000);
    page.silent_about.clear();
    pass(1s);
    pass(20s);
    paint();
    EXPECT_EQ(ends, std::vector(5, k_painted));
    EXPECT_EQ(expressions_with("a worker has been busy").size(), 1u) << "told once";
}

struct shared_case {
    const char* type;
    bool is_asked_for;  // or comes by itself
};
class SharedWorkers : public PageTimeline, public testing::WithParamInterface<shared_case> {
protected:
    void attach() {
        const json info{{"type", GetParam().type}, {"targetId", "t1"}};
        say(json{{"method", "Target.targetCreated"}, {"params", {{"targetInfo", info}}}}.dump());
        say(json{{"method", "Target.attachedToTarget"},
                 {"params", {{"sessionId", "s1"}, {"targetInfo", info}}}}
                .dump());
    }
    void say_worker(const char* method) {
        say(json{{"method", method}, {"params", json::object()}, {"sessionId", "s1"}}.dump());
    }
    std::ptrdiff_t woken() const {
        return std::count_if(page.calls.begin(), page.calls.end(), [](const json& call) {
            return call.value("sessionId", "") == "s1" && call["method"] == "Runtime.evaluate";
        });
    }
};

TEST_P(SharedWorkers, AreWokenAsThoseOfThePageAre) {
    begin();
    attach();
    EXPECT_EQ(page.count_of("Target.attachToTarget"), GetParam().is_asked_for ? 1u : 0u);
    ask(20'000);
    paint();
    EXPECT_EQ(woken(), 2);
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

// It stays attached, and nobody tells of it again.
TEST_P(SharedWorkers, OneThatTheNextPageHasTooIsWokenForItAndOneOfThePagesOwnIsNot) {
    begin();
    say(R"({"method":"Target.attachedToTarget","params":{"sessionId":"own",
        "targetInfo":{"type":"worker"}}})");
    attach();
    go_to_next_page();
    ask(0);
    paint();
    page.calls.clear();
    ask(20'000);
    paint();
    EXPECT_EQ(woken(), 2);
    for (const json& call : page.calls) EXPECT_NE(call.value("sessionId", ""), "own");
}

// It stands at its beginning, since it is looked into.
TEST_P(SharedWorkers, OneWhoseProcessEndsIsNotWaitedForAndIsToldToRunWhenItComesBack) {
    begin();
    attach();
    page.silent_about = "0";
    ask(20'000);
    page.silent_about.clear();
    say_worker("Inspector.targetCrashed");
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    ask(40'000);
    paint();
    EXPECT_EQ(woken(), 1);
    say_worker("Inspector.targetReloadedAfterCrash");
    EXPECT_EQ(page.calls.back()["method"], "Runtime.runIfWaitingForDebugger");
    EXPECT_EQ(page.calls.back()["sessionId"], "s1");
    ask(60'000);
    paint();
    EXPECT_EQ(woken(), 3);
}

TEST_P(SharedWorkers, OneThatIsBusyIsLeftBehind) {
    begin();
    attach();
    page.silent_about = "0";
    ask(20'000);
    page.silent_about.clear();
    pass(1s);
    pass(20s);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    EXPECT_TRUE(page.faults.empty());
    ask(40'000);
    paint();
    EXPECT_EQ(woken(), 1);
    EXPECT_TRUE(expressions_with("a worker has been busy").empty()) << "it is not the page's";
}

INSTANTIATE_TEST_SUITE_P(Of, SharedWorkers,
                         testing::Values(shared_case{"shared_worker", true},
                                         shared_case{"service_worker", false}),
                         [](const auto& one) { return std::string(one.param.type); });

TEST_F(PageTimeline, FilmsArePlacedBeforeEachFrameOnceThereIsOne) {
    stand();
    say_driver("");
    const auto placed = [&] { return expressions_with("thinternal films").size(); };
    ask(0);
    paint();
    const auto before = placed();
    ask(20'000);
    paint();
    EXPECT_EQ(placed() - before, 1u);
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

// --- what a page by its own clock sounds like

class SoundingTimeline : public PageTimeline {
protected:
    void sound() {
        stand();
        say_driver("");
        ask(0);
        paint();
    }
};

TEST_F(SoundingTimeline, IsToldTheMomentOfEachFrameAndSaysWhatWasHeardUntilThen) {
    sound();
    EXPECT_EQ(expressions_with("films"),
              std::vector<std::string>(5, "window['thinternal films'](0,true)"))
        << "of four frames that nobody sees, and the first";
    EXPECT_TRUE(page.heard.empty());
    page.sounds = "96:AACAPwAAAL8=";
    ask(16'700);
    paint();
    EXPECT_EQ(expressions_with("films").back(), "window['thinternal films'](16700,true)");
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
    page.silent_about = "thinternal films";
    ask(20'000);
    pass(29s);
    const auto before = expressions_with("films").size();
    pass(1s);
    EXPECT_EQ(expressions_with("films").size(), before + 1) << "asked for once more";
    EXPECT_TRUE(page.faults.empty());
    EXPECT_EQ(ends.size(), 1u);
    pass(30s);
    EXPECT_EQ(page.faults, std::vector<std::string>{"a film of the page does not follow"});
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed}));
}

TEST_F(SoundingTimeline, AFilmThatStallsIsToldWithItsAddress) {
    sound();
    page.stalled = "http://a/b.webm";
    page.silent_about = "thinternal films";
    ask(20'000);
    pass(30s);
    EXPECT_TRUE(expressions_with("stalled").empty()) << "it may still come";
    pass(30s);
    EXPECT_EQ(page.faults,
              std::vector<std::string>{"a film of the page does not follow: http://a/b.webm"});
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed}));
}

// As where a script of it is busy. What it says later is of no account.
TEST_F(SoundingTimeline, APageThatDoesNotSayWhichFilmStallsIsNotAwaited) {
    sound();
    page.silent_about = "thinternal";
    ask(20'000);
    pass(30s);
    pass(30s);
    const int asked = page.calls.back()["id"];
    EXPECT_EQ(page.calls.back()["params"]["expression"], page_scripts::k_stalled);
    EXPECT_TRUE(page.faults.empty());
    pass(2s);
    say(json{{"id", asked}, {"result", {{"result", {{"value", "http://a/b.webm"}}}}}}.dump());
    EXPECT_EQ(page.faults, std::vector<std::string>{"a film of the page does not follow"});
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed}));
}

TEST_F(SoundingTimeline, ADriverThatThrowsHoldsNoFrameUpAndIsToldOnce) {
    sound();
    page.is_bent = true;
    for (const int us : {20'000, 40'000}) {
        ask(us);
        paint();
    }
    EXPECT_EQ(ends, std::vector(3, k_painted));
    EXPECT_EQ(expressions_with("has changed").size(), 1u);
}

// Such as where its server lets no script of it run, and there is nothing to drive.
TEST_F(SoundingTimeline, APageWithoutADriverIsNotWarned) {
    page.is_bent = true;
    stand();
    ask(0);
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
    EXPECT_TRUE(expressions_with("has changed").empty());
}

TEST_F(SoundingTimeline, WhatIsHeardOfFilesBelongsToTheFrame) {
    sound();
    page.sounds = "\n{}";
    ask(20'000);
    paint();
    EXPECT_EQ(expressions_with("thinternalSound.hear").size(), 1u);
    EXPECT_EQ(ends.size(), 2u);
    page.silent_at = "Page.getFrameTree";
    ask(40'000);
    pass(29s);
    EXPECT_EQ(ends.size(), 2u);
    const auto before = expressions_with("thinternal films").size();
    pass(1s);
    EXPECT_EQ(expressions_with("thinternal films").size(), before + 1) << "asked for once more";
    pass(30s);
    EXPECT_EQ(page.faults, std::vector<std::string>{"a film of the page does not follow"});
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
