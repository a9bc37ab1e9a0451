// terminal_text_test.cpp - others' texts where a terminal shows them: in one line, with codes, and
// in JSON.
#include "host/app/terminal_text.h"

#include <gtest/gtest.h>

#include <string>

#include "host/app/json.h"

namespace pennywort::host {
namespace {

TEST(TerminalText, PlainTextStays) {
    for (const std::string text : {"", "a b", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC2\xA0"}) {
        EXPECT_EQ(in_one_line(text), text);
        EXPECT_EQ(with_codes(text), text);
        EXPECT_EQ(json_text(text), "\"" + text + "\"");
    }
}

struct obeyed {
    const char* text;
    const char* codes;
    const char* json;
};

TEST(TerminalText, HoldsNothingThatATerminalObeys) {
    constexpr obeyed k_all[] = {
        {"\x1B", "\\x1B", "\\u001b"},
        {"\n", "\\x0A", "\\n"},
        {"\x7F", "\\x7F", "\\u007f"},
        {"\xC2\x9B", "\\xC2\\x9B", "\\u009b"},
        {"\xC2\xAD", "\\xC2\\xAD", "\\u00ad"},
        {"\xE2\x80\xA8", "\\xE2\\x80\\xA8", "\\u2028"},
        {"\xE2\x80\xAE", "\\xE2\\x80\\xAE", "\\u202e"},
        {"\xE2\x81\xA6", "\\xE2\\x81\\xA6", "\\u2066"},
        {"\xEF\xBB\xBF", "\\xEF\\xBB\\xBF", "\\ufeff"},
        {"\xEF\xBF\xBB", "\\xEF\\xBF\\xBB", "\\ufffb"},
    };
    for (const obeyed& one : k_all) {
        SCOPED_TRACE(one.codes);
        const std::string text = "a" + std::string(one.text) + "b";
        EXPECT_EQ(in_one_line(text), "a b");
        EXPECT_EQ(with_codes(text), "a" + std::string(one.codes) + "b");
        EXPECT_EQ(json_text(text), "\"a" + std::string(one.json) + "b\"");
    }
}

TEST(TerminalText, BytesThatAreNoUtf8AreSeenAsWhatTheyAre) {
    EXPECT_EQ(in_one_line("a\xFF\x80z"), "a  z");
    EXPECT_EQ(with_codes("a\xFF\x80z"), "a\\xFF\\x80z");
    EXPECT_EQ(with_codes("\xE2\x82"), "\\xE2\\x82");
}

}  // namespace
}  // namespace pennywort::host
