// page_inspector_test.cpp - messages of a page's inspector, whatever the page has put into them.
#include "webdisplay/page_inspector.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace pennywort::webdisplay {
namespace {

using nlohmann::json;

// What of a text in a message is heard; "lost" where the message is.
std::string heard_of(const std::string& text) {
    std::string heard = "lost";
    page_inspector inspector([](const std::string&) {},
                             [&](const std::string&, const json& params, const std::string&) {
                                 heard = message_text(params, "/text");
                             });
    inspector.take(R"({"method":"A.b","params":{"text":")" + text + R"("}})");
    return heard;
}

// "\ufffd" in UTF-8.
const std::string k_part = "\xEF\xBF\xBD";

struct text_case {
    const char* sent;
    std::string heard;
};

class InspectorText : public testing::TestWithParam<text_case> {};

TEST_P(InspectorText, IsHeardThoughAScriptHasCutACharacter) {
    EXPECT_EQ(heard_of(GetParam().sent), GetParam().heard);
}

INSTANTIATE_TEST_SUITE_P(
    Halves, InspectorText,
    testing::Values(text_case{R"(a\ud83d)", "a" + k_part}, text_case{R"(\uD83D b)", k_part + " b"},
                    text_case{R"(\ude00)", k_part}, text_case{R"(\ude00\ud83d)", k_part + k_part},
                    text_case{R"(\ud83d\ud83d\ude00)", k_part + "\xF0\x9F\x98\x80"},
                    text_case{R"(\ud83d\ude00\ude00)", "\xF0\x9F\x98\x80" + k_part},
                    text_case{R"(\ud83d\n\u00e9)", k_part + "\n\xC3\xA9"},
                    // What only looks like one stays what it is.
                    text_case{R"(\\ud83d \ud83d)", R"(\ud83d )" + k_part},
                    text_case{R"(\\\ud83d)", "\\" + k_part},
                    text_case{R"(\"\ud83d\")", "\"" + k_part + "\""},
                    text_case{R"(ud83d \ud83d)", "ud83d " + k_part}));

INSTANTIATE_TEST_SUITE_P(NoText, InspectorText,
                         testing::Values(text_case{R"(\ud83d\uzzzz)", "lost"},
                                         text_case{R"(\ud83d\u12)", "lost"},
                                         text_case{"\\ud83d\xff", "lost"},
                                         text_case{R"(\ud83d\)", "lost"}));

TEST(PageInspector, AMessageMayEndAnywhere) {
    const std::string whole = R"({"method":"A.b","params":{"text":"\\\ud83d\ud83d\ude00\ud83d"}})";
    int heard = 0;
    page_inspector inspector([](const std::string&) {},
                             [&](const std::string&, const json&, const std::string&) { ++heard; });
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        EXPECT_NO_THROW(inspector.take(whole.substr(0, size))) << size;
    }
    EXPECT_EQ(heard, 1);
}

TEST(PageInspector, AnAnswerWithHalfACharacterFindsItsAsker) {
    std::string sent;
    std::string value;
    page_inspector inspector([&](const std::string& message) { sent = message; },
                             [](const std::string&, const json&, const std::string&) {});
    inspector.call("Runtime.evaluate", json::object(),
                   [&](const json& result) { value = value_of_result(result); });
    const int id = json::parse(sent)["id"];
    inspector.take(R"({"id":)" + std::to_string(id) +
                   R"(,"result":{"result":{"type":"string","value":"cut \ud83d"}}})");
    EXPECT_EQ(value, "cut " + k_part);
}

TEST(PageInspector, AnAnswerThatComesTwiceIsHeardOnce) {
    std::string sent;
    int heard = 0;
    page_inspector inspector([&](const std::string& message) { sent = message; },
                             [](const std::string&, const json&, const std::string&) {});
    inspector.call("A.b", json::object(), [&](const json&) { ++heard; });
    const std::string answer =
        R"({"id":)" + std::to_string(json::parse(sent)["id"].get<int>()) + R"(,"result":{}})";
    inspector.take(answer);
    inspector.take(answer);
    EXPECT_EQ(heard, 1);
}

}  // namespace
}  // namespace pennywort::webdisplay
