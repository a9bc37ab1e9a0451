// tests/host/page_sayings_test.cpp - events of a page's inspector, and the lines made of them.
#include "host/render/page_sayings.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace pennywort::host {
namespace {

struct event_case {
    const char* name;
    const char* method;
    const char* parameters;
    saying_kind kind;
    const char* line;  // empty: it says nothing
};
void PrintTo(const event_case& c, std::ostream* out) { *out << c.name; }

using kind = saying_kind;
constexpr const char* k_console = "Runtime.consoleAPICalled";
constexpr const char* k_thrown = "Runtime.exceptionThrown";
constexpr const char* k_log = "Log.entryAdded";

constexpr event_case k_events[] = {
    {"ConsoleLog", k_console,
     R"({"type":"log","args":[{"type":"string","value":"two goals"},{"type":"number","value":2},
        {"type":"boolean","value":true}],"stackTrace":{"callFrames":[
        {"url":"file:///x/score.html?home=NOR","lineNumber":2,"columnNumber":8}]}})",
     kind::console, "score.html:3:9: console.log: two goals 2 true"},
    {"ConsoleError", k_console, R"({"type":"error","args":[{"type":"string","value":"no data"}]})",
     kind::console_error, "console.error: no data"},
    {"FailedAssertion", k_console, R"({"type":"assert","args":[{"type":"string","value":"x"}]})",
     kind::console_error, "console.assert: x"},
    {"ConsoleWarning", k_console, R"({"type":"warning","args":[]})", kind::console_warning,
     "console.warning: "},
    {"WhatAFilmCannotHave", k_console,
     R"({"type":"warning","args":[{"type":"string","value":"thinternal sound: a.mp3 is late"}]})",
     kind::sound, "sound: a.mp3 is late"},
    {"AWorkerThatIsLeftBehind", k_console,
     R"({"type":"warning","args":[{"value":"thinternal clock: a worker is busy"}]})", kind::clock,
     "clock: a worker is busy"},
    {"ASoundThatNobodyHears", k_console,
     R"({"type":"warning","args":[{"value":"thinternal sound: nobody listens"}]})", kind::unheard,
     "sound: nobody listens"},
    {"AWarningOfThePagesOwn", k_console, R"({"type":"warning","args":[{"value":"sound: off"}]})",
     kind::console_warning, "console.warning: sound: off"},
    {"ConsoleOfObjects", k_console,
     R"({"type":"log","args":[
        {"type":"object","description":"Object","preview":{"type":"object","overflow":true,
         "properties":[{"name":"a","type":"number","value":"1"},
         {"name":"b","type":"string","value":"two \"2\""},{"name":"c","type":"object","value":"Object"},
         {"name":"d","type":"object","value":"Date"},{"name":"e","type":"function","value":""},
         {"name":"f","type":"object","subtype":"null","value":"null"}]}},
        {"type":"object","subtype":"array","preview":{"subtype":"array","overflow":false,
         "properties":[{"name":"0","value":"7"},{"name":"1","value":"8"}]}},
        {"type":"object","subtype":"error","description":"Error: x\n    at y",
         "preview":{"subtype":"error","properties":[]}},
        {"type":"object","subtype":"null","value":null},{"type":"undefined"},
        {"type":"number","unserializableValue":"NaN"}]})",
     kind::console,
     "console.log: {a: 1, b: \"two \\\"2\\\"\", c: {...}, d: Date, e: function, f: null, ...} "
     "[7, 8] Error: x\n    at y null undefined NaN"},
    {"ConsoleCleared", k_console, R"({"type":"clear","args":[]})", kind::console, ""},
    {"Uncaught", k_thrown,
     R"({"exceptionDetails":{"text":"Uncaught","url":"http://a/goals.js","lineNumber":0,
        "columnNumber":4,"exception":{"className":"ReferenceError",
        "description":"ReferenceError: nosuch is not defined\n    at goals.js:1:5"}}})",
     kind::error, "goals.js:1:5: Uncaught ReferenceError: nosuch is not defined"},
    {"UncaughtByItsStack", k_thrown,
     R"({"exceptionDetails":{"text":"Uncaught","lineNumber":0,"columnNumber":0,
        "exception":{"description":"Error: x"},"stackTrace":{"callFrames":[
        {"url":"http://a/","lineNumber":6,"columnNumber":1}]}}})",
     kind::error, "http://a/:7:2: Uncaught Error: x"},
    {"UncaughtObject", k_thrown,
     R"({"exceptionDetails":{"text":"Uncaught","url":"a.html","lineNumber":1,
        "exception":{"type":"object","className":"Object","description":"Object","preview":{
        "properties":[{"name":"code","type":"number","value":"7"}]}}}})",
     kind::error, "a.html:2: Uncaught {code: 7}"},
    {"UncaughtText", k_thrown,
     R"({"exceptionDetails":{"text":"Uncaught","url":"a.html","lineNumber":1,
        "exception":{"type":"string","value":"just a text"}}})",
     kind::error, "a.html:2: Uncaught just a text"},
    {"SyntaxErrorOfThePage", k_thrown,
     R"({"exceptionDetails":{"text":"Uncaught","url":"a.html","lineNumber":1,
        "exception":{"className":"SyntaxError","description":"SyntaxError: Unexpected token"}}})",
     kind::error, "a.html:2: Uncaught SyntaxError: Unexpected token"},
    {"SyntaxErrorOfTheUsersScript", k_thrown,
     R"({"exceptionDetails":{"text":"Uncaught","lineNumber":1,
        "exception":{"className":"SyntaxError","description":"SyntaxError: Unexpected token"}}})",
     kind::error, ""},
    {"RejectedPromise", k_thrown,
     R"j({"exceptionDetails":{"text":"Uncaught (in promise)","url":"a.html","lineNumber":1,
        "exception":{"description":"TypeError: Failed to fetch"}}})j",
     kind::rejection, "a.html:2: Uncaught (in promise) TypeError: Failed to fetch"},
    {"FailedResource", k_log,
     R"j({"entry":{"source":"network","level":"error","url":"http://a/logo.png",
        "text":"Failed to load resource: the server responded with a status of 404 (Not Found)"}})j",
     kind::failed_resource,
     "http://a/logo.png: Failed to load resource: the server responded with a status of 404 "
     "(Not Found)"},
    {"IconThatTheBrowserAsksFor", k_log,
     R"j({"entry":{"source":"network","level":"error","url":"http://a:8080/favicon.ico",
        "text":"Failed to load resource: the server responded with a status of 404 (Not Found)"}})j",
     kind::console, ""},
    {"IconOfThePage", k_log,
     R"({"entry":{"source":"network","text":"lost","url":"http://a/teams/favicon.ico"}})",
     kind::failed_resource, "http://a/teams/favicon.ico: lost"},
    {"NoIcon", k_log, R"({"entry":{"source":"network","text":"lost","url":"/favicon.ico"}})",
     kind::failed_resource, "/favicon.ico: lost"},
    {"ALineOfTheDriver", k_log,
     R"j({"entry":{"source":"rendering","level":"warning","url":"http://a/b.html",
        "text":"[.WebGL-0x55]GL Driver Message (OpenGL, Performance, GL_CLOSE_PATH_NV, High): GPU stall due to ReadPixels"}})j",
     kind::console_warning, ""},
    {"AFaultOfThePagesDrawing", k_log,
     R"({"entry":{"source":"rendering","level":"warning","url":"http://a/b.html",
        "text":"WebGL: INVALID_ENUM: enable: invalid capability"}})",
     kind::console_warning, "b.html: WebGL: INVALID_ENUM: enable: invalid capability"},
    {"SecurityOfTheBrowser", k_log,
     R"({"entry":{"source":"security","level":"error","text":"Refused to run","url":"http://a/b",
        "lineNumber":4}})",
     kind::console_error, "b:5: Refused to run"},
    {"WhatTheBrowserThinksOfIt", k_log,
     R"({"entry":{"source":"deprecation","level":"warning","text":"old"}})", kind::console, ""},
    {"FilmInALicensedFormat", "Runtime.bindingCalled",
     R"({"name":"thinternalMedia","payload":"{\"url\":\"http://a/b\",\"type\":\"avc1\"}"})",
     kind::media,
     "http://a/b: it is H.264 and cannot be played: this browser runtime was built without H.264, "
     "HEVC and AAC. VP9 or AV1 with Opus, in WebM, can be"},
    {"Dialog", "Page.javascriptDialogOpening",
     R"({"url":"file:///x/score.html","type":"alert","message":"no data"})", kind::console,
     "score.html: alert: no data"},
    {"AnotherBinding", "Runtime.bindingCalled", R"({"name":"x","payload":"{}"})", kind::console,
     ""},
    {"AnotherEvent", "Page.frameNavigated", "{}", kind::console, ""},
    {"NoJson", k_log, "{", kind::console, ""},
    {"NoObject", k_log, "[]", kind::console, ""},
};

class PageSaying : public testing::TestWithParam<event_case> {};

TEST_P(PageSaying, IsOneLineWithItsPlace) {
    const auto said = saying_of(GetParam().method, GetParam().parameters);
    ASSERT_EQ(said.has_value(), *GetParam().line != '\0');
    if (!said) return;
    EXPECT_EQ(said->line, GetParam().line);
    EXPECT_EQ(said->kind, GetParam().kind);
}

INSTANTIATE_TEST_SUITE_P(All, PageSaying, testing::ValuesIn(k_events),
                         [](const auto& one) { return std::string(one.param.name); });

// A page sends what it likes: no shape of it may be more than a strange line.
TEST(PageSayings, AnyShapeOfAnEventIsTaken) {
    const char* const k_values[] = {"null", "1", "\"x\"", "[]", "[1]", "{}", "{\"x\":[null]}"};
    const char* const k_places[] = {
        R"({"args":%})",
        R"({"args":[%],"type":%})",
        R"({"args":[{"preview":%,"type":%}],"stackTrace":%})",
        R"({"args":[{"preview":{"properties":[%]}}],"stackTrace":{"callFrames":%}})",
        R"({"stackTrace":{"callFrames":[%]},"lineNumber":%,"url":%})",
        R"({"exceptionDetails":%})",
        R"({"exceptionDetails":{"exception":%,"text":%,"url":%}})",
        R"({"entry":%})",
        R"({"entry":{"source":%,"text":%,"url":%,"level":%}})"};
    for (const std::string place : k_places) {
        for (const std::string value : k_values) {
            std::string event = place;
            for (auto at = event.find('%'); at != event.npos;
                 at = event.find('%', at + value.size()))
                event.replace(at, 1, value);
            for (const char* method : {k_console, k_thrown, k_log}) saying_of(method, event);
        }
    }
}

TEST(PageSayings, WhatDoesNotGoByThePagesClockIsKnownByItsNameAlone) {
    const auto told = [](const std::string& payload) {
        return saying_of("Runtime.bindingCalled",
                         R"({"name":"thinternalClock","payload":)" + payload + "}");
    };
    ASSERT_TRUE(told(R"("WebSocket")"));
    EXPECT_EQ(told(R"("WebSocket")")->kind, kind::clock);
    EXPECT_EQ(told(R"("WebSocket")")->line,
              "clock: a WebSocket: its messages come at no certain frame");
    for (const char* other : {R"("")", R"("web")", R"("WebSocket ")", "7", "null"}) {
        EXPECT_FALSE(told(other)) << other;
    }
}

TEST(PageSayings, ALongLineIsCut) {
    const std::string text(100'000, 'x');
    const auto said =
        saying_of(k_console, R"({"type":"log","args":[{"value":")" + text + R"("}]})");
    ASSERT_TRUE(said);
    EXPECT_LT(said->line.size(), 3000u);
}

TEST(PageSayings, AreCounted) {
    saying_counts counts;
    EXPECT_EQ(counts.text(), "");
    counts.count(kind::console);
    EXPECT_EQ(counts.text(), "");
    counts.count(kind::console_warning);
    EXPECT_EQ(counts.faults(), 0u);
    for (const auto one : {kind::error, kind::error, kind::rejection, kind::failed_resource,
                           kind::media, kind::console_error, kind::clock, kind::sound}) {
        counts.count(one);
    }
    EXPECT_EQ(counts.faults(), 6u);
    EXPECT_EQ(counts.text(),
              "2 uncaught errors, 1 rejected promise, 2 failed resources, 1 console error, 1 "
              "console warning");
}

TEST(ToldSayings, WhatAPageSaysAgainWhenItIsLoadedOnceMoreIsNoNews) {
    const page_saying error{saying_kind::error, "a.html:1: nosuch"};
    const page_saying line{saying_kind::console, "two"};
    told_sayings told;
    told.page_asked_for();
    told.page_begins();
    EXPECT_TRUE(told.is_new(error));
    EXPECT_TRUE(told.is_new(error)) << "said twice";
    told.page_begins();
    EXPECT_FALSE(told.is_new(error));
    EXPECT_TRUE(told.is_new(line));
    EXPECT_FALSE(told.is_new(error));
    EXPECT_TRUE(told.is_new(error)) << "a third time";
    told.page_begins();
    EXPECT_FALSE(told.is_new(line));
    told.page_came();
    EXPECT_TRUE(told.is_new(line));
    told.page_begins();
    EXPECT_TRUE(told.is_new(line)) << "it has moved on";
}

TEST(ToldSayings, WhatThePageBeforeSaysIsItsOwn) {
    const page_saying line{saying_kind::console, "tick"};
    told_sayings told;
    EXPECT_TRUE(told.is_new(line));
    told.page_asked_for();
    EXPECT_TRUE(told.is_new(line));
    told.page_begins();
    EXPECT_TRUE(told.is_new(line));
    told.page_begins();
    EXPECT_FALSE(told.is_new(line));
}

TEST(PageSayings, ThePageItselfBeginsAndNoFrameOfIt) {
    constexpr const char* k_begun = "Page.frameNavigated";
    EXPECT_EQ(begun_page(k_begun, R"({"frame":{"id":"1","url":"a"}})"), "a");
    EXPECT_EQ(begun_page(k_begun, R"({"frame":{"id":"1"}})"), "");
    EXPECT_EQ(begun_page(k_begun, R"({"frame":{"url":"a","parentId":"1"}})"), std::nullopt);
    EXPECT_EQ(begun_page(k_begun, "{"), std::nullopt);
    EXPECT_EQ(begun_page("Page.frameAttached", R"({"frame":{"id":"1"}})"), std::nullopt);
}

std::string logged(const std::string& url, int line, const char* source = "worker") {
    return R"({"entry":{"source":")" + std::string(source) + R"(","url":")" + url +
           R"(","lineNumber":)" + std::to_string(line) + "}}";
}
std::string called(const std::string& url, int line) {
    return R"({"stackTrace":{"callFrames":[{"url":")" + url + R"(","lineNumber":)" +
           std::to_string(line) + "}]}}";
}
std::string threw(const std::string& url, int line) {
    return R"({"exceptionDetails":{"url":")" + url + R"(","lineNumber":)" + std::to_string(line) +
           "}}";
}

TEST(WorkerSayings, AreToldOnceWhicheverWayTheyComeInFirst) {
    worker_sayings workers;
    const auto is_repeated = [&](std::string_view method, const std::string& event) {
        return workers.is_repeated(method, event);
    };
    EXPECT_FALSE(is_repeated(k_console, called("a.js", 3)));
    EXPECT_FALSE(is_repeated(k_console, called("a.js", 3))) << "said twice";
    EXPECT_TRUE(is_repeated(k_log, logged("a.js", 3)));
    EXPECT_TRUE(is_repeated(k_log, logged("a.js", 3)));
    EXPECT_FALSE(is_repeated(k_log, logged("a.js", 3))) << "of one that is not heard itself";
    EXPECT_TRUE(is_repeated(k_console, called("a.js", 3))) << "or is heard later";
    EXPECT_FALSE(is_repeated(k_thrown, threw("a.js", 4)));
    EXPECT_FALSE(is_repeated(k_log, logged("a.js", 5)));
    EXPECT_FALSE(is_repeated(k_log, logged("b.js", 4)));
    EXPECT_TRUE(is_repeated(k_log, logged("a.js", 4)));
}

TEST(WorkerSayings, OfOneThatIsHeardComeByItselfAlone) {
    worker_sayings workers;
    EXPECT_FALSE(workers.is_repeated("Target.attachedToTarget",
                                     R"({"targetInfo":{"type":"worker","url":"a.js"}})"));
    EXPECT_TRUE(workers.is_repeated(k_log, logged("a.js", 3))) << "before it says so itself";
    EXPECT_FALSE(workers.is_repeated(k_console, called("a.js", 3)));
    EXPECT_FALSE(workers.is_repeated(k_log, logged("b.js", 3)));
    EXPECT_FALSE(workers.is_repeated("Target.attachedToTarget", "{"));
    EXPECT_FALSE(workers.is_repeated("Target.attachedToTarget", "{}"));
    EXPECT_FALSE(workers.is_repeated(k_log, logged("", 3)));
}

TEST(WorkerSayings, AreNoneOfAnotherSourceOrWithoutAPlace) {
    worker_sayings workers;
    EXPECT_FALSE(workers.is_repeated(k_console, called("a.js", 3)));
    EXPECT_FALSE(workers.is_repeated(k_log, logged("a.js", 3, "network")));
    EXPECT_FALSE(workers.is_repeated("Page.frameNavigated", logged("a.js", 3)));
    EXPECT_FALSE(workers.is_repeated(k_log, "{"));
    EXPECT_FALSE(workers.is_repeated(k_console, called("", 3)));
    EXPECT_FALSE(workers.is_repeated(k_log, logged("", 3)));
}

TEST(WorkerSayings, OfMoreLinesThanAreFollowedAreAllTold) {
    worker_sayings workers;
    for (int line = 0; line < 1100; ++line) {
        EXPECT_FALSE(workers.is_repeated(k_console, called("a.js", line)));
    }
    EXPECT_TRUE(workers.is_repeated(k_log, logged("a.js", 999)));
    EXPECT_FALSE(workers.is_repeated(k_log, logged("a.js", 1050)));
}

TEST(PageSayings, ASyntaxErrorOfAScriptOfTheHostsHasThePagesAddressAndNothingThrown) {
    const auto is_hosts = [](const std::string& details) {
        return is_hosts_syntax_error(k_thrown, "{\"exceptionDetails\":" + details + "}", "a.html");
    };
    EXPECT_TRUE(is_hosts(R"({"text":"Uncaught SyntaxError: x","url":"a.html"})"));
    EXPECT_TRUE(is_hosts(R"({"text":"Uncaught SyntaxError: x","url":"a.html#top"})"));
    EXPECT_FALSE(is_hosts(R"({"text":"Uncaught SyntaxError: x","url":"http://b/a.js"})"));
    EXPECT_FALSE(is_hosts(R"({"text":"Uncaught TypeError: x","url":"a.html"})"));
    EXPECT_FALSE(
        is_hosts(R"({"text":"Uncaught","url":"a.html","exception":{"className":"SyntaxError"}})"));
    EXPECT_FALSE(is_hosts_syntax_error(k_thrown, "{", "a.html"));
}

TEST(EvaluationFault, IsWhatWasThrownWithItsPlaceInThePage) {
    EXPECT_EQ(evaluation_fault(R"({"result":{"type":"boolean","value":false}})"), "");
    EXPECT_EQ(evaluation_fault(R"({"exceptionDetails":{"text":"Uncaught","exception":{
        "className":"ReferenceError","description":"ReferenceError: a is not defined\n  at x"}}})"),
              "ReferenceError: a is not defined");
    EXPECT_EQ(evaluation_fault(R"({"exceptionDetails":{"text":"Uncaught","exception":{
        "type":"string","value":"no team"},"stackTrace":{"callFrames":[
        {"url":"file:///x/page.html","lineNumber":2,"columnNumber":8}]}}})"),
              "page.html:3:9: no team");
    EXPECT_EQ(evaluation_fault("no answer"), "");
}

}  // namespace
}  // namespace pennywort::host
