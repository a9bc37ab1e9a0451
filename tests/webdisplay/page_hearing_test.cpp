// page_hearing_test.cpp - how what a page's scripts make and the files that it plays become one
// sound, and what of it the page's own scripts never see.
#include "webdisplay/page_hearing.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {
namespace {

using json = nlohmann::json;
using strings = std::vector<std::string>;

constexpr const char* k_made = "96:AACAPwAAAL8=";    // 1 and -0.5
constexpr const char* k_played = "96:AAAAPwAAAD8=";  // 0.5 and 0.5

class quiet_port final : public timeline_port {
public:
    void send_to_inspector(const std::string&) override {}
    bool begin_frame(std::int64_t) override { return true; }
    void load_page() override {}
    void page_stands() override {}
    void page_fails(const std::string&) override {}
    void page_sounds(const page_samples& samples) override { heard.push_back(samples); }
    std::string bytes_of_file(const std::string& url) override {
        return url == "file:///a" ? file : std::string();
    }

    std::vector<page_samples> heard;
    std::string file;
};

class PageHearing : public testing::Test {
protected:
    void take(const std::string& said, bool is_hurried = false) {
        hearing.take(said, is_hurried, [this] { ++m_ended; });
    }
    void answer(const json& result) {
        const json call = m_sent.at(m_answered++);
        inspector.take(json{{"id", call["id"]}, {"result", result}}.dump());
    }
    void answer_value(const std::string& value) {
        answer({{"result", {{"type", "string"}, {"value", value}}}});
    }
    void hear(const char* method, const json& parameters = json::object()) {
        inspector.take(json{{"method", method}, {"params", parameters}}.dump());
    }
    void make_world(int number = 7) {
        answer({{"frameTree", {{"frame", {{"id", "F"}}}}}});
        answer({{"executionContextId", number}});
        answer_value("");
    }
    // What has been sent and not answered: methods, and expressions with their world.
    strings open() const {
        strings all;
        for (std::size_t i = m_answered; i < m_sent.size(); ++i) {
            const json& params = m_sent[i]["params"];
            const std::string method = m_sent[i]["method"];
            all.push_back(method != "Runtime.evaluate"
                              ? method
                              : std::to_string(params["contextId"].get<int>()) + " " +
                                    params["expression"].get<std::string>());
        }
        return all;
    }
    std::vector<float> last_heard() const {
        return port.heard.empty() ? std::vector<float>() : port.heard.back().samples;
    }
    void call_binding(const char* name, int world, const std::string& url) {
        hear("Runtime.bindingCalled",
             {{"name", name}, {"executionContextId", world}, {"payload", url}});
    }

    std::vector<json> m_sent;
    std::size_t m_answered = 0;
    int m_ended = 0;
    quiet_port port;
    page_inspector inspector{
        [this](const std::string& text) { m_sent.push_back(json::parse(text)); },
        [this](const std::string& method, const json& params, const std::string&) {
            hearing.hear(method, params);
        }};
    page_hearing hearing{inspector, port};
};

TEST_F(PageHearing, WithoutAnOrderTheInspectorIsAskedNothing) {
    for (const char* said : {"", "nonsense", k_made, "96:AACAPwAAAL8=\n"}) take(said);
    EXPECT_EQ(m_ended, 4);
    EXPECT_EQ(open(), strings{});
    EXPECT_EQ(port.heard.size(), 2u);
    EXPECT_EQ(last_heard(), (std::vector<float>{1, -0.5f}));
}

TEST_F(PageHearing, AnOrderGoesToAWorldOfItsOwnAndBothAreHeardAtOnce) {
    take(std::string(k_made) + "\n{1}");
    EXPECT_EQ(open(), strings{"Page.getFrameTree"});
    answer({{"frameTree", {{"frame", {{"id", "F"}}}}}});
    ASSERT_EQ(open(), strings{"Page.createIsolatedWorld"});
    EXPECT_EQ(m_sent.back()["params"], (json{{"frameId", "F"}, {"worldName", "thinternal sound"}}))
        << "without a right that the page itself has not";
    answer({{"executionContextId", 7}});
    ASSERT_EQ(open(), strings{"7 " + page_scripts::sound_world_script()});
    answer_value("");
    EXPECT_EQ(open(), strings{R"(7 thinternalSound.hear("{1}",false))"});
    EXPECT_EQ(m_ended, 0);
    answer_value(k_played);
    EXPECT_EQ(m_ended, 1);
    EXPECT_EQ(last_heard(), (std::vector<float>{1.5f, 0}));
    take("\n{2}");
    EXPECT_EQ(open(), strings{R"(7 thinternalSound.hear("{2}",false))"}) << "it is made once";
    answer_value(k_played);
    EXPECT_EQ(last_heard(), (std::vector<float>{0.5f, 0.5f}));
}

// A page may say what it likes; it is a text there, and no script.
TEST_F(PageHearing, AnOrderStaysAText) {
    take("\n{1}");
    make_world();
    answer_value("");
    take("\n\");steal(\"\\\xE2\x80\xA8\xFF\n");
    EXPECT_EQ(open(), strings{R"(7 thinternalSound.hear("\");steal(\"\\\u2028\ufffd\n",false))"});
}

TEST_F(PageHearing, AnotherDocumentHasAnotherWorld) {
    take("\n{1}");
    make_world();
    answer_value("");
    hear("Page.frameNavigated", {{"frame", {{"id", "G"}, {"parentId", "F"}}}});
    take("\n{2}");
    EXPECT_EQ(open(), strings{R"(7 thinternalSound.hear("{2}",false))"}) << "of a frame";
    answer_value("");
    hear("Page.frameNavigated", {{"frame", {{"id", "F"}}}});
    take("\n{3}");
    make_world(8);
    EXPECT_EQ(open(), strings{R"(8 thinternalSound.hear("{3}",false))"});
    answer_value("");
    hear("Runtime.executionContextsCleared");
    take("\n{4}");
    EXPECT_EQ(open(), strings{"Page.getFrameTree"});
}

TEST_F(PageHearing, WithoutAWorldTheScriptsAreHeardAndTheNextFrameTriesAgain) {
    take(std::string(k_made) + "\n{1}");
    for (int n = 0; n < 4; ++n) answer(nullptr);
    EXPECT_EQ(m_ended, 1);
    EXPECT_EQ(last_heard(), (std::vector<float>{1, -0.5f}));
    take("\n{2}");
    make_world();
    answer(nullptr);  // it has gone meanwhile
    EXPECT_EQ(m_ended, 2);
    take("\n{3}");
    EXPECT_EQ(open(), strings{"Page.getFrameTree"});
}

TEST_F(PageHearing, AHurriedFrameHurriesWhatWaitsForAFile) {
    take("", true);
    EXPECT_EQ(m_ended, 1);
    EXPECT_EQ(open(), strings{}) << "nothing can";
    take("\n{1}");
    make_world();
    take("", true);
    EXPECT_EQ(open(), (strings{R"(7 thinternalSound.hear("{1}",false))",
                               R"(7 thinternalSound.hear("",true))"}));
}

// --- files

TEST_F(PageHearing, AFileOfThisMachineGoesToThatWorldOnly) {
    hearing.prepare();
    EXPECT_EQ(m_sent.back()["params"],
              (json{{"name", "thinternalFile"}, {"executionContextName", "thinternal sound"}}));
    answer(json::object());
    port.file = "abc";
    take("\n{1}");
    make_world();
    answer_value("");
    call_binding("thinternalFile", 1, "file:///a");
    call_binding("thinternalFilms", 7, "file:///a");
    EXPECT_EQ(open(), strings{}) << "a script of the page's";
    call_binding("thinternalFile", 7, "file:///a");
    call_binding("thinternalFile", 7, "file:///b'\"");
    EXPECT_EQ(open(), (strings{R"(7 thinternalSound.take_file("file:///a",3,'YWJj'))",
                               R"(7 thinternalSound.take_file("file:///b'\"",0,''))"}));
}

TEST_F(PageHearing, ALongFileComesInPieces) {
    port.file = std::string((6 << 18) + 1, 'x');
    take("\n{1}");
    make_world();
    answer_value("");
    call_binding("thinternalFile", 7, "file:///a");
    const strings parts = open();
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(parts[0].size(), parts[1].size());
    EXPECT_EQ(parts[2], R"(7 thinternalSound.take_file("file:///a",1572865,'eA=='))");
}

// What it is driven by stands in the page's own world, and any script may change it.
TEST_F(PageHearing, ADriverThatThrowsIsToldOnceInAWorldThatThePageCannotReach) {
    hearing.driver_threw();
    make_world(7);
    ASSERT_EQ(open().size(), 1u);
    EXPECT_EQ(open()[0].substr(0, 34), "7 console.warn('thinternal sound: ");
    answer_value("");
    hearing.driver_threw();
    EXPECT_EQ(open(), strings{});
    hear("Page.frameNavigated", {{"frame", {{"id", "F"}}}});
    hearing.driver_threw();
    EXPECT_EQ(open(), strings{"Page.getFrameTree"}) << "the next page, too";
}

TEST_F(PageHearing, AnOrderThatTheWorldCannotReadIsToldToo) {
    take("\nno order");
    make_world(7);
    ASSERT_EQ(open().size(), 1u);
    answer({{"result", {{"type", "object"}}}, {"exceptionDetails", {{"text", "Uncaught"}}}});
    EXPECT_EQ(m_ended, 1);
    ASSERT_EQ(open().size(), 1u);
    EXPECT_EQ(open()[0].substr(0, 14), "7 console.warn");
}

}  // namespace
}  // namespace pennywort::webdisplay
