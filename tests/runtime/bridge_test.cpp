// bridge_test.cpp - window.hostApp.execute as a page uses and misuses it, and the answers it gets.
#include "harness.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class Bridge : public RuntimeTest {};

// --- what a page can do to the bridge

TEST_F(Bridge, AHundredThousandCallsArriveAllAndInOrder) {
    constexpr int k_calls = 100'000;
    shown_page page({.url = blank_url()});
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
    EXPECT_TRUE(page.wait_for_colour(k_red));
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
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_EQ(page.ask("try { window.hostApp.execute('x', { toString() { throw 'mine' } }) }"
                       "catch (caught) { return caught }"),
              "mine");
    EXPECT_EQ(page.calls.count_of("x"), 0u);
}

// The callback of that command is no script any more, which the page's error hook reports.
TEST_F(Bridge, AQuoteInACommandBreaksOnlyItsOwnCallback) {
    shown_page page({.url = blank_url()});
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

// --- answers to the page

TEST_F(Bridge, TheHostsAnswerComesBackAsACallback) {
    shown_page page({.url = blank_url()});
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
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    page->SetJavascriptCallbackReceiver(nullptr);
    page.run(
        "window.hostAppCallback = (a, b) => { window.got = a + '[' + b + ']' };"
        "window.hostApp.execute('ask', 1)");
    EXPECT_TRUE(wait_for([&] { return page.ask("return window.got") == "ask[]"; }));
}

TEST_F(Bridge, APageWithoutACallbackIsLeftAlone) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostAppCallback = 'no function'; window.hostApp.execute('ask', 1)");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("ask") == 1; }));
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
    EXPECT_EQ(page.calls.calls.size(), 1u) << PrintToString(page.calls.calls);
}

TEST_F(Bridge, AReceiverMayCloseTheDisplayInItsCallback) {
    shown_page page({.url = blank_url()});
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

}  // namespace
}  // namespace pennywort::runtime_test
