// tests/host/live_control_test.cpp - the JSON interface of the control page, with a port that only
// notes what it is asked for.
#include "host/live/live_control.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "core/limits.h"
#include "tests/support/fake_clock.h"

namespace pennywort::host {
namespace {

class noting_port : public live_port {
public:
    void load(const std::string& url) override { notes.push_back("load " + url); }
    void resize(long width, long height) override {
        notes.push_back("size " + std::to_string(width) + " " + std::to_string(height));
    }
    void set_visible(bool visible) override { notes.push_back(visible ? "show" : "hide"); }
    void repaint() override { notes.push_back("repaint"); }
    void run_script(std::uint64_t id, const std::string& script) override {
        notes.push_back("script " + std::to_string(id) + " " + script);
    }
    void delete_cookies(const std::string& url) override { notes.push_back("cookies " + url); }

    std::vector<std::string> notes;
};

using strings = std::vector<std::string>;

class LiveControl : public testing::Test {
protected:
    live_answer post(const std::string& path, const std::string& body) {
        return control.answer({live_request::verb::post, path, "", body});
    }
    live_answer get(const std::string& path, const std::string& query = "") {
        return control.answer({live_request::verb::get, path, query, ""});
    }
    bool state_has(const std::string& part) {
        return get("/api/state").body->find(part) != std::string::npos;
    }

    noting_port port;
    live_pictures pictures;
    tests::fake_clock clock;
    live_control control{port, pictures, {"http://one", "http://two"}, clock};
};

struct command_case {
    const char* name;
    const char* path;
    const char* body;
    const char* names;
};
void PrintTo(const command_case& c, std::ostream* out) { *out << c.name; }

constexpr command_case k_refused_commands[] = {
    {"NoJson", "/api/load", "url", "JSON"},
    {"NoUrl", "/api/load", "{}", "url"},
    {"UrlIsNumber", "/api/load", "{\"url\":1}", "url"},
    {"EmptyUrl", "/api/load", "{\"url\":\"\"}", ""},
    {"PageThatEndsTheProgram", "/api/load", "{\"url\":\"chrome://inducebrowsercrashforrealz\"}",
     "of the browser's own"},
    {"MissingFile", "/api/load", "{\"url\":\"no-such.html\"}", "no-such.html"},
    {"NoWidth", "/api/size", "{\"height\":5}", "width"},
    {"ZeroWidth", "/api/size", "{\"width\":0,\"height\":5}", "width"},
    {"NegativeHeight", "/api/size", "{\"width\":5,\"height\":-5}", "height"},
    {"HugeWidth", "/api/size", "{\"width\":16385,\"height\":5}", "16384"},
    {"HalfPixel", "/api/size", "{\"width\":5.5,\"height\":5}", "whole"},
    {"SizeIsText", "/api/size", "{\"width\":\"5\",\"height\":5}", "width"},
    {"NoVisible", "/api/visibility", "{}", "visible"},
    {"VisibleIsNumber", "/api/visibility", "{\"visible\":1}", "visible"},
    {"NoScript", "/api/script", "{}", "script"},
    {"EmptyScript", "/api/script", "{\"script\":\"\"}", "script"},
    {"CookiesOfNothing", "/api/cookies/delete", "", "url"},
    {"CookiesOfAName", "/api/cookies/delete", "{\"url\":\"example.org\"}", "no URL"},
    {"NowIsAText", "/api/load", "{\"url\":\"http://x\",\"now\":\"false\"}", "now"},
    {"NowIsANumber", "/api/load", "{\"url\":\"http://x\",\"now\":0}", "now"},
    {"NoIndex", "/api/remove", "{}", "index"},
    {"IndexPastTheEnd", "/api/remove", "{\"index\":2}", "index"},
    {"NegativeIndex", "/api/remove", "{\"index\":-1}", "index"},
};

class RefusedCommand : public LiveControl, public testing::WithParamInterface<command_case> {};

TEST_P(RefusedCommand, IsToldAndNotCarriedOut) {
    const auto answer = post(GetParam().path, GetParam().body);
    EXPECT_EQ(answer.status, 400);
    EXPECT_EQ(answer.body->rfind("{\"error\":\"", 0), 0u) << *answer.body;
    EXPECT_NE(answer.body->find(GetParam().names), std::string::npos) << *answer.body;
    EXPECT_TRUE(port.notes.empty());
}

INSTANTIATE_TEST_SUITE_P(All, RefusedCommand, testing::ValuesIn(k_refused_commands),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(LiveControl, UnknownPathsAndWrongMethodsAreRefused) {
    EXPECT_EQ(get("/api/none").status, 404);
    EXPECT_EQ(post("/api/none", "{}").status, 404);
    EXPECT_EQ(get("/api/repaint").status, 405);
    EXPECT_EQ(post("/api/state", "{}").status, 405);
    EXPECT_TRUE(port.notes.empty());
}

TEST_F(LiveControl, NextOfAnEmptyQueueIsRefused) {
    post("/api/next", "");
    post("/api/next", "");
    EXPECT_EQ(post("/api/next", "").status, 400);
    EXPECT_EQ(port.notes, (strings{"load http://one", "load http://two"}));
}

TEST_F(LiveControl, AFullQueueTakesNoMore) {
    for (int i = 0; i < 998; ++i) {
        ASSERT_EQ(post("/api/load", "{\"url\":\"http://x\",\"now\":false}").status, 200);
    }
    EXPECT_EQ(post("/api/load", "{\"url\":\"http://x\",\"now\":false}").status, 400);
}

TEST_F(LiveControl, CarriesOutCommands) {
    EXPECT_EQ(post("/api/load", "{\"url\":\"about:blank\"}").status, 200);
    post("/api/size", "{\"width\":640,\"height\":1}");
    post("/api/visibility", "{\"visible\":false}");
    post("/api/repaint", "");
    post("/api/cookies/delete", "{\"url\":\"\"}");
    EXPECT_EQ(port.notes,
              (strings{"load about:blank", "size 640 1", "hide", "repaint", "cookies "}));
}

// Who has asked for the page on air once more must not take the old one for it.
TEST_F(LiveControl, APageIsOnItsWayAsSoonAsItIsAskedFor) {
    live_status status;
    status.url = "http://a";
    status.phase = live_phase::on_air;
    status.error = "why";
    control.set_status(status);
    post("/api/load", "{\"url\":\"http://a\"}");
    post("/api/next", "");
    status.loads = 1;
    control.set_status(status);
    EXPECT_TRUE(state_has("\"phase\":\"loading\"")) << "the second has not been carried out";
    EXPECT_TRUE(state_has("\"wanted\":\"http://one\""));
    EXPECT_TRUE(state_has("\"error\":\"\""));
    status.loads = 2;
    control.set_status(status);
    EXPECT_TRUE(state_has("\"phase\":\"on_air\""));
    EXPECT_TRUE(state_has("\"error\":\"why\""));
}

TEST_F(LiveControl, TheFirstPageIsStillStarting) {
    post("/api/load", "{\"url\":\"http://a\"}");
    EXPECT_TRUE(state_has("\"phase\":\"starting\""));
}

TEST_F(LiveControl, TheQueueGrowsAndShrinks) {
    post("/api/load", "{\"url\":\"http://three\",\"now\":false}");
    post("/api/remove", "{\"index\":1}");
    EXPECT_TRUE(state_has("\"queue\":[\"http://one\",\"http://three\"]"));
    EXPECT_TRUE(port.notes.empty());
}

TEST_F(LiveControl, AScriptsResultIsKeptUntilItIsAskedFor) {
    EXPECT_EQ(*post("/api/script", "{\"script\":\"1+1\"}").body, "{\"id\":1}");
    EXPECT_EQ(port.notes, strings{"script 1 1+1"});
    EXPECT_EQ(*get("/api/result", "id=1").body, "{\"id\":1,\"state\":\"waiting\"}");
    control.script_ended(1, "fine", "\"2\"");
    EXPECT_EQ(*get("/api/result", "id=1").body,
              "{\"id\":1,\"state\":\"fine\",\"result\":\"\\\"2\\\"\"}");
    EXPECT_EQ(get("/api/result", "id=2").status, 404);
}

TEST_F(LiveControl, OnlyTheNewestScriptsAreRemembered) {
    for (int i = 0; i < 101; ++i) post("/api/script", "{\"script\":\"1\"}");
    EXPECT_EQ(get("/api/result", "id=1").status, 404);
    EXPECT_EQ(get("/api/result", "id=2").status, 200);
    control.script_ended(1, "fine", "forgotten");
}

TEST_F(LiveControl, EventsAreGivenFromANumberOn) {
    control.events().add("loaded", "a");
    control.events().add("failed", "b\xFF");
    EXPECT_EQ(
        *get("/api/events", "x=1&after=1").body,
        "{\"last\":2,\"lines\":[{\"number\":2,\"kind\":\"failed\",\"text\":\"b\xEF\xBF\xBD\"}]}");
    EXPECT_EQ(*get("/api/traces").body, "{\"last\":0,\"lines\":[]}");
}

TEST_F(LiveControl, NumbersThatAreNoneAreRefused) {
    for (const char* path : {"/api/events", "/api/traces", "/api/picture"}) {
        for (const char* after : {"after=abc", "after=", "after=-1", "after=1x"}) {
            EXPECT_EQ(get(path, after).status, 400) << path << after;
        }
    }
    EXPECT_EQ(get("/api/result", "id=one").status, 400);
}

// A page outlives the program that it shows, and the next one counts from 1 again.
TEST_F(LiveControl, EventsAreGivenToAReaderOfAnotherRun) {
    control.events().add("loaded", "a");
    const std::string one = "{\"number\":1,\"kind\":\"loaded\",\"text\":\"a\"}";
    EXPECT_EQ(*get("/api/events", "after=2").body, "{\"last\":1,\"lines\":[" + one + "]}");
    EXPECT_EQ(*get("/api/events", "after=1").body, "{\"last\":1,\"lines\":[]}");
}

TEST_F(LiveControl, OldEventsGoAndLongOnesAreCut) {
    for (int i = 0; i < 501; ++i) control.events().add("page", std::string(5000, 'x'));
    const auto text = *get("/api/events").body;
    EXPECT_EQ(text.find("{\"number\":1,"), std::string::npos);
    EXPECT_NE(text.find("{\"number\":2,"), std::string::npos);
    EXPECT_EQ(text.find(std::string(4097, 'x')), std::string::npos);
}

// Or a page could fill the program's memory by what it returns, and a user by what waits.
TEST_F(LiveControl, LongResultsAreCutAndTheQueueIsBounded) {
    const std::size_t longest = 1 << 20;
    post("/api/script", "{\"script\":\"x\"}");
    control.script_ended(1, "fine", std::string(longest + 5, 'r'));
    EXPECT_EQ(*get("/api/result", "id=1").body,
              "{\"id\":1,\"state\":\"fine\",\"result\":\"" + std::string(longest, 'r') + "\"}");
    const std::string page = "{\"url\":\"data:," + std::string(1000000, 'u') + "\",\"now\":false}";
    for (int i = 0; i < 4; ++i) EXPECT_EQ(post("/api/load", page).status, 200) << i;
    const auto fifth = post("/api/load", page);
    EXPECT_EQ(fifth.status, 400);
    EXPECT_EQ(*fifth.body, "{\"error\":\"the queue is full\"}");
    EXPECT_EQ(post("/api/load", "{\"url\":\"about:blank\",\"now\":false}").status, 200);
}

TEST_F(LiveControl, TellsHowTheDisplayStands) {
    live_status status;
    status.url = "about:blank";
    status.is_loading = true;
    status.is_visible = false;
    status.width = 64;
    status.height = 48;
    control.set_status(status);
    EXPECT_TRUE(
        state_has("\"url\":\"about:blank\",\"loading\":true,\"visible\":false,"
                  "\"width\":64,\"height\":48,\"painted\":0"));
}

TEST_F(LiveControl, TellsWhatIsOnAirAndWhatHasFailedAndWhy) {
    live_status status;
    status.url = "http://good/";
    status.phase = live_phase::failed;
    status.wanted = "http://bad/";
    status.error = "ERR_NAME_NOT_RESOLVED";
    status.since = clock.now();
    status.is_silent = true;
    status.reloads = 2;
    status.dropped_calls = 7;
    control.set_status(status);
    clock.advance(std::chrono::milliseconds(1500));
    EXPECT_TRUE(state_has("{\"url\":\"http://good/\",\"loading\":false,"));
    EXPECT_TRUE(
        state_has("\"phase\":\"failed\",\"since_ms\":1500,\"wanted\":\"http://bad/\","
                  "\"error\":\"ERR_NAME_NOT_RESOLVED\",\"silent\":true,\"reloads\":2,"
                  "\"dropped_calls\":7,"));
}

TEST_F(LiveControl, AScriptThatIsNotAnsweredIsLostAfterAWhile) {
    post("/api/script", "{\"script\":\"1+1\"}");
    clock.advance(k_max_script_wait);
    EXPECT_EQ(*get("/api/result", "id=1").body, "{\"id\":1,\"state\":\"waiting\"}");
    clock.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(*get("/api/result", "id=1").body, "{\"id\":1,\"state\":\"lost\"}");
    control.script_ended(1, "fine", "2");
    EXPECT_EQ(*get("/api/result", "id=1").body, "{\"id\":1,\"state\":\"fine\",\"result\":\"2\"}");
}

// The picture is made by another thread, so it is asked for until it is there.
live_answer wait_for_picture(live_control& control, std::uint64_t after) {
    for (;;) {
        auto answer = control.answer(
            {live_request::verb::get, "/api/picture", "after=" + std::to_string(after), ""});
        if (answer.status != 204) return answer;
        std::this_thread::yield();
    }
}

TEST_F(LiveControl, APictureIsGivenOnceAndThenOnlyANewerOne) {
    EXPECT_EQ(get("/api/picture").status, 204);
    const std::vector<std::uint32_t> pixels(6, 0xFF102030);
    pictures.painted(pixels.data(), 3, 2);
    const auto first = wait_for_picture(control, 0);
    EXPECT_EQ(first.type, "image/png");
    EXPECT_EQ(first.body->substr(1, 3), "PNG");
    EXPECT_EQ(get("/api/picture", "after=" + std::to_string(first.picture)).status, 204);
    pictures.painted(pixels.data(), 2, 3);
    EXPECT_GT(wait_for_picture(control, first.picture).picture, first.picture);
}

TEST_F(LiveControl, PicturesThatNobodyTakesAreDroppedAndCounted) {
    const std::vector<std::uint32_t> pixels(6, 0xFF102030);
    for (int i = 0; i < 100; ++i) pictures.painted(pixels.data(), 3, 2);
    EXPECT_EQ(pictures.counts().painted, 100u);
    EXPECT_EQ(pictures.counts().encoded, 0u);
    EXPECT_EQ(pictures.counts().dropped, 99u);
}

}  // namespace
}  // namespace pennywort::host
