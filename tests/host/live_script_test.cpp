// tests/host/live_script_test.cpp - a script and its value, with a page that answers as it is told.
// What a real page makes of the texts is tested in tests/live.
#include "host/live/live_script.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace pennywort::host {
namespace {

class LiveScript : public testing::Test {
protected:
    using returned_function = std::function<void(const std::string&)>;

    void run(const std::string& script) {
        run_live_script(
            script,
            [this](const std::string& body, returned_function returned) {
                if (!has_page) return false;
                bodies.push_back(body);
                waiting.push_back(std::move(returned));
                return true;
            },
            [this](const std::string& kind, const std::string& result) {
                outcomes.push_back(kind + ": " + result);
            });
    }
    void answer(std::size_t index, const std::string& text) { waiting.at(index)(text); }
    bool sent(std::size_t index, const std::string& part) {
        return bodies.at(index).find(part) != std::string::npos;
    }

    bool has_page = true;
    std::vector<std::string> bodies;
    std::vector<returned_function> waiting;
    std::vector<std::string> outcomes;
};

using strings = std::vector<std::string>;

TEST_F(LiveScript, TheValueIsTold) {
    run("a\"b");
    ASSERT_EQ(bodies.size(), 1u);
    EXPECT_TRUE(sent(0, "(0,eval)(\"a\\\"b\")"));
    EXPECT_TRUE(outcomes.empty());
    answer(0, "f42");
    EXPECT_EQ(outcomes, strings{"fine: 42"});
    EXPECT_EQ(bodies.size(), 1u);
}

TEST_F(LiveScript, AnErrorIsTold) {
    run("x");
    answer(0, "tReferenceError");
    EXPECT_EQ(outcomes, strings{"thrown: ReferenceError"});
}

TEST_F(LiveScript, AnAnswerThatIsNoneOfOursIsAnError) {
    run("x");
    answer(0, "");
    EXPECT_EQ(outcomes, strings{"thrown: "});
}

TEST_F(LiveScript, WithoutAPageThatIsTold) {
    has_page = false;
    run("x");
    EXPECT_EQ(outcomes, strings{"thrown: there is no page"});
}

TEST_F(LiveScript, WhereEvalIsBarredItIsAnExpression) {
    run("1 + 1 // two ; \n");
    answer(0, "bEvalError");
    ASSERT_EQ(bodies.size(), 3u);
    EXPECT_TRUE(sent(1, "((\n1 + 1 // two\n))")) << bodies[1];
    EXPECT_FALSE(sent(1, "eval"));
    answer(1, "f2");
    answer(2, "");
    EXPECT_EQ(outcomes, strings{"fine: 2"});
    EXPECT_EQ(bodies.size(), 3u);
}

TEST_F(LiveScript, AnExpressionThatThrowsIsNotTriedAgain) {
    run("x");
    answer(0, "bEvalError");
    answer(1, "tReferenceError");
    answer(2, "");
    EXPECT_EQ(outcomes, strings{"thrown: ReferenceError"});
    EXPECT_EQ(bodies.size(), 3u);
}

TEST_F(LiveScript, WhatIsNoExpressionIsABody) {
    run("if (a) return 5;");
    answer(0, "bEvalError");
    answer(2, "");
    ASSERT_EQ(bodies.size(), 5u);
    EXPECT_TRUE(sent(3, "function(){\nif (a) return 5;\n}")) << bodies[3];
    answer(3, "f5");
    answer(4, "");
    EXPECT_EQ(outcomes, strings{"fine: 5"});
}

TEST_F(LiveScript, WhatIsNeitherIsToldWithThePagesOwnWords) {
    run("this is no script");
    answer(0, "bEvalError: policy");
    answer(2, "");
    answer(4, "");
    ASSERT_EQ(outcomes.size(), 1u);
    EXPECT_EQ(outcomes[0].rfind("thrown: ", 0), 0u);
    EXPECT_NE(outcomes[0].find("EvalError: policy"), std::string::npos);
    EXPECT_EQ(bodies.size(), 5u);
}

TEST_F(LiveScript, APageThatIsLeftBeforeItAnswersTellsNothing) {
    run("x");
    answer(0, "bEvalError");
    waiting.clear();
    EXPECT_TRUE(outcomes.empty());
}

TEST_F(LiveScript, APageThatGoesBetweenTheFormsIsTold) {
    run("x");
    has_page = false;
    answer(0, "bEvalError");
    EXPECT_EQ(outcomes, strings{"thrown: there is no page"});
}

}  // namespace
}  // namespace pennywort::host
