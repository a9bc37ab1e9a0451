// page_timeline_fixture.h - a page of a few lines for the machine that moves a page's time.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/fake_clock.h"
#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay::timeline_test {

using namespace std::chrono_literals;
using json = nlohmann::json;

constexpr const char* k_read = R"({"method":"Page.domContentEventFired","params":{}})";
constexpr const char* k_navigated =
    R"({"method":"Page.frameNavigated","params":{"frame":{"id":"a"}}})";

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
        if (nanoseconds > last_taken) return false;
        stamps.push_back(nanoseconds);
        if (passed_by > 0) return --passed_by, true;
        if (is_held) return true;
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
        clock_ms += std::exchange(runs_on_ms, 0);
        if (is_in_frame && !shown.empty() && --shows_at <= 0) {
            for (const int id : std::exchange(shown, {})) {
                answers.push_back(shown_to(id));
            }
        }
        if (std::exchange(is_in_frame, false) && is_read) {
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
    std::int64_t last_taken = std::numeric_limits<std::int64_t>::max();  // no frame behind it is
    int passed_by = 0;  // frames that are taken and do not come to the page
    // Where in a step of what it tells a page goes over to the next, by that next one.
    std::map<std::int64_t, int> goes_over_at;
    double clock_ms = k_start_ms;
    double stops_late_ms = 0;  // so long it runs on when it is stopped first
    bool is_in_frame = false;
    bool is_held = false;      // by a script that changes its view
    bool holds_time = false;   // as a fetch that never ends does
    bool is_true = false;      // what a page's start waits for
    std::string no_script;     // why what it is to compile is none
    std::string silent_at;     // a method that is not answered
    std::string silent_about;  // or a part of such expressions
    std::string says_at_load;  // an event that comes with the first answer
    int shows_at = 0;  // the frame that has the pictures of films, from when they are asked for
    bool has_films = true;
    bool has_films_apart = true;  // in a frame of another site
    std::int64_t frame_gone = 0;  // such a one that is there no more
    std::vector<int> shown;
    std::vector<page_samples> heard;
    std::string sounds;              // what its driver says at each frame
    bool moves_on_for_ever = false;  // within the frame that is asked for next
    bool is_bent = false;            // its driver throws
    std::string blocked_by;          // what it is not drawn without
    std::string stalled;             // the film that does not come
    std::string file;
    // The page moves on to another one when its time is moved next: how far its clock is ahead of
    // what was asked for.
    std::optional<double> moves_on_ms;
    bool is_read = true;        // the page; one that is not has no turns
    bool is_read_late = false;  // the next one is not read before time moves again
    bool next_holds_time = false;

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

    static json text(const std::string& value) {
        return {{"result", {{"type", "string"}, {"value", value}}}};
    }

    std::string compiled(int id) const {
        if (no_script.empty()) return result(id);
        const json thrown{{"exception", {{"description", no_script}}}};
        return result(id, {{"exceptionDetails", thrown}});
    }

    static std::string refusal(int id) {
        return json{{"id", id}, {"error", {{"code", -32000}}}}.dump();
    }

    std::string placed(int id) const {
        json value = text(sounds);
        if (is_bent) value["exceptionDetails"] = {{"text", "Uncaught"}};
        return result(id, value);
    }

    // Whether films move, when their pictures are shown.
    std::string shown_to(int id, std::int64_t frame = 0) const {
        const bool moves = frame != 0 ? has_films_apart : has_films;
        return result(id, {{"result", {{"value", moves}}}});
    }

    void answer(const json& call, std::vector<std::string>& answers) {
        const std::string method = call["method"];
        if (method == silent_at) return;
        const int id = call["id"];
        const json& params = call["params"];
        const std::string expression = params.value("expression", "");
        if (!silent_about.empty() && expression.find(silent_about) != std::string::npos) return;
        const std::int64_t frame = params.value("contextId", std::int64_t{0});
        if (frame != 0 && frame == frame_gone) return answers.push_back(refusal(id));
        if (method == "Runtime.compileScript") return answers.push_back(compiled(id));
        if (expression == page_scripts::k_turn) return turns.push_back(id);
        if (method == "Performance.getMetrics") {
            return answers.push_back(
                result(id, {{"metrics", {{{"name", "Timestamp"}, {"value", clock_ms / 1000}}}}}));
        }
        if (expression == "0" && moves_on_for_ever) {
            answers.push_back(k_navigated);
            answers.push_back(k_read);
        }
        const bool shows = expression == page_scripts::k_shown;
        if (shows && shows_at > 0) return shown.push_back(id);
        if (shows) return answers.push_back(shown_to(id, frame));
        if (expression.find("thinternal films") != std::string::npos) {
            return answers.push_back(placed(id));
        }
        if (params.contains("returnByValue")) {
            return answers.push_back(result(id, value_of(expression)));
        }
        answers.push_back(result(id));
        if (method != "Emulation.setVirtualTimePolicy") return;
        runs_on_ms = std::exchange(stops_late_ms, 0);
        if (params.contains("budget")) budget = params["budget"];
        const bool moves = params.contains("budget") && !holds_time;
        if (!moves && !(params["policy"] == "advance" && holds_time)) return;
        // As the browser does: in whole microseconds, what is beyond them cut off.
        clock_ms = std::round(clock_ms * 1000) / 1000 + std::trunc(budget * 1000) / 1000;
        if (!std::exchange(is_read, true)) answers.push_back(k_read);
        if (moves_on_ms && move_on(answers)) return;
        answers.push_back(json{{"method", "Emulation.virtualTimeBudgetExpired"}}.dump());
    }

    json value_of(const std::string& expression) const {
        if (expression.substr(0, 3) == "!!(") {
            return {{"result", {{"type", "boolean"}, {"value", is_true}}}};
        }
        if (expression == page_scripts::k_held) {
            return {{"result", {{"type", "boolean"}, {"value", is_held}}}};
        }
        if (expression == page_scripts::k_blocked_by) return text(blocked_by);
        if (expression == page_scripts::k_stalled) return text(stalled);
        if (expression != "throw") return text(expression);
        return {{"result", {{"value", json::object()}}},
                {"exceptionDetails", {{"text", "Uncaught"}}}};
    }

    // True where it is to another process, which has heard nothing of the move.
    bool move_on(std::vector<std::string>& answers) {
        const double ahead = *std::exchange(moves_on_ms, std::nullopt);
        clock_ms += ahead;
        for (const int id : std::exchange(turns, {})) {
            answers.push_back(refusal(id));
        }
        answers.push_back(k_navigated);
        is_read = !is_read_late;
        holds_time = next_holds_time;
        if (is_read) answers.push_back(k_read);
        return std::abs(ahead) > 1000;
    }

    double budget = 0;
    double runs_on_ms = 0;
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
    // To the empty page's first picture and a stopped clock.
    void prepare_to_try() {
        timeline.browser_arrived();
        turn();
        pass(20ms);
        paint();
    }
    // And to the wish for a page.
    void prepare() {
        prepare_to_try();
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
    // Another one is asked for, and stands.
    void go_to_next_page() {
        timeline.ask_load();
        turn();
        pass(5ms);
        load();
    }
    // To the first frame's picture.
    void begin() {
        stand();
        ask(0);
        paint();
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
    void say(const std::string& message) {
        timeline.message_came(message);
        turn();
    }
    // What the page's driver says by its binding.
    void say_driver(const std::string& payload, int context = 1) {
        const json params{
            {"name", "thinternalFilms"}, {"payload", payload}, {"executionContextId", context}};
        say(json{{"method", "Runtime.bindingCalled"}, {"params", params}}.dump());
    }
    std::vector<std::string> expressions_with(const std::string& part) const {
        std::vector<std::string> found;
        for (const json& call : page.calls) {
            const std::string expression = call["params"].value("expression", "");
            if (expression.find(part) != std::string::npos) found.push_back(expression);
        }
        return found;
    }
    // The stamps of a page's unseen frames and of the first one behind them.
    void expect_stamps_around(std::int64_t zero_us) {
        ASSERT_EQ(page.stamps.size(), 5u);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(page.stamps[i], (zero_us - 10 + i) * 1000) << i;
        EXPECT_EQ(page.stamps[4], zero_us * 1000);
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

}  // namespace pennywort::webdisplay::timeline_test
