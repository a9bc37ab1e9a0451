// page_timeline_media_test.cpp - the machine that moves a page's time: its workers, films
// and sounds.
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
              std::vector<std::string>(4, "window['thinternal films'](0,true)"))
        << "of three frames that nobody sees, and the first";
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
