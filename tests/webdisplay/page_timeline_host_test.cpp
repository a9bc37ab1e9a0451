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

// A page that moves on within the frame that is asked for next, or before its moment.
class PageThatMovesOn : public PageTimeline {
protected:
    void begin_page(const std::string& driver_says = {}) {
        prepare();
        say(k_navigated);
        load();
        if (!driver_says.empty()) say_driver(driver_says);
        ask(0);
        paint();
    }
    void move_on(double before_ms, const std::string& frame = "a",
                 const std::string& type = "Document") {
        page.holds_time = true;
        const double stood = page.clock_ms;
        ask(20'000);
        page.clock_ms = stood + 20 - before_ms;
        const json params{{"requestId", "next"}, {"frameId", frame}, {"resourceType", type}};
        say(json{{"method", "Fetch.requestPaused"}, {"params", params}}.dump());
        page.clock_ms = stood + 20;
    }
    void come_to_moment() { say(R"({"method":"Emulation.virtualTimeBudgetExpired","params":{}})"); }
    bool is_fetched() const { return page.count_of("Fetch.continueRequest") == 1; }
};

TEST_F(PageThatMovesOn, GetsTheNextOneBehindThePictureOfItsFrame) {
    begin_page();
    move_on(0);
    come_to_moment();
    EXPECT_FALSE(is_fetched());
    const std::size_t frames = page.stamps.size();
    ask(40'000);
    EXPECT_EQ(page.stamps.size(), frames) << "its time does not go on";
    EXPECT_FALSE(is_fetched());
    EXPECT_EQ(ends.size(), 1u);
    paint();
    EXPECT_TRUE(is_fetched());
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(PageThatMovesOn, GetsTheNextOneAlsoWhereItDrawsNothing) {
    begin_page();
    move_on(0);
    come_to_moment();
    EXPECT_FALSE(is_fetched());
    pass(500ms);
    EXPECT_TRUE(is_fetched());
    EXPECT_TRUE(page.faults.empty());
}

TEST_F(PageThatMovesOn, BeforeTheFramesMomentGetsTheNextOneAtOnce) {
    begin_page();
    move_on(5);
    EXPECT_TRUE(is_fetched());
}

TEST_F(PageThatMovesOn, HasFramesThatDoNotWait) {
    begin_page();
    move_on(0, "of another page");
    EXPECT_TRUE(is_fetched());
}

TEST_F(PageThatMovesOn, IsHeldWhileItsFrameGoesOnToAnotherDocument) {
    begin_page();
    move_on(0);
    say(R"({"method":"Fetch.requestPaused","params":{"requestId":"of a frame",)"
        R"("frameId":"b","resourceType":"Document"}})");
    EXPECT_EQ(page.count_of("Fetch.continueRequest"), 1u);
    EXPECT_EQ(page.calls.back()["params"]["requestId"], "of a frame");
    come_to_moment();
    paint();
    EXPECT_EQ(page.count_of("Fetch.continueRequest"), 2u);
}

TEST_F(PageThatMovesOn, WithAFilmThatOnlyStandsGetsTheNextOneAtOnce) {
    begin_page(page_scripts::k_film_stands);
    move_on(0);
    EXPECT_TRUE(is_fetched());
}

TEST_F(PageThatMovesOn, IsNotHeldWhereAFilmOfItBegins) {
    begin_page();
    move_on(0);
    EXPECT_FALSE(is_fetched());
    say_driver("1");
    EXPECT_TRUE(is_fetched());
}

TEST_F(PageThatMovesOn, MayHaveRequestsThatItsHostMinds) {
    begin_page();
    move_on(0, "a", "Image");
    come_to_moment();
    paint();
    EXPECT_EQ(page.count_of("Fetch.continueRequest"), 0u);
}

TEST_F(PageThatMovesOn, WithFilmsGetsTheNextOneAtOnce) {
    begin_page("1");
    move_on(0);
    EXPECT_TRUE(is_fetched());
}

// What the page before had is gone with it.
TEST_F(PageThatMovesOn, ToOneWithoutFilmsIsHeldWhereThatMovesOn) {
    begin_page("1");
    say(k_navigated);
    say(k_read);
    ask(10'000);
    pass(2ms);
    paint();
    ASSERT_EQ(ends, (std::vector{k_painted, k_painted}));
    move_on(0);
    EXPECT_FALSE(is_fetched());
    come_to_moment();
    paint();
    EXPECT_TRUE(is_fetched());
}

TEST_F(PageThatMovesOn, LeavesNoRequestThatWaitsWhereTheHostAsksForAnother) {
    begin_page();
    move_on(0);
    EXPECT_FALSE(is_fetched());
    timeline.ask_load();
    turn();
    EXPECT_TRUE(is_fetched());
}

TEST_F(PageThatMovesOn, LeavesNoRequestThatWaitsWhereItIsLost) {
    begin_page();
    move_on(0);
    EXPECT_FALSE(is_fetched());
    timeline.page_lost();
    turn();
    EXPECT_TRUE(is_fetched());
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
