// page_timeline_faults_test.cpp - the machine that moves a page's time, with one message of the
// page's inspector after the other lost, late, twice, in the wrong order or not what it should be.
#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "tests/support/effort.h"
#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

using messages = std::vector<std::string>;

// What becomes of one message: what comes in its place, and what comes a second later.
struct fault {
    const char* name;
    std::function<std::pair<messages, messages>(const std::string& message)> mangle;
    bool is_harmless;  // the film goes on as if nothing were
};

std::string with(const std::string& message, const char* member, const json& value) {
    json changed = json::parse(message);
    if (!changed.contains("id")) return message;
    changed.erase("result");
    changed[member] = value;
    return changed.dump();
}

const fault k_faults[] = {
    {"Lost", [](const auto&) { return std::pair<messages, messages>(); }, false},
    {"Twice",
     [](const auto& one) {
         return std::pair(messages{one, one}, messages{});
     },
     true},
    {"Late", [](const auto& one) { return std::pair(messages{}, messages{one}); }, false},
    {"AgainLater", [](const auto& one) { return std::pair(messages{one}, messages{one}); }, false},
    {"Cut",
     [](const auto& one) { return std::pair(messages{one.substr(0, one.size() / 2)}, messages{}); },
     false},
    {"Refused",
     [](const auto& one) {
         return std::pair(messages{with(one, "error", {{"code", -32000}})}, messages{});
     },
     false},
    {"OfAnotherShape",
     [](const auto& one) {
         return std::pair(messages{with(one, "result", {1, "x", {{"a", json::array()}}})},
                          messages{});
     },
     false},
    {"AText",
     [](const auto& one) { return std::pair(messages{with(one, "result", "text")}, messages{}); },
     false},
    {"Null",
     [](const auto& one) { return std::pair(messages{with(one, "result", nullptr)}, messages{}); },
     false},
    {"OfAnotherSession",
     [](const auto& one) {
         json changed = json::parse(one);
         changed["sessionId"] = "another";
         return std::pair(messages{changed.dump()}, messages{});
     },
     true},
};

// A film of three frames and a question, one message of which is mangled.
class faulty_film {
public:
    faulty_film(const fault& what, int at) : m_what(what), m_left(at) {
        page.sounds = "96:AACAPwAAAL8=\n{}";
    }

    void live() {
        timeline.browser_arrived();
        turn();
        pass(20ms);
        paint();
        for (int i = 0; i < 3 && page.stands == 0; ++i) {
            pass(250ms);
            timeline.page_loaded();
            turn();
        }
        ask(0);
        paint();
        ask(20'000);
        asked += timeline.ask("1", [this](const std::string&) { ++told; }) ? 1 : 0;
        turn();
        ask(40'000);
        paint();
        for (int i = 0; i < 100; ++i) pass(1s);
        // Frames that are under way come; that nothing changed in one is known with the next only.
        paint();
        if (page.faults.empty()) {
            ask(60'000);
            paint();
        }
        for (int i = 0; i < 100; ++i) pass(1s);
        paint();
    }
    bool was_mangled() const { return m_left < 0; }

    scripted_page page;
    int asked = 0;
    int told = 0;
    int failed = 0;

private:
    void take(const std::string& message) {
        if (m_left-- != 0) return timeline.message_came(message);
        auto [now, later] = m_what.mangle(message);
        m_later = std::move(later);
        m_late_at = clock.now() + 1s;
        for (const auto& one : now) timeline.message_came(one);
    }
    void turn() {
        timeline.step(clock.now());
        if (clock.now() >= m_late_at) {
            for (const auto& one : std::exchange(m_later, {})) timeline.message_came(one);
            timeline.step(clock.now());
        }
        for (auto all = page.take_answers(); !all.empty(); all = page.take_answers()) {
            for (const auto& one : all) take(one);
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
    void ask(std::int64_t microseconds) {
        const auto ended = [this](frame_end how) {
            ++told;
            failed += how == frame_end::failed ? 1 : 0;
        };
        asked += timeline.advance(microseconds, ended) ? 1 : 0;
        turn();
    }

    const fault& m_what;
    int m_left;  // messages before the one that is mangled
    messages m_later;
    run::monotonic_clock::time m_late_at{};
    tests::fake_clock clock;
    page_timeline timeline{page, 1'700'000'000};
};

class TimelineFault : public testing::TestWithParam<fault> {};

TEST_P(TimelineFault, EachFrameHasOneEnd) {
    int at = 0;
    for (;; at += tests::effort(1, 20)) {
        SCOPED_TRACE(at);
        faulty_film film(GetParam(), at);
        film.live();
        if (!film.was_mangled()) break;
        EXPECT_EQ(film.told, film.asked) << film.page.calls.size();
        EXPECT_LE(film.page.faults.size(), 1u);

        if (!GetParam().is_harmless) continue;
        EXPECT_EQ(film.asked, 5);
        EXPECT_EQ(film.failed, 0);
    }
    EXPECT_GT(at, 40) << "messages of a whole film";
}

INSTANTIATE_TEST_SUITE_P(Each, TimelineFault, testing::ValuesIn(k_faults),
                         [](const auto& one) { return std::string(one.param.name); });

// The browser gives it no turns meanwhile, and what it waits for may be a timer.
TEST_F(PageTimeline, TimeGoesOnWhileAScriptThatChangesTheViewHasNotEnded) {
    begin();
    page.is_held = true;
    ask(20'000);
    EXPECT_EQ(ends.size(), 1u);
    pass(100ms);
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged}));
    EXPECT_EQ(page.stamps.back() % 100'000'000, 42'300'000) << "at once, and begun once";
    page.is_held = false;
    ask(60'000);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged, k_unchanged}));
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged, k_unchanged, k_painted}));
    EXPECT_TRUE(page.faults.empty());
    for (int i = 0; i < 40; ++i) pass(1s);
    EXPECT_TRUE(page.faults.empty());
}

TEST_F(PageTimeline, APageMayBeHeldBeforeItsFirstFrame) {
    stand();
    page.is_held = true;
    ask(0);
    for (int i = 0; i < 40; ++i) pass(1s);
    page.is_held = false;
    ask(20'000);
    paint();
    EXPECT_EQ(ends, (std::vector{k_unchanged, k_painted}));
    EXPECT_TRUE(page.faults.empty());
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
