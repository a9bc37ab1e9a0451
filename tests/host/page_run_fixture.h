// page_run_fixture.h - a page_run with a page that answers what the test wants, and a time that the
// test tells.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/render/page_run.h"

namespace pennywort::host {

using namespace std::chrono_literals;

inline constexpr const char* k_url = "https://example.com/page";

class fake_port : public page_port {
public:
    void run_script(const std::string& body, std::function<void(std::string)> answer) override {
        if (body == "return 'alive';") {
            alive = std::move(answer);
            return;
        }
        if (body.find("createElement('script')") != std::string::npos && !parsed.empty()) {
            return answer(parsed);
        }
        scripts.push_back(body);
        open.push_back(std::move(answer));
    }
    void run_users_script(const std::string& body,
                          std::function<void(std::string)> answer) override {
        ++users_scripts;
        run_script(body, std::move(answer));
    }
    void ask_next_frame(const std::string& expression,
                        std::function<void(std::string)> answer) override {
        expressions.push_back(expression);
        open.push_back(std::move(answer));
    }
    void ask_fault(const std::string& expression,
                   std::function<void(std::string)> answer) override {
        doubted.push_back(expression);
        open.push_back(std::move(answer));
    }
    void repaint() override { ++repaints; }
    std::uint64_t pictures() const override { return painted; }

    // Answers the newest question.
    void answer(const std::string& text) {
        ASSERT_FALSE(open.empty()) << "nothing was asked";
        auto last = std::move(open.back());
        open.pop_back();
        last(text);
    }

    std::vector<std::string> expressions;
    std::vector<std::string> doubted;
    std::string parsed = "fine";             // what the page says of a condition's text
    std::function<void(std::string)> alive;  // asked whether it lives at all
    std::vector<std::string> scripts;
    std::vector<std::function<void(std::string)>> open;
    int repaints = 0;
    int users_scripts = 0;
    std::uint64_t painted = 0;
};

class PageRun : public testing::Test {
protected:
    page_run& begin() { return run.emplace(port, request, now); }
    void pass(std::chrono::milliseconds time) {
        now += time;
        run->step(now);
    }
    // In steps, as the program does it.
    void pass_slowly(std::chrono::milliseconds time) {
        for (auto passed = 0ms; passed < time; passed += 10ms) pass(10ms);
    }
    void load() { run->page_loaded(); }
    void answer(const std::string& text) {
        pass(10ms);
        port.answer(text);
        pass(10ms);
    }
    void paint() {
        ++port.painted;
        pass(10ms);
    }
    void make_ready() {
        begin();
        load();
        for (int i = 0; i < 3; ++i) answer("ready");
        paint();
        paint();
        ASSERT_TRUE(run->is_ready());
    }
    // Up to the script, which waits for its answer.
    void begin_script(const std::string& script) {
        request.script = script;
        request.script_name = "a.js";
        begin();
        load();
        answer("ready");
    }
    bool failure_has(const std::string& part) const {
        return run->has_failed() && run->failure().find(part) != std::string::npos &&
               run->failure().find('\n') == std::string::npos;
    }

    fake_port port;
    page_request request{k_url, "", "", "", 30s, false, ""};
    page_run::time_point now = page_run::time_point() + 1000s;
    std::optional<page_run> run;
};

}  // namespace pennywort::host
