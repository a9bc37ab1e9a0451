// bridge_test.cpp - window.hostApp.execute and scripts of the host, as a page and a host see them.
#include <atomic>
#include <ostream>
#include <thread>

#include "harness.h"
#include "loam/observer.h"
#include "loam/thread.h"
#include "peer.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class Bridge : public RuntimeTest {};
class BridgeOfFrames : public RuntimeTest {
protected:
    peer m_peer;
};

const std::string k_blank = "<!doctype html><title>bridge</title><body>";

// --- what a page can do to the bridge

TEST_F(Bridge, AHundredThousandCallsArriveAllAndInOrder) {
    constexpr int k_calls = 100'000;
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("for (let i = 0; i < 100000; i++) window.hostApp.execute('many', i)");
    EXPECT_TRUE(wait_for([&] { return page.calls.calls.size() >= k_calls; }))
        << page.calls.calls.size();
    ASSERT_EQ(page.calls.calls.size(), static_cast<std::size_t>(k_calls));
    for (int i = 0; i < k_calls; ++i) {
        ASSERT_EQ(page.calls.calls[static_cast<std::size_t>(i)].second, std::to_string(i));
    }
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
}

TEST_F(Bridge, APageThatThrowsInEveryScriptIsReportedAndStaysUsable) {
    shown_page page({.url = page_url("<!doctype html><body style='background:#f00;margin:0'>"
                                     "<script>throw new Error('at once')</script>"
                                     "<script>setInterval(() => { throw new Error('again') }, 5);"
                                     "setInterval(() => { null.x }, 5);"
                                     "requestAnimationFrame(function f() {"
                                     "  requestAnimationFrame(f); throw 7 })</script>")});
    EXPECT_TRUE(wait_for([&] { return page.calls.count_of("Uncaught Error: again") > 20; }));
    EXPECT_TRUE(wait_for([&] { return page.calls.count_of("Uncaught 7") > 0; }));
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
    EXPECT_EQ(page.frames.centre(), k_red);
    // Type errors are everyday life in pages, and not worth a call.
    for (const auto& [name, argument] : page.calls.calls) {
        EXPECT_FALSE(name.starts_with("Uncaught TypeError")) << name;
    }
}

TEST_F(Bridge, ThePageMayReplaceWhatTheBridgeIsMadeOf) {
    shown_page page({.url = page_url("<script>String = () => 'forged'; Array = null;"
                                     "Object.prototype.toString = () => 'forged';"
                                     "Function.prototype.call = null;"
                                     "window.hostApp.execute('kept', 5)</script>")});
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(wait_for([&] { return page.calls.argument_of("kept").has_value(); }));
    EXPECT_EQ(page.calls.argument_of("kept"), "5");
    page.run("window.hostApp = null");
    page.run("window.hostApp.execute('lost')");
    EXPECT_TRUE(page.wait_for_colour(k_black));
}

TEST_F(Bridge, WhatAnArgumentThrowsBelongsToThePage) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_EQ(page.ask("try { window.hostApp.execute('x', { toString() { throw 'mine' } }) }"
                       "catch (caught) { return caught }"),
              "mine");
    EXPECT_EQ(page.calls.count_of("x"), 0u);
}

// The callback of that command is no script any more, which the page's error hook reports.
TEST_F(Bridge, AQuoteInACommandBreaksOnlyItsOwnCallback) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(R"(window.got = []; window.hostAppCallback = name => { window.got.push(name) };
                window.hostApp.execute("it's", "don't \"quote\" \\ me");
                window.hostApp.execute('after', '1'))");
    ASSERT_TRUE(wait_for([&] { return page.calls.argument_of("after").has_value(); }));
    EXPECT_EQ(page.calls.argument_of("it's"), R"(don't "quote" \ me)");
    EXPECT_TRUE(
        wait_for([&] { return page.ask("return window.got.includes('after')") == "true"; }));
    EXPECT_EQ(page.ask("return window.got.includes(\"it's\")"), "false");
}

// --- values that a page can pass

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
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(std::string("window.hostApp.execute(") + GetParam().arguments + ")");
    ASSERT_TRUE(wait_for([&] { return !page.calls.calls.empty(); }));
    EXPECT_EQ(page.calls.calls[0], GetParam().received);
}
INSTANTIATE_TEST_SUITE_P(All, Value, testing::ValuesIn(k_values), case_name<value_case>);

TEST_F(Bridge, ALongArgumentArrivesWhole) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('long', 'ab\\u00e9\\u{1F3AC}'.repeat(1 << 20))");
    ASSERT_TRUE(wait_for([&] { return page.calls.argument_of("long").has_value(); }));
    const std::string argument = *page.calls.argument_of("long");
    EXPECT_EQ(argument.size(), 8u << 20);
    EXPECT_EQ(argument.substr(0, 8), "ab\u00e9\U0001F3AC");
    EXPECT_EQ(argument.substr(argument.size() - 8), "ab\u00e9\U0001F3AC");
}

// --- answers to the page

TEST_F(Bridge, TheHostsAnswerComesBackAsACallback) {
    shown_page page({.url = page_url(k_blank)});
    page.calls.answer = [](const std::string& name, const std::string& argument) {
        return name + "=" + argument + "!";
    };
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(
        "window.got = []; window.hostAppCallback = (...all) => window.got.push(all.join());"
        "for (const i of [1, 2, 3]) window.hostApp.execute('ask', i)");
    EXPECT_TRUE(wait_for([&] {
        return page.ask("return window.got.join(' ')") == "ask,ask=1! ask,ask=2! ask,ask=3!";
    })) << PrintToString(page.ask("return window.got.join(' ')"));
}

TEST_F(Bridge, WithoutAReceiverThePageGetsAnEmptyAnswer) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    page->SetJavascriptCallbackReceiver(nullptr);
    page.run(
        "window.hostAppCallback = (a, b) => { window.got = a + '[' + b + ']' };"
        "window.hostApp.execute('ask', 1)");
    EXPECT_TRUE(wait_for([&] { return page.ask("return window.got") == "ask[]"; }));
}

TEST_F(Bridge, APageWithoutACallbackIsLeftAlone) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostAppCallback = 'no function'; window.hostApp.execute('ask', 1)");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("ask") == 1; }));
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
    EXPECT_EQ(page.calls.calls.size(), 1u) << PrintToString(page.calls.calls);
}

TEST_F(Bridge, AReceiverMayCloseTheDisplayInItsCallback) {
    shown_page page({.url = page_url(k_blank)});
    cWebDisplayCEFBrowser* display = page.get();
    page.calls.answer = [display](const std::string&, const std::string&) {
        display->Close();
        return "closed";
    };
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('close', 1); window.hostApp.execute('late', 1)");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("close") == 1; }));
    run_loop_for(300);
    EXPECT_EQ(page.calls.count_of("late"), 0u);
    EXPECT_EQ(page->ExecuteJavascript(zString("1"), 0, std::function<void(std::string)>()), -1);
}

// --- frames of a page

std::string saying(const std::string& name) {
    return "<!doctype html><script>window.hostApp.execute('" + name +
           "', location.hostname)</script>";
}

TEST_F(BridgeOfFrames, TheMainFrameHasTheBridgeBeforeItsFirstScript) {
    shown_page page({.url = m_peer.html(saying("main"))});
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("main") == "127.0.0.1"; }));
}

TEST_F(BridgeOfFrames, AFrameOfTheSameOriginHasTheBridge) {
    shown_page page({.url = m_peer.html("<iframe src='" + m_peer.html(saying("inner")) + "'>")});
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("inner") == "127.0.0.1"; }));
}

TEST_F(BridgeOfFrames, AFrameOfAnotherOriginHasTheBridge) {
    shown_page page({.url = m_peer.html("<iframe src='" +
                                        m_peer.html_of_other_origin(saying("inner")) + "'>")});
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("inner") == "localhost"; }));
}

TEST_F(BridgeOfFrames, FramesWithoutAnAddressHaveTheBridge) {
    shown_page page(
        {.url = m_peer.html(
             "<iframe srcdoc=\"<script>window.hostApp.execute('document', 1)</script>\">"
             "</iframe><iframe sandbox=allow-scripts "
             "srcdoc=\"<script>window.hostApp.execute('sandbox', 1)</script>\"></iframe>"
             "<iframe id=blank></iframe><script>"
             "blank.contentWindow.hostApp.execute('blank', 1)</script>")});
    EXPECT_TRUE(wait_for([&] {
        return page.calls.count_of("document") && page.calls.count_of("sandbox") &&
               page.calls.count_of("blank");
    })) << PrintToString(page.calls.calls);
}

TEST_F(BridgeOfFrames, TheAnswerToAFrameGoesToTheMainFrame) {
    const std::string inner =
        "<script>window.hostAppCallback = () => parent.postMessage('wrong', '*');"
        "window.hostApp.execute('inner', 1)</script>";
    shown_page page(
        {.url = m_peer.html("<script>window.got = ''; onmessage = e => window.got += e.data;"
                            "window.hostAppCallback = (name, b) => window.got += name + b</script>"
                            "<iframe src='" +
                            m_peer.html_of_other_origin(inner) + "'>")});
    page.calls.answer = [](const std::string&, const std::string&) { return "!"; };
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_TRUE(wait_for([&] { return page.ask("return window.got") == "inner!"; }))
        << PrintToString(page.ask("return window.got"));
}

TEST_F(BridgeOfFrames, TheBridgeIsThereAgainInTheNextPage) {
    shown_page page({.url = m_peer.html(saying("first"))});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl(m_peer.html_of_other_origin(saying("second")).c_str());
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("second") == "localhost"; }));
}

// --- scripts of the host

TEST_F(Bridge, AScriptThatThrowsIsNeverAnsweredAndForgottenLater) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    auto watched = std::make_shared<int>(0);
    const std::weak_ptr<int> held = watched;
    for (const char* script : {"throw 1", "return nowhere.to.be.found", "syntax error ("}) {
        EXPECT_EQ(page->ExecuteJavascript(zString(script), 1,
                                          [watched](const std::string&) { ++*watched; }),
                  0);
    }
    watched.reset();
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
    // The next script after the time-out sweeps them out.
    EXPECT_TRUE(wait_for([&] {
        page.ask("return 1");
        return held.expired();
    })) << held.use_count();
}

TEST_F(Bridge, WithoutAPageAScriptIsRefused) {
    cWebDisplayCEFBrowser* display = make_display({});
    const auto plain = std::function<void(std::string)>();
    EXPECT_EQ(display->ExecuteJavascript(zString("1"), 0, plain), -1);
    EXPECT_EQ(display->ExecuteJavascript(zString("return 1"), 0, [](const std::string&) {}), -1);
    EXPECT_TRUE(display->Open());
    ASSERT_TRUE(wait_for([&] { return display->ExecuteJavascript(zString("1"), 0, plain) == 0; }));
    display->Close();
    EXPECT_EQ(display->ExecuteJavascript(zString("1"), 0, plain), -1);
    display->Release();
}

TEST_F(Bridge, AThousandScriptsInFlightAreAllAnswered) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    std::vector<std::string> answers(1000);
    std::size_t count = 0;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const std::string script = "return " + std::to_string(i) + " * 2";
        page->ExecuteJavascript(zString(script.c_str()), 60'000, [&, i](const std::string& text) {
            answers[i] = text;
            ++count;
        });
    }
    EXPECT_TRUE(wait_for([&] { return count >= answers.size(); })) << count;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        ASSERT_EQ(answers[i], std::to_string(2 * i)) << "script " << i;
    }
}

struct result_case {
    const char* name;
    const char* script;
    const char* result;
};
void PrintTo(const result_case& c, std::ostream* out) { *out << c.name; }

class Result : public RuntimeTest, public testing::WithParamInterface<result_case> {};

TEST_P(Result, ComesBackAsText) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_EQ(page.ask(GetParam().script), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    All, Result,
    testing::Values(result_case{"Nothing", "", "undefined"},
                    result_case{"Null", "return null", "null"},
                    result_case{"Number", "return 1 / 3", "0.3333333333333333"},
                    result_case{"Text", "return document.title", "bridge"},
                    result_case{"Astral", "return '\U0001F3AC'", "\U0001F3AC"},
                    result_case{"SeveralLines", "let a = 1;\nlet b = 2;\nreturn a + b;", "3"},
                    result_case{"Quotes", "return `'\"\\``", "'\"`"},
                    result_case{"Promise", "return Promise.resolve(1)", "[object Promise]"},
                    result_case{"Symbol", "return Symbol('s')", "Symbol(s)"},
                    result_case{"Json", "return JSON.stringify({a: [1, null]})",
                                "{\"a\":[1,null]}"}),
    case_name<result_case>);

TEST_F(Bridge, AResultOf8MebibytesComesBackWhole) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    const auto result = page.ask("return '0123456789abcdef'.repeat(1 << 19)");
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->size(), 8u << 20);
    EXPECT_EQ(result->substr((8u << 20) - 16), "0123456789abcdef");
}

TEST_F(Bridge, ACallbackMayRunTheNextScript) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    std::string answers;
    std::function<void(std::string)> step = [&](const std::string& text) {
        answers += text;
        if (answers.size() < 5) page->ExecuteJavascript(zString("return 'x'"), 60'000, step);
    };
    page->ExecuteJavascript(zString("return 'x'"), 60'000, step);
    EXPECT_TRUE(wait_for([&] { return answers == "xxxxx"; })) << answers;
}

TEST_F(Bridge, ScriptsMayComeFromAnyThread) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    std::atomic<int> answered{0};
    std::atomic<bool> elsewhere{false};
    const auto display_thread = std::this_thread::get_id();
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) {
            page->ExecuteJavascript(zString("return 1"), 60'000, [&](const std::string&) {
                if (std::this_thread::get_id() != display_thread) elsewhere = true;
                ++answered;
            });
        }
    });
    EXPECT_TRUE(wait_for([&] { return answered == 100; })) << answered;
    other.join();
    EXPECT_FALSE(elsewhere);
}

TEST_F(Bridge, AResultMayComeAsANotification) {
    shown_page page({.url = page_url(k_blank)});
    ASSERT_TRUE(page.wait_until_loaded());
    std::string result;
    std::int32_t what = 0;
    const std::int32_t code = zObserverHandler::NewCode();
    const zObserverHandler observer(code, [&](const zRecord& payload, std::uint64_t) {
        result = payload.AsString("script_result", "");
        what = payload.AsInt32(0x77686174, 0);
    });
    EXPECT_EQ(page->ExecuteJavascript(zString("return document.title"), 17, long{code}, 60'000), 0);
    EXPECT_TRUE(wait_for([&] { return result == "bridge"; })) << result;
    EXPECT_EQ(what, 17);
}

}  // namespace
}  // namespace pennywort::runtime_test
