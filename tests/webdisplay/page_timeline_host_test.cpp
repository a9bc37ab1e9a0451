// page_timeline_host_test.cpp - the machine that moves a page's time, with a host that does the
// next thing while it is told of the last.
#include <cstdint>
#include <functional>
#include <limits>

#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

class PageTimelineHost : public PageTimeline {
protected:
    // Asks for a frame; its host does `work` when it ends so.
    void ask_and(std::int64_t microseconds, frame_end when, std::function<void()> work) {
        EXPECT_TRUE(timeline.advance(microseconds, [this, when, work](frame_end how) {
            ends.push_back(how);
            if (how == when) work();
        }));
    }
    // The page that was asked for in a callback comes, and has its first frame.
    void expect_next_page() {
        pass(5ms);
        ASSERT_EQ(page.loads, 2);
        load();
        ASSERT_EQ(page.stands, 2);
        ends.clear();
        ask(0);
        paint();
        EXPECT_EQ(ends, std::vector{k_painted});
        EXPECT_TRUE(page.faults.empty());
    }
};

// That of one without a picture comes while the browser takes the next one.
TEST_F(PageTimelineHost, AnotherPageMayBeAskedForWhenAFrameHasEnded) {
    begin();
    ask_and(20'000, k_unchanged, [this] { timeline.ask_load(); });
    turn();
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged, k_failed}));
    expect_next_page();
}

TEST_F(PageTimelineHost, AnotherPageMayBeAskedForWithThePictureOfAFrame) {
    begin();
    ask_and(20'000, k_painted, [this] { timeline.ask_load(); });
    turn();
    EXPECT_TRUE(timeline.advance(40'000, [this](frame_end how) { ends.push_back(how); }));
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted, k_failed}));
    expect_next_page();
}

TEST_F(PageTimelineHost, AnotherPageMayBeAskedForWithAnAnswer) {
    begin();
    EXPECT_TRUE(timeline.ask("1", [this](const std::string& value) {
        values.push_back(value);
        timeline.ask_load();
    }));
    turn();
    EXPECT_EQ(values, std::vector<std::string>{"1"});
    expect_next_page();
}

TEST_F(PageTimelineHost, ThePageMayBeLostWhenAFrameHasEnded) {
    begin();
    ask_and(20'000, k_unchanged, [this] { timeline.page_lost(); });
    turn();
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged, k_failed}));
    EXPECT_EQ(page.faults.size(), 1u);
    EXPECT_FALSE(timeline.advance(60'000, {}));
}

// A frame that ends does so within another step, where the host waits for something of its own.
TEST_F(PageTimelineHost, AFrameThatEndsMayStepOn) {
    begin();
    ask_and(20'000, k_unchanged, [this] { turn(); });
    turn();
    ask(40'000);
    paint();
    ask(60'000);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged, k_painted, k_painted}));
}

// It would come to the next page, whose frames it is none of.
TEST_F(PageTimelineHost, AFrameThatIsAskedForWhenOneFailsIsRefused) {
    begin();
    bool is_taken = true;
    ask_and(20'000, k_failed, [this, &is_taken] { is_taken = timeline.advance(30'000, {}); });
    timeline.ask_load();
    EXPECT_FALSE(is_taken);
    turn();
    expect_next_page();
}

// As one that is loaded anew as soon as it is there.
TEST_F(PageTimelineHost, APageThatMovesOnWithoutAnEndFailsAndTheNextOneComes) {
    begin();
    page.moves_on_for_ever = true;
    page.moves_on_ms = 0;
    ask(20'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_failed}));
    ASSERT_EQ(page.faults.size(), 1u);
    EXPECT_NE(page.faults[0].find("without an end"), std::string::npos);
    page.moves_on_for_ever = false;
    page.faults.clear();
    timeline.ask_load();
    for (int i = 0; i < 3; ++i) pass(250ms);
    load();
    pass(250ms);
    load();
    EXPECT_EQ(page.stands, 2);
}

TEST_F(PageTimelineHost, MomentsThatNoClockHoldsAreRefused) {
    begin();
    for (const int bits : {62, 60, 55}) EXPECT_FALSE(timeline.advance(INT64_C(1) << bits, {}));
    EXPECT_FALSE(timeline.advance(std::numeric_limits<std::int64_t>::max(), {}));
    EXPECT_FALSE(timeline.advance(std::numeric_limits<std::int64_t>::min(), {}));
    ask(20'000);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted})) << "and it goes on where it was";
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
