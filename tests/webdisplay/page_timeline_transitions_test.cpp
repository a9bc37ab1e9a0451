// page_timeline_transitions_test.cpp - the machine that moves a page's time: a page that has no
// turn in its frame, and what it is let do meanwhile.
#include <ostream>

#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

// In which frames without a turn the page's tasks run, by no time.
struct let_case {
    const char* name;
    bool has_film;
    bool is_held;
    // Of a page that has no turn for so long.
    std::chrono::milliseconds waits;
    std::size_t lets;
};
void PrintTo(const let_case& c, std::ostream* out) { *out << c.name; }

constexpr let_case k_lets[] = {
    {"FilmBeforeItIsAsked", true, false, 99ms, 0},
    {"FilmThatMayWantToShowItself", true, false, 100ms, 1},
    {"FilmOnceOnly", true, false, 20'000ms, 1},
    {"FilmOfAPageThatIsHeld", true, true, 20'000ms, 0},
    {"NoFilmThatIsKnown", false, false, 3'000ms, 0},
    {"NoFilmThatIsKnownForLong", false, false, 4'000ms, 1},
    {"NoFilmOfAPageThatIsHeld", false, true, 20'000ms, 0},
};

class TimelineLet : public PageTimeline, public testing::WithParamInterface<let_case> {
protected:
    // To a frame that has passed the page by.
    void miss_turn() {
        begin();
        if (GetParam().has_film) say_driver("heard");
        page.passed_by = 1000;
        page.is_held = GetParam().is_held;
        ask(20'000);
        page.calls.clear();
    }
    std::size_t policies(const char* policy) const {
        return static_cast<std::size_t>(
            std::count_if(page.calls.begin(), page.calls.end(), [&](const json& call) {
                return call["params"].value("policy", "") == policy &&
                       !call["params"].contains("budget");
            }));
    }
    std::size_t lets() const { return policies("pauseIfNetworkFetchesPending"); }
};

TEST_P(TimelineLet, RunsThePagesTasksWhereTheyMayBeWaitedFor) {
    miss_turn();
    for (auto passed = 0ms; passed < GetParam().waits; passed += 1ms) pass(1ms);
    EXPECT_EQ(lets(), GetParam().lets);
}

// They would run on into the next frame otherwise, and its time would not be theirs.
TEST_P(TimelineLet, StopsThemWithTheTurn) {
    miss_turn();
    for (auto passed = 0ms; passed < GetParam().waits; passed += 1ms) pass(1ms);
    const std::size_t stops = policies("pause");
    page.passed_by = 0;
    page.is_held = false;
    pass(5s);
    EXPECT_EQ(policies("pause") - stops, lets());
    ask(40'000);
    paint();
    EXPECT_TRUE(page.turns.empty()) << "it has its turn";
    EXPECT_EQ(ends.size(), 3u);
    EXPECT_TRUE(page.faults.empty());
}

INSTANTIATE_TEST_SUITE_P(Each, TimelineLet, testing::ValuesIn(k_lets),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
