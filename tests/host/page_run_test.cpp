// tests/host/page_run_test.cpp - a page's way to its first frame. What comes then:
// page_run_frames_test.cpp.
#include "host/render/page_run.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/host/page_run_fixture.h"

namespace pennywort::host {
namespace {

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

// A load that has failed, and what the user is told of it.
struct load_case {
    const char* name;
    const char* error;
    const char* told;  // nullptr: nothing, since the page goes on
    const char* failed = k_url;
    const char* asked = k_url;
    // Of a page; or of anything, before one has come.
    void (page_run::*by)(const std::string&, const std::string&) = &page_run::page_failed;
};
void PrintTo(const load_case& c, std::ostream* out) { *out << c.name; }

constexpr load_case k_loads[] = {
    {"ServerError", "ERR_HTTP_RESPONSE_CODE_FAILURE",
     ": the server answered with an error and nothing else (ERR_HTTP_RESPONSE_CODE_FAILURE)"},
    {"NoAnswer", "ERR_EMPTY_RESPONSE",
     ": the server closed the connection without an answer (ERR_EMPTY_RESPONSE)"},
    {"NoHost", "ERR_NAME_NOT_RESOLVED", ": there is no such host (ERR_NAME_NOT_RESOLVED)"},
    {"NoServer", "ERR_CONNECTION_REFUSED", ": no server listens there (ERR_CONNECTION_REFUSED)"},
    {"NoFile", "ERR_FILE_NOT_FOUND", ": there is no such file (ERR_FILE_NOT_FOUND)"},
    {"RedirectsWithoutEnd", "ERR_TOO_MANY_REDIRECTS",
     ": the server redirects without end (ERR_TOO_MANY_REDIRECTS)"},
    {"NoHttpsThere", "ERR_SSL_PROTOCOL_ERROR",
     ": the server does not speak https there (ERR_SSL_PROTOCOL_ERROR)"},
    {"NoSuchScheme", "ERR_UNKNOWN_URL_SCHEME",
     ": browsers know no address that begins so (ERR_UNKNOWN_URL_SCHEME)"},
    {"ShunnedPort", "ERR_UNSAFE_PORT", ": browsers do not go to that port (ERR_UNSAFE_PORT)"},
    {"WithAPrefix", "net::ERR_NAME_NOT_RESOLVED",
     ": there is no such host (net::ERR_NAME_NOT_RESOLVED)"},
    {"WithoutWords", "ERR_FAILED", "https://example.com/page: ERR_FAILED"},
    {"RedirectThatEndsNowhere", "ERR_CONNECTION_REFUSED",
     "https://elsewhere.example/: no server listens there (ERR_CONNECTION_REFUSED)",
     "https://elsewhere.example/"},
    {"UrlThatTheBrowserDoesNotTakeInAnySpelling", "ERR_FAILED", "https://example.com/: ERR_FAILED",
     "https://example.com/", "https://example.com#top", &page_run::load_failed},
    {"FrameOfThePage", "ERR_BLOCKED", nullptr, "https://ads.example.net/", k_url,
     &page_run::load_failed},
};

class PageRunLoad : public PageRun, public testing::WithParamInterface<load_case> {};

TEST_P(PageRunLoad, ThatFailsIsToldAtOnceInWords) {
    const load_case& c = GetParam();
    request.url = c.asked;
    begin();
    ((*run).*c.by)(c.failed, c.error);
    if (c.told == nullptr) {
        load();
        answer("ready");
        EXPECT_FALSE(run->has_failed()) << run->failure();
        return;
    }
    EXPECT_TRUE(run->has_failed());
    EXPECT_TRUE(run->failure().ends_with(c.told)) << run->failure();
}
INSTANTIATE_TEST_SUITE_P(Of, PageRunLoad, testing::ValuesIn(k_loads),
                         [](const auto& one) { return std::string(one.param.name); });

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
