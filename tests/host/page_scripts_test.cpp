// tests/host/page_scripts_test.cpp - what pages answer, in the words that the user is told.
#include "host/render/page_scripts.h"

#include <gtest/gtest.h>

namespace pennywort::host {
namespace {

TEST(PageScripts, WhatAScriptThrewIsToldWithItsLine) {
    EXPECT_EQ(thrown_text("a.js", "4 Error: no such team"), "a.js:3: Error: no such team");
}

TEST(PageScripts, WithoutALineOnlyTheScriptIsNamed) {
    EXPECT_EQ(thrown_text("a.js", "0 Error: bad"), "a.js: Error: bad");
    EXPECT_EQ(thrown_text("a.js", "Error: bad"), "a.js: Error: bad");
}

TEST(PageScripts, AScriptThatIsNoneIsToldWithItsLine) {
    EXPECT_EQ(parse_fault("a.js", line_count("one\ntwo\nthis is no script\n"),
                          "4 Uncaught SyntaxError: Failed to execute 'appendChild' on 'Node': "
                          "Unexpected identifier 'is'"),
              "a.js:3: SyntaxError: Unexpected identifier 'is'");
}

// The parser finds it behind the script, where our own text begins.
TEST(PageScripts, WhatIsMissingAtTheEndIsToldInTheLastLine) {
    for (const char* script : {"one\nif (1) {\n", "one\nif (1) {"}) {
        EXPECT_EQ(parse_fault("a.js", line_count(script), "5 SyntaxError: Unexpected token ')'"),
                  "a.js:2: SyntaxError: Unexpected token ')'");
    }
}

TEST(PageScripts, AnExpressionIsToldWithoutALine) {
    EXPECT_EQ(parse_fault("--wait-for n <", line_count(""), "2 SyntaxError: bad"),
              "--wait-for n <: SyntaxError: bad");
}

TEST(PageScripts, AScriptThatCanBeParsedHasNoFault) {
    EXPECT_EQ(parse_fault("a.js", 1, "fine"), "");
}

TEST(PageScripts, APageThatForbidsTheCheckIsNamedAsTheReason) {
    EXPECT_NE(parse_fault("a.js", 1, "blocked").find("a.js is no JavaScript"), std::string::npos);
}

TEST(PageScripts, TheCheckHoldsTheScriptAsAText) {
    EXPECT_NE(parse_check("say(\"a\\\n\")").find("\"say(\\\"a\\\\\\n\\\")\""), std::string::npos);
}

}  // namespace
}  // namespace pennywort::host
