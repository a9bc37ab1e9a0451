// tests/host/page_run_test.cpp - a page's way to its first frame, with a page that answers what the
// test wants, and a time that the test tells.
#include "host/render/page_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

constexpr const char* k_url = "https://example.com/page";

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

TEST_F(PageRun, APageThatNeverLoadsFailsAfterTheTimeout) {
    begin();
    pass_slowly(29s);
    EXPECT_FALSE(run->has_failed());
    pass_slowly(1s);
    EXPECT_TRUE(failure_has("has not loaded within 30 s")) << run->failure();
    EXPECT_TRUE(port.scripts.empty());
}

TEST_F(PageRun, AStartThatDoesNotComeIsNamed) {
    request.start = "window.ready";
    begin();
    pass_slowly(30s);
    EXPECT_TRUE(failure_has("--start window.ready has not become true within 30 s"))
        << run->failure();
}

TEST_F(PageRun, AStartBeforeAllOfThePageIsThereDoesNotAskForAllOfIt) {
    for (const char* start : {"", "load", "dom", "window.ready"}) {
        request.start = start;
        port.scripts.clear();
        begin();
        run->page_loaded();
        pass_slowly(1s);
        ASSERT_FALSE(port.scripts.empty());
        const bool asks_for_all = port.scripts[0].find("readyState") != std::string::npos;
        EXPECT_EQ(asks_for_all, request.start.empty() || request.start == "load") << start;
    }
}

TEST_F(PageRun, APageThatClosesItselfFailsAtOnce) {
    begin();
    run->page_closed();
    EXPECT_TRUE(failure_has("the page has closed itself")) << run->failure();
}

TEST_F(PageRun, APageThatCannotBeLoadedFailsAtOnce) {
    begin();
    run->page_failed(k_url, "ERR_NAME_NOT_RESOLVED");
    EXPECT_TRUE(failure_has(": there is no such host (ERR_NAME_NOT_RESOLVED)")) << run->failure();
}

TEST_F(PageRun, AnAddressThatIsSpeltWrongIsToldInWords) {
    begin();
    run->page_failed(k_url, "ERR_SSL_PROTOCOL_ERROR");
    EXPECT_TRUE(failure_has(": the server does not speak https there (ERR_SSL_PROTOCOL_ERROR)"))
        << run->failure();
}

TEST_F(PageRun, AUrlThatTheBrowserDoesNotTakeFailsInAnySpelling) {
    request.url = "https://example.com#top";
    begin();
    run->load_failed("https://example.com/", "ERR_FAILED");
    EXPECT_TRUE(failure_has("ERR_FAILED"));
}

TEST_F(PageRun, AFrameThatCannotBeLoadedIsNoFailureOfThePage) {
    begin();
    run->load_failed("https://ads.example.net/", "ERR_BLOCKED");
    load();
    EXPECT_FALSE(run->has_failed());
    answer("ready");
    EXPECT_FALSE(run->has_failed());
}

TEST_F(PageRun, ARedirectThatEndsNowhereFailsAtOnce) {
    begin();
    run->page_failed("https://elsewhere.example/", "ERR_CONNECTION_REFUSED");
    EXPECT_TRUE(failure_has("ERR_CONNECTION_REFUSED"));
}

TEST_F(PageRun, APageWhoseProcessEndsFailsAtOnce) {
    begin();
    load();
    run->page_lost();
    EXPECT_TRUE(failure_has("the page's process has ended")) << run->failure();
}

TEST_F(PageRun, AServersErrorPageFails) {
    begin();
    load();
    answer("http 503");
    EXPECT_TRUE(failure_has("status 503"));
}

TEST_F(PageRun, APageThatDoesNotAnswerIsAskedAgainAndFailsAfterTheTimeout) {
    begin();
    load();
    pass_slowly(29s);
    EXPECT_FALSE(run->has_failed());
    EXPECT_GT(port.scripts.size(), 10u);
    EXPECT_LT(port.scripts.size(), 60u);
    pass_slowly(1s);
    EXPECT_TRUE(failure_has("does not answer")) << run->failure();
}

TEST_F(PageRun, AScriptThatThrowsFailsWithWhatItThrew) {
    begin_script("throw 1");
    answer("throws Error: bad");
    EXPECT_TRUE(failure_has("a.js: Error: bad")) << run->failure();
}

class PageRunScript : public PageRun {
protected:
    // Up to the question that the page has not answered for a while.
    void begin_doubt() {
        port.parsed.clear();
        begin_script("marker(");
        pass_slowly(1s);
        ASSERT_TRUE(port.alive);
    }
};

TEST_F(PageRunScript, OneThatIsNoneFailsAtOnceWithItsLine) {
    begin_doubt();
    port.alive("alive");
    pass(10ms);
    answer("2 Uncaught SyntaxError: missing )");
    EXPECT_TRUE(failure_has("a.js:1: SyntaxError: missing )")) << run->failure();
}

TEST_F(PageRunScript, OneThatOnlyTakesLongIsWaitedFor) {
    begin_doubt();
    pass_slowly(20s);
    EXPECT_FALSE(run->has_failed());
    // Questions are answered in their order.
    port.answer("fine done");
    port.alive("alive");
    pass(10ms);
    EXPECT_FALSE(run->has_failed()) << run->failure();
    EXPECT_EQ(run->script_result(), "done");
}

TEST_F(PageRunScript, OneThatCanBeParsedIsWaitedFor) {
    begin_doubt();
    port.alive("alive");
    pass(10ms);
    answer("fine");
    pass_slowly(20s);
    EXPECT_FALSE(run->has_failed()) << run->failure();
}

TEST_F(PageRun, AConditionThatIsNoneFailsAtOnce) {
    request.wait_for = "1 +";
    port.parsed.clear();
    begin();
    load();
    answer("ready");
    answer("2 Uncaught SyntaxError: Unexpected token");
    for (const auto& script : port.scripts) {
        EXPECT_EQ(script.find("return (1 +\n) ?"), std::string::npos)
            << "the browser would take it for a fault of the page's";
    }
    EXPECT_TRUE(failure_has("--wait-for 1 +")) << run->failure();
    EXPECT_TRUE(failure_has("SyntaxError: Unexpected token")) << run->failure();
}

TEST_F(PageRun, AScriptThatNeverAnswersIsRunOnceAndFailsAfterTheTimeout) {
    begin_script("marker(");
    pass_slowly(30s);
    EXPECT_TRUE(failure_has("a.js has not ended")) << run->failure();
    int runs = 0;
    for (const auto& script : port.scripts) runs += script.find("marker(") != std::string::npos;
    EXPECT_EQ(runs, 1);
}

// It may open what browsers open at a click only; what we ask the page ourselves does not.
TEST_F(PageRun, TheUsersScriptAloneCountsAsAClick) {
    request.wait_for = "true";
    begin_script("marker()");
    pass(10ms);
    EXPECT_EQ(port.users_scripts, 1);
    ASSERT_FALSE(port.scripts.empty());
    EXPECT_NE(port.scripts.back().find("marker()"), std::string::npos);
    answer("fine ");
    pass_slowly(1s);
    EXPECT_EQ(port.users_scripts, 1);
}

TEST_F(PageRun, AConditionThatStaysFalseFailsAfterTheTimeout) {
    request.wait_for = "window.done";
    begin();
    load();
    answer("ready");
    for (int i = 0; i < 100; ++i) {
        pass_slowly(50ms);
        port.answer("wait");
    }
    pass_slowly(30s);
    EXPECT_TRUE(failure_has("--wait-for window.done has not become true")) << run->failure();
    EXPECT_FALSE(failure_has("JavaScript")) << "it has been evaluated";
}

// Its content security policy forbids it.
TEST_F(PageRun, AConditionThatThePageDoesNotLetBeParsedIsTriedAllTheSame) {
    request.wait_for = "window.done";
    port.parsed = "blocked";
    begin();
    load();
    answer("ready");
    answer("ready");
    answer("ready");
    paint();
    paint();
    EXPECT_TRUE(run->is_ready());
}

TEST_F(PageRun, AStartThatThrowsIsTold) {
    request.stands_still = true;
    request.start = "a.b";
    begin();
    pass_slowly(29s);
    EXPECT_TRUE(port.doubted.empty()) << "it may become true";
    pass_slowly(1s);
    EXPECT_FALSE(run->has_failed());
    ASSERT_EQ(port.doubted, std::vector<std::string>{"a.b"});
    answer("page.html:3:9: ReferenceError: a is not defined");
    EXPECT_TRUE(
        failure_has("--start a.b has not become true within 30 s; it throws "
                    "page.html:3:9: ReferenceError: a is not defined"))
        << run->failure();
}

TEST_F(PageRun, AStartOfAPageThatSaysNothingFails) {
    request.stands_still = true;
    request.start = "a.b";
    begin();
    pass_slowly(32s);
    EXPECT_TRUE(run->has_failed());
    EXPECT_FALSE(failure_has("throws")) << run->failure();
}

TEST_F(PageRun, AConditionThatThrowsIsTriedAgainAndTold) {
    request.wait_for = "a.b";
    request.timeout = 1s;
    begin();
    load();
    answer("ready");
    answer("throws ReferenceError: a");
    EXPECT_FALSE(run->has_failed());
    pass(1s);
    EXPECT_TRUE(failure_has("ReferenceError: a")) << run->failure();
}

TEST_F(PageRun, APageThatPaintsNothingFails) {
    request.timeout = 1500ms;
    begin();
    load();
    for (int i = 0; i < 3; ++i) answer("ready");
    EXPECT_EQ(port.repaints, 1);
    pass(2s);
    EXPECT_TRUE(failure_has("has painted nothing within 1.5 s")) << run->failure();
}

TEST_F(PageRun, APageThatDrawsNoFrameFails) {
    request.timeout = 1500ms;
    begin();
    load();
    for (const char* text : {"ready", "ready", "wait"}) answer(text);
    port.painted = 100;
    pass(2s);
    EXPECT_TRUE(failure_has("has painted nothing within 1.5 s")) << run->failure();
}

// The first picture after the question may have been under way before it.
TEST_F(PageRun, ThePictureHasToBeNewerThanTheCondition) {
    begin();
    port.painted = 5;
    load();
    for (int i = 0; i < 3; ++i) answer("ready");
    pass(10ms);
    EXPECT_FALSE(run->is_ready());
    paint();
    EXPECT_FALSE(run->is_ready());
    paint();
    EXPECT_TRUE(run->is_ready());
    EXPECT_EQ(port.repaints, 2);
}

TEST_F(PageRun, TheScriptRunsAfterTheFontsAndBeforeTheCondition) {
    request.script = "return the_script()";
    request.wait_for = "the_condition";
    begin();
    load();
    answer("wait");
    pass_slowly(50ms);
    answer("ready");
    pass(10ms);
    ASSERT_EQ(port.scripts.size(), 3u);
    EXPECT_NE(port.scripts[0].find("document.fonts"), std::string::npos);
    EXPECT_NE(port.scripts[2].find("return the_script()\n"), std::string::npos);
    answer("fine 42");
    EXPECT_EQ(run->script_result(), "42");
    pass(10ms);
    ASSERT_EQ(port.scripts.size(), 4u);
    EXPECT_NE(port.scripts[3].find("(the_condition\n)"), std::string::npos);
}

TEST_F(PageRun, APageThatLoadsAnotherOneIsPreparedAgain) {
    begin_script("return 1");
    answer("fine 1");
    run->page_loaded();
    answer("ready");
    pass(10ms);
    int runs = 0;
    for (const auto& script : port.scripts) runs += script.find("return 1\n") != std::string::npos;
    EXPECT_EQ(runs, 2);
}

TEST_F(PageRun, AnAnswerToAnOldQuestionChangesNothing) {
    begin();
    load();
    pass(10ms);
    auto old = std::move(port.open.back());
    port.open.pop_back();
    run->page_loaded();
    pass(10ms);
    old("http 404");
    pass(10ms);
    EXPECT_FALSE(run->has_failed());
    run.reset();
    old("ready");  // after the run has gone
}

TEST_F(PageRun, ALivePageIsAskedAboutOnceASecond) {
    make_ready();
    const auto before = port.scripts.size();
    for (int i = 0; i < 1000; ++i) {
        pass(10ms);
        if (!port.open.empty()) port.answer("1");
    }
    EXPECT_GE(port.scripts.size() - before, 9u);
    EXPECT_LE(port.scripts.size() - before, 11u);
    EXPECT_TRUE(run->is_ready());
}

TEST_F(PageRun, APageThatDiesWhileItsFramesCountFails) {
    make_ready();
    pass_slowly(9s);
    EXPECT_TRUE(run->is_ready());
    pass_slowly(2s);
    EXPECT_TRUE(failure_has("stopped answering")) << run->failure();
}

TEST_F(PageRun, APageThatDiedBeforeItsLastFrameFails) {
    make_ready();
    pass(10ms);
    port.answer("1");
    run->end(now);
    EXPECT_FALSE(run->has_ended());
    pass_slowly(10s);
    EXPECT_TRUE(failure_has("stopped answering")) << run->failure();
}

TEST_F(PageRun, APageThatAnswersAtTheEndHasEnded) {
    make_ready();
    run->end(now);
    port.answer("1");
    pass(10ms);
    EXPECT_TRUE(run->has_ended());
    EXPECT_FALSE(run->has_failed());
}

TEST_F(PageRun, AnswerFromBeforeTheEndProvesNothing) {
    make_ready();
    pass(10ms);
    ASSERT_EQ(port.open.size(), 1u);
    auto before_the_end = std::move(port.open.back());
    port.open.pop_back();
    run->end(now);
    before_the_end("1");
    pass(10ms);
    EXPECT_FALSE(run->has_ended());
}

TEST_F(PageRun, APageMayLoadOthersWhileItsFramesCount) {
    make_ready();
    run->load_failed("https://example.com/frame", "ERR_FAILED");
    run->page_loaded();
    EXPECT_TRUE(run->is_ready());
}

TEST_F(PageRun, APageThatLoadsOneThatFailsWhileItsFramesCountFails) {
    make_ready();
    run->page_failed("https://example.com/next", "ERR_FAILED");
    EXPECT_TRUE(failure_has("https://example.com/next: ERR_FAILED")) << run->failure();
}

TEST_F(PageRun, APageWhoseProcessEndsWhileItsFramesCountFailsAtOnce) {
    make_ready();
    run->page_lost();
    EXPECT_TRUE(failure_has("the page's process has ended")) << run->failure();
}

// How a page may come to its end, and how far it has come by then.
struct gone_case {
    const char* name;
    void (*goes)(page_run&);
    const char* part;
    int last_stage = 5;
};
void PrintTo(const gone_case& c, std::ostream* out) { *out << c.name; }

constexpr gone_case k_gone[] = {
    {"Closed", [](page_run& run) { run.page_closed(); }, "the page has closed itself"},
    {"ProcessEnded", [](page_run& run) { run.page_lost(); }, "the page's process has ended"},
    {"Failed", [](page_run& run) { run.page_failed(k_url, "ERR_FAILED"); }, "ERR_FAILED"},
    {"Download", [](page_run& run) { run.load_failed(k_url, "it is a download"); },
     "it is a download", 0},
    {"NoPage", [](page_run& run) { run.load_failed(k_url, "status 204"); }, "status 204", 0},
};

class PageRunGone : public PageRun, public testing::WithParamInterface<gone_case> {
protected:
    // On its way, settling, drawing twice, ready, at its end.
    void come_to(int stage) {
        port = {};
        begin();
        if (stage > 0) load();
        for (int i = 1; i < std::min(stage, 4); ++i) answer("ready");
        if (stage < 4) return;
        paint();
        paint();
        ASSERT_TRUE(run->is_ready());
        if (stage > 4) run->end(now);
    }
};

// Neither a step nor an answer comes after it, and no time passes.
TEST_P(PageRunGone, FailsAtOnceHoweverFarItHasCome) {
    for (int stage = 0; stage <= GetParam().last_stage; ++stage) {
        come_to(stage);
        EXPECT_FALSE(run->has_failed()) << stage;
        GetParam().goes(*run);
        EXPECT_TRUE(failure_has(GetParam().part)) << stage << run->failure();
    }
}
INSTANTIATE_TEST_SUITE_P(By, PageRunGone, testing::ValuesIn(k_gone),
                         [](const auto& one) { return std::string(one.param.name); });

// Its frames are all taken: what becomes of it afterwards is no fault of the film.
TEST_F(PageRun, APageThatHasEndedMayFail) {
    make_ready();
    run->end(now);
    pass(10ms);
    port.answer("1");
    pass(10ms);
    ASSERT_TRUE(run->has_ended());
    run->page_lost();
    run->page_failed(k_url, "ERR_FAILED");
    EXPECT_TRUE(run->has_ended());
}

// It draws nothing before its frames are asked for, and answers nothing between them.
TEST_F(PageRun, APageWhoseTimeStandsIsReadyWithoutAPictureAndIsNotAskedWhetherItLives) {
    request.stands_still = true;
    begin();
    load();
    answer("ready");
    answer("ready");
    EXPECT_TRUE(run->is_ready());
    const auto asked = port.scripts.size();
    pass_slowly(60s);
    EXPECT_TRUE(run->is_ready());
    EXPECT_EQ(port.scripts.size(), asked);
    EXPECT_EQ(port.repaints, 0);
    run->end(now);
    EXPECT_TRUE(run->has_ended());
}

// What a condition waits for may take time, and a page that stands still has none but by its
// frames.
TEST_F(PageRun, APageWhoseTimeStandsIsMovedFrameByFrameUntilItsConditionIsTrue) {
    request.stands_still = true;
    request.wait_for = "window.shown";
    begin();
    load();
    answer("ready");
    EXPECT_TRUE(port.expressions.empty()) << "it may be true at once";
    answer("wait");
    ASSERT_EQ(port.expressions.size(), 1u);
    EXPECT_NE(port.expressions[0].find("window.shown"), std::string::npos);
    pass_slowly(5s);
    EXPECT_EQ(port.expressions.size(), 1u) << "one frame after the other, however long it takes";
    answer("wait");
    answer("throws TypeError");
    EXPECT_EQ(port.expressions.size(), 3u);
    answer("ready");
    EXPECT_TRUE(run->is_ready());
    EXPECT_EQ(port.expressions.size(), 3u);
}

TEST_F(PageRun, AConditionThatTimeDoesNotMakeTrueFails) {
    request.stands_still = true;
    request.wait_for = "window.shown";
    begin();
    load();
    answer("ready");
    for (int i = 0; i < 4; ++i) answer("wait");
    pass_slowly(60s);
    EXPECT_TRUE(run->has_failed());
    EXPECT_NE(run->failure().find("has not become true"), std::string::npos) << run->failure();
}

// A page that loads another one while it is moved begins anew.
TEST_F(PageRun, AnotherPageIsAskedTheUsualWayFirst) {
    request.stands_still = true;
    request.wait_for = "window.shown";
    begin();
    load();
    answer("ready");
    answer("wait");
    const auto asked = port.scripts.size();
    load();
    pass(50ms);
    EXPECT_GT(port.scripts.size(), asked);
    answer("ready");
    answer("ready");
    EXPECT_TRUE(run->is_ready());
}

}  // namespace
}  // namespace pennywort::host
