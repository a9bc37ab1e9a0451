// bridge_values_test.cpp - values on their way through the bridge, from the page and to the host.
#include <ostream>
#include <string>
#include <utility>

#include "harness.h"

namespace pennywort::runtime_test {
namespace {

class BridgeValues : public RuntimeTest {};

// --- what a page passes

struct value_case {
    const char* name;
    const char* arguments;  // of execute, in the page's language
    std::pair<std::string, std::string> received;
};
void PrintTo(const value_case& c, std::ostream* out) { *out << c.name; }

const value_case k_values[] = {
    {"Text", "'c', 'text'", {"c", "text"}},
    {"EmptyText", "'c', ''", {"c", ""}},
    {"Number", "'c', 42", {"c", "42"}},
    {"NegativeZero", "'c', -0", {"c", "0"}},
    {"Fraction", "'c', 0.1", {"c", "0.1"}},
    {"NotANumber", "'c', NaN", {"c", "NaN"}},
    {"Infinite", "'c', -Infinity", {"c", "-Infinity"}},
    {"BigInteger", "'c', 123456789012345678901234567890n", {"c", "123456789012345678901234567890"}},
    {"True", "'c', true", {"c", "true"}},
    {"Null", "'c', null", {"c", "null"}},
    {"Undefined", "'c', undefined", {"c", "undefined"}},
    {"NotGiven", "'c'", {"c", ""}},
    {"NothingAtAll", "", {"", ""}},
    {"Object", "'c', { a: 1 }", {"c", "[object Object]"}},
    {"ObjectWithText", "'c', { toString() { return 'mine' } }", {"c", "mine"}},
    {"Array", "'c', [1, [2, 3], null]", {"c", "1,2,3,"}},
    {"Function", "'c', () => 1", {"c", "() => 1"}},
    {"Symbol", "'c', Symbol('s')", {"c", "Symbol(s)"}},
    {"RegularExpression", "'c', /a+/g", {"c", "/a+/g"}},
    {"Error", "'c', new RangeError('far')", {"c", "RangeError: far"}},
    {"ThirdArgument", "'c', 'd', 'e'", {"c", "d"}},
    {"CommandIsANumber", "7, 'd'", {"7", "d"}},
    {"CommandIsASymbol", "Symbol('s'), 'd'", {"Symbol(s)", "d"}},
    {"Nul", "'c\\0d', 'a\\0b'", {std::string("c\0d", 3), std::string("a\0b", 3)}},
    {"Lines", "'c\\n\\r\\u2028', '\\t'", {"c\n\r\u2028", "\t"}},
    {"Accents", "'caf\u00e9', '\u00fc\u0142'", {"caf\u00e9", "\u00fc\u0142"}},
    {"BeyondTheBasicPlane", "'\\u{1F3AC}', '\\u{10FFFF}'", {"\U0001F3AC", "\U0010FFFF"}},
    {"HalfAPair", "'c', 'a\\ud800b'", {"c", "a\uFFFDb"}},
    {"Markup", "'<b>', '</script>&amp;'", {"<b>", "</script>&amp;"}},
    {"PercentSigns", "'%s%n', '%d'", {"%s%n", "%d"}},
};

class Value : public RuntimeTest, public testing::WithParamInterface<value_case> {};

// One process for all of them would be quicker, but a value that ends the renderer would take the
// others with it.
TEST_P(Value, ArrivesAsItsText) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(std::string("window.hostApp.execute(") + GetParam().arguments + ")");
    ASSERT_TRUE(wait_for([&] { return !page.calls.calls.empty(); }));
    EXPECT_EQ(page.calls.calls[0], GetParam().received);
}
INSTANTIATE_TEST_SUITE_P(All, Value, testing::ValuesIn(k_values), case_name<value_case>);

TEST_F(BridgeValues, ALongArgumentArrivesWhole) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('long', 'ab\\u00e9\\u{1F3AC}'.repeat(1 << 20))");
    ASSERT_TRUE(wait_for([&] { return page.calls.argument_of("long").has_value(); }));
    const std::string argument = *page.calls.argument_of("long");
    EXPECT_EQ(argument.size(), 8u << 20);
    EXPECT_EQ(argument.substr(0, 8), "ab\u00e9\U0001F3AC");
    EXPECT_EQ(argument.substr(argument.size() - 8), "ab\u00e9\U0001F3AC");
}

// --- what a script answers

struct result_case {
    const char* name;
    const char* script;
    const char* result;
};
void PrintTo(const result_case& c, std::ostream* out) { *out << c.name; }

class Result : public RuntimeTest, public testing::WithParamInterface<result_case> {};

TEST_P(Result, ComesBackAsText) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_EQ(page.ask(GetParam().script), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    All, Result,
    testing::Values(result_case{"Nothing", "", "undefined"},
                    result_case{"Null", "return null", "null"},
                    result_case{"Number", "return 1 / 3", "0.3333333333333333"},
                    result_case{"Text", "return document.title", "blank"},
                    result_case{"Astral", "return '\U0001F3AC'", "\U0001F3AC"},
                    result_case{"SeveralLines", "let a = 1;\nlet b = 2;\nreturn a + b;", "3"},
                    result_case{"Quotes", "return `'\"\\``", "'\"`"},
                    result_case{"Promise", "return Promise.resolve(1)", "[object Promise]"},
                    result_case{"Symbol", "return Symbol('s')", "Symbol(s)"},
                    result_case{"Json", "return JSON.stringify({a: [1, null]})",
                                "{\"a\":[1,null]}"}),
    case_name<result_case>);

TEST_F(BridgeValues, AResultOf8MebibytesComesBackWhole) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    const auto result = page.ask("return '0123456789abcdef'.repeat(1 << 19)");
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->size(), 8u << 20);
    EXPECT_EQ(result->substr((8u << 20) - 16), "0123456789abcdef");
}

}  // namespace
}  // namespace pennywort::runtime_test
