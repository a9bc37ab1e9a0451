// bridge_test.cpp - messages of a page to its host, the friendly and the hostile, and scripts of
// the host with and without a result.
#include <regex>
#include <stdexcept>

#include "core/limits.h"
#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/trace.h"
#include "tests/support/effort.h"
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using strings = std::vector<std::string>;
using namespace std::string_literals;

constexpr char k_prefix[] = "thinternal-javascript-wait-result";
constexpr std::uint64_t k_what = 0x77686174;

class BridgeTest : public FakeRuntimeTest {
protected:
    void SetUp() override {
        FakeRuntimeTest::SetUp();
        if (HasFatalFailure()) return;
        start();
        show(m_screen);
        m_scripts_before = scripts_of(1).size();
    }
    void TearDown() override {
        m_screen.release();
        FakeRuntimeTest::TearDown();
    }

    // Has the page send a message, in a step of the runtime. Whether it was consumed.
    bool send(const std::string& name, const std::vector<fake_cef_value>& arguments,
              int browser = 1) {
        bool consumed = false;
        fake().post([&] { consumed = fake().message(browser, name, arguments); });
        settle();
        return consumed;
    }
    bool execute(const std::u16string& command, const std::u16string& argument) {
        return send("execute", {command, argument});
    }
    void send_often(int times, const std::vector<fake_cef_value>& arguments) {
        fake().post([&] {
            for (int i = 0; i < times; ++i) fake().message(1, "execute", arguments);
        });
        settle();
    }
    strings new_scripts() const {
        const strings all = scripts_of(1);
        return {all.begin() + static_cast<std::ptrdiff_t>(m_scripts_before), all.end()};
    }
    static std::string callback(const std::string& command, const std::string& result) {
        return "if (typeof(hostAppCallback) == 'function') {hostAppCallback('" + command + "','" +
               result + "');}";
    }

    screen m_screen{page("http://a/")};
    std::size_t m_scripts_before = 0;
};

// --- calls of a page whose number is bounded

TEST_F(BridgeTest, APageThatAsksForItIsToldInBundlesOfItsCallsThatAreDone) {
    const auto most = static_cast<int>(pennywort::k_calls_handled_untold);
    send_often(most - 1, {u"a"s, u"b"s, true});
    EXPECT_TRUE(fake().sent().empty());
    send_often(1, {u"a"s, u"b"s, true});
    ASSERT_EQ(fake().sent().size(), 1u);
    EXPECT_EQ(fake().sent()[0].name, "handled");
    EXPECT_FALSE(fake().sent()[0].to_browser);
    EXPECT_EQ(fake().sent()[0].arguments, std::vector<fake_cef_value>{most});
}

TEST_F(BridgeTest, APageThatDoesNotAskIsToldNothing) {
    send_often(2 * static_cast<int>(pennywort::k_calls_handled_untold), {u"a"s, u"b"s});
    EXPECT_TRUE(fake().sent().empty());
}

TEST_F(BridgeTest, WhatAPageDropsIsCountedWhereItsCallsAreBounded) {
    zRecord settings = page("http://b/");
    settings.SetInt32("web_max_waiting_calls", 250);
    screen bounded(settings);
    show(bounded);
    EXPECT_TRUE(send("dropped", {3}, 2));
    EXPECT_TRUE(send("dropped", {4}, 2));
    for (const fake_cef_value& odd : {fake_cef_value{-1}, fake_cef_value{u"5"s}}) {
        EXPECT_TRUE(send("dropped", {odd}, 2));
    }
    EXPECT_TRUE(send("dropped", {}, 2));
    cWebDisplayPageStatus status;
    bounded->GetPageStatus(status);
    EXPECT_EQ(status.droppedCalls, 7u);
    bounded.release();
}

TEST_F(BridgeTest, WithoutABoundTheMessageOfDroppedCallsIsLeftToOthers) {
    EXPECT_FALSE(send("dropped", {3}));
    cWebDisplayPageStatus status;
    m_screen->GetPageStatus(status);
    EXPECT_EQ(status.droppedCalls, 0u);
}

TEST_F(BridgeTest, TheBoundReachesTheBrowserOnlyWhereItIsAskedFor) {
    EXPECT_EQ(fake().browser(1).max_waiting_calls, 0);
    zRecord settings = page("http://b/");
    settings.SetInt32("web_max_waiting_calls", 250);
    screen bounded(settings);
    show(bounded);
    EXPECT_EQ(fake().browser(2).max_waiting_calls, 250);
    bounded.release();
}

// --- what is no message for the host

TEST_F(BridgeTest, OtherMessagesAreLeftToTheRuntime) {
    EXPECT_FALSE(send("Execute", {u"a"s, u"b"s}));
    EXPECT_FALSE(send("execute ", {u"a"s, u"b"s}));
    EXPECT_FALSE(send("", {u"a"s, u"b"s}));
    EXPECT_TRUE(m_screen.seen.commands.empty());
    EXPECT_TRUE(new_scripts().empty());
}

// --- page commands

TEST_F(BridgeTest, ACommandReachesTheHostAndItsAnswerThePage) {
    m_screen.seen.command_answer = "answer";
    EXPECT_TRUE(execute(u"command", u"argument"));
    EXPECT_EQ(m_screen.seen.commands, strings{"command(argument)"});
    EXPECT_EQ(new_scripts(), strings{callback("command", "answer")});
    EXPECT_TRUE(m_screen.seen.all_on_display_thread);
}

TEST_F(BridgeTest, WithoutAReceiverThePageIsCalledBackWithoutAResult) {
    m_screen->SetJavascriptCallbackReceiver(nullptr);
    EXPECT_TRUE(execute(u"command", u"argument"));
    EXPECT_EQ(new_scripts(), strings{callback("command", "")});
}

TEST_F(BridgeTest, APageWhoseDisplayHasGoneIsCalledBackWithoutAResult) {
    m_screen.seen.command_answer = "answer";
    script().close_after_works = 20;
    fake().post([&] { m_screen->Close(); });
    loop_works(2);
    ASSERT_FALSE(fake().browser(1).closed);
    EXPECT_TRUE(execute(u"command", u"argument"));
    EXPECT_TRUE(m_screen.seen.commands.empty());
    EXPECT_EQ(new_scripts(), strings{callback("command", "")});
}

TEST_F(BridgeTest, NothingIsEscapedOnTheWayBack) {
    m_screen.seen.command_answer = "it's";
    EXPECT_TRUE(execute(u"a');alert('1", u"x"));
    EXPECT_EQ(new_scripts(), strings{callback("a');alert('1", "it's")});
}

TEST_F(BridgeTest, TextIsUtf8WhateverThePageSends) {
    m_screen.seen.command_answer = "\xF0\x9F\x8E\xA5";
    EXPECT_TRUE(execute(u"caf\u00E9\U0001F3A5", u"\u65E5"));
    EXPECT_EQ(m_screen.seen.commands, strings{"caf\xC3\xA9\xF0\x9F\x8E\xA5(\xE6\x97\xA5)"});
    EXPECT_EQ(new_scripts(), strings{callback("caf\xC3\xA9\xF0\x9F\x8E\xA5", "\xF0\x9F\x8E\xA5")});
}

TEST_F(BridgeTest, HalvesOfSurrogatePairsBecomeReplacementCharacters) {
    EXPECT_TRUE(execute(std::u16string{u'a', char16_t{0xD83D}, u'b'}, {char16_t{0xDE00}}));
    EXPECT_EQ(m_screen.seen.commands, strings{"a\xEF\xBF\xBD"
                                              "b(\xEF\xBF\xBD)"});
}

TEST_F(BridgeTest, ANulIsAByteLikeOthers) {
    EXPECT_TRUE(execute(u"a\0b"s, u"c\0d"s));
    EXPECT_EQ(m_screen.seen.commands, strings{"a\0b(c\0d)"s});
    EXPECT_EQ(new_scripts(), strings{callback("a\0b"s, "")});
}

TEST_F(BridgeTest, MissingAndSuperfluousArgumentsDoNoHarm) {
    EXPECT_TRUE(send("execute", {}));
    EXPECT_TRUE(send("execute", {u"only"s}));
    EXPECT_TRUE(send("execute", {u"one"s, u"two"s, u"three"s}));
    EXPECT_EQ(m_screen.seen.commands, (strings{"()", "only()", "one(two)"}));
}

TEST_F(BridgeTest, ArgumentsThatAreNoTextReadAsEmpty) {
    EXPECT_TRUE(send("execute", {42, true}));
    EXPECT_TRUE(send("execute", {std::monostate{}, 1.5}));
    EXPECT_EQ(m_screen.seen.commands, (strings{"()", "()"}));
}

TEST_F(BridgeTest, AVeryLongMessageArrivesWhole) {
    const std::u16string megabyte(1 << 20, u'x');
    EXPECT_TRUE(execute(u"big", megabyte));
    ASSERT_EQ(m_screen.seen.commands.size(), 1u);
    EXPECT_EQ(m_screen.seen.commands[0].size(), megabyte.size() + 5);
}

TEST_F(BridgeTest, AHundredThousandCallsAreAnsweredEach) {
    constexpr int k_calls = pennywort::tests::effort(100'000, 10'000);
    fake().post([] {
        for (int i = 0; i < k_calls; ++i) fake().message(1, "execute", {u"flood"s, u"'"s});
    });
    ASSERT_TRUE(loop_until([&] { return m_screen.seen.commands.size() == k_calls; }));
    EXPECT_EQ(new_scripts().size(), static_cast<std::size_t>(k_calls));
    // And the display is as usable as before.
    m_screen->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://b/"); }));
}

TEST_F(BridgeTest, AHostMayCloseTheDisplayInACommand) {
    m_screen.seen.on_command = [&] { m_screen->Close(); };
    EXPECT_TRUE(execute(u"close", u""));
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_EQ(m_screen->ExecuteJavascript("go()", 0, {}), -1);
}

TEST_F(BridgeTest, AHostMayReleaseTheDisplayInACommand) {
    m_screen.seen.on_command = [&] { m_screen.release(); };
    EXPECT_TRUE(execute(u"release", u""));
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
}

TEST_F(BridgeTest, AReceiverThatThrowsDoesNotReachTheRuntime) {
    m_screen.seen.on_command = [] { throw std::runtime_error("host's own trouble"); };
    execute(u"throw", u"");
    m_screen.seen.on_command = {};
    EXPECT_TRUE(execute(u"after", u""));
    EXPECT_EQ(m_screen.seen.commands.back(), "after()");
}

// --- commands that the library keeps for itself

TEST_F(BridgeTest, LoadNextUrlLoadsTheNextPageWhateverItsArgument) {
    script().page_answers_next_url = false;
    m_screen->LoadUrl("http://b/");
    m_screen->LoadUrl("http://c/");
    ASSERT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://b/"); }));
    settle();
    ASSERT_EQ(fake().browser(1).loads, strings{"http://b/"});
    EXPECT_TRUE(execute(u"LoadNextUrl", u"http://evil/"));
    EXPECT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://c/"); }));
    EXPECT_EQ(fake().browser(1).loads, (strings{"http://b/", "http://c/"}));
    EXPECT_TRUE(m_screen.seen.commands.empty());
}

TEST_F(BridgeTest, LoadNextUrlOfAnEmptyQueueDoesNothing) {
    EXPECT_TRUE(execute(u"LoadNextUrl", u"0"));
    EXPECT_TRUE(fake().browser(1).loads.empty());
    EXPECT_TRUE(new_scripts().empty());
}

TEST_F(BridgeTest, NamesAreMatchedByCase) {
    EXPECT_TRUE(execute(u"loadnexturl", u""));
    EXPECT_TRUE(execute(u"hasflash", u""));
    EXPECT_TRUE(execute(u"focus", u"1"));
    EXPECT_TRUE(execute(u"uncaught TypeError", u""));
    EXPECT_EQ(m_screen.seen.commands,
              (strings{"loadnexturl()", "hasflash()", "focus(1)", "uncaught TypeError()"}));
}

TEST_F(BridgeTest, HasFlashIsTracedAndTold) {
    strings traces;
    zTraceManager::Default()->SetSink([&](const char* text) { traces.emplace_back(text); });
    int told = 0;
    cWebDisplayBrowser::Flash_ConfigureMissingFunction([&](bool) { ++told; });
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    EXPECT_EQ(told, 1) << "the probe has run, and nothing has been found yet";
    EXPECT_TRUE(execute(u"HasFlash", u"1%s"));
    zTraceManager::Default()->SetSink({});
    EXPECT_EQ(count_of(traces, "Flash Plugin Detected: 1%s\n"), 1);
    EXPECT_TRUE(m_screen.seen.commands.empty());
    EXPECT_TRUE(new_scripts().empty());
}

TEST_F(BridgeTest, APlugInThatThePageFoundIsNotReportedMissing) {
    EXPECT_TRUE(execute(u"HasFlash", u"1"));
    int told = 0;
    cWebDisplayBrowser::Flash_ConfigureMissingFunction([&](bool) { ++told; });
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    EXPECT_EQ(told, 0);
    EXPECT_TRUE(execute(u"HasFlash", u"0"));
    EXPECT_EQ(told, 1);
}

TEST_F(BridgeTest, UncaughtTypeErrorsAreSwallowed) {
    EXPECT_TRUE(execute(u"Uncaught TypeError", u"http://a/"));
    EXPECT_TRUE(execute(u"Uncaught TypeError: x is not a function", u"http://a/"));
    EXPECT_TRUE(m_screen.seen.commands.empty());
    EXPECT_TRUE(new_scripts().empty());
}

TEST_F(BridgeTest, OtherErrorsOfThePageReachTheHostAndThePageAgain) {
    EXPECT_TRUE(execute(u"Uncaught ReferenceError: x is not defined", u"http://a/"));
    EXPECT_TRUE(execute(u"Uncaught TypeErro", u""));
    EXPECT_TRUE(execute(u" Uncaught TypeError", u""));
    EXPECT_EQ(m_screen.seen.commands,
              (strings{"Uncaught ReferenceError: x is not defined(http://a/)",
                       "Uncaught TypeErro()", " Uncaught TypeError()"}));
    EXPECT_EQ(new_scripts()[0], callback("Uncaught ReferenceError: x is not defined", ""));
}

// --- results of scripts

// Answers every awaited script the way the page's engine would.
std::string id_in(const std::string& code) {
    std::smatch found;
    const std::regex pattern("thinternal-javascript-wait-result:([^']*)'");
    return std::regex_search(code, found, pattern) ? found[1].str() : "";
}

std::u16string ascii(const std::string& text) { return {text.begin(), text.end()}; }

TEST_F(BridgeTest, AScriptWithoutACallbackIsSentAsItIs) {
    EXPECT_EQ(m_screen->ExecuteJavascript("it's = \"\xC3\xA9\"", 5000, {}), 0);
    EXPECT_EQ(new_scripts(), strings{"it's = \"\xC3\xA9\""});
}

TEST_F(BridgeTest, AScriptWithACallbackBecomesAFunctionWhoseResultComesBack) {
    strings results;
    EXPECT_EQ(m_screen->ExecuteJavascript("return 1+1", 0,
                                          [&](const std::string& r) { results.push_back(r); }),
              0);
    ASSERT_EQ(new_scripts().size(), 1u);
    const std::string code = new_scripts()[0], id = id_in(code);
    EXPECT_EQ(code,
              "function tarntemp(){return 1+1};window.hostApp.execute('thinternal-javascript-"
              "wait-result:" +
                  id + "',tarntemp())");
    EXPECT_TRUE(
        std::regex_match(id, std::regex("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}")))
        << id;
    EXPECT_TRUE(execute(ascii(k_prefix + ":"s + id), u"2"));
    EXPECT_TRUE(execute(ascii(k_prefix + ":"s + id), u"3"));
    EXPECT_EQ(results, strings{"2"});
    EXPECT_TRUE(m_screen.seen.commands.empty());
}

TEST_F(BridgeTest, PercentSignsOfAScriptStayAsTheyAre) {
    m_screen->ExecuteJavascript("return '%s%n%d'", 0, [](const std::string&) {});
    EXPECT_NE(new_scripts()[0].find("{return '%s%n%d'}"), std::string::npos);
}

TEST_F(BridgeTest, EachScriptHasAnIdOfItsOwn) {
    strings results;
    for (const char* name : {"a", "b"}) {
        m_screen->ExecuteJavascript(
            "return 0", 0, [&results, name](const std::string& r) { results.push_back(name + r); });
    }
    const strings codes = new_scripts();
    ASSERT_EQ(codes.size(), 2u);
    execute(ascii(k_prefix + ":"s + id_in(codes[1])), u"2");
    execute(ascii(k_prefix + ":"s + id_in(codes[0])), u"1");
    EXPECT_EQ(results, (strings{"b2", "a1"}));
}

TEST_F(BridgeTest, ResultsThatNobodyAwaitsAreDropped) {
    EXPECT_TRUE(execute(ascii(k_prefix + ":17"s), u"ok"));
    EXPECT_TRUE(execute(ascii(k_prefix), u"ok"));
    EXPECT_TRUE(execute(ascii(k_prefix + "x"s), u"ok"));
    EXPECT_TRUE(m_screen.seen.commands.empty());
    EXPECT_TRUE(new_scripts().empty());
}

TEST_F(BridgeTest, TheResultPrefixCountsAtTheFrontOnly) {
    EXPECT_TRUE(execute(ascii("x"s + k_prefix + ":17"), u"ok"));
    EXPECT_TRUE(execute(ascii(std::string(k_prefix).substr(0, 32)), u"ok"));
    EXPECT_EQ(m_screen.seen.commands,
              (strings{"x"s + k_prefix + ":17(ok)", std::string(k_prefix).substr(0, 32) + "(ok)"}));
}

TEST_F(BridgeTest, AResultMayHoldAColonAndAnyText) {
    std::string result;
    m_screen->ExecuteJavascript("return x", 0, [&](const std::string& r) { result = r; });
    execute(ascii(k_prefix + ":"s + id_in(new_scripts()[0])), u"a:b'\0\u20AC"s);
    EXPECT_EQ(result, "a:b'\0\xE2\x82\xAC"s);
}

TEST_F(BridgeTest, ACallbackMayRunTheNextScript) {
    strings results;
    m_screen->ExecuteJavascript("return 1", 0, [&](const std::string& first) {
        results.push_back(first);
        m_screen->ExecuteJavascript("return 2", 0,
                                    [&](const std::string& second) { results.push_back(second); });
    });
    execute(ascii(k_prefix + ":"s + id_in(new_scripts()[0])), u"1");
    ASSERT_EQ(new_scripts().size(), 2u);
    execute(ascii(k_prefix + ":"s + id_in(new_scripts()[1])), u"2");
    EXPECT_EQ(results, (strings{"1", "2"}));
}

TEST_F(BridgeTest, ACallbackMayReleaseTheDisplay) {
    m_screen->ExecuteJavascript("return 1", 0, [&](const std::string&) { m_screen.release(); });
    execute(ascii(k_prefix + ":"s + id_in(new_scripts()[0])), u"1");
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
}

TEST_F(BridgeTest, AnObserverGetsTheResultAsARecord) {
    const std::int32_t code = zObserverHandler::NewCode();
    strings posted;
    const zObserverHandler observer(code, [&](const zRecord& payload, std::uint64_t) {
        posted.push_back(payload.AsString("script_result", "") + "/" +
                         std::to_string(payload.AsInt32(k_what, 0)));
    });
    EXPECT_EQ(m_screen->ExecuteJavascript("return 1", 9ul, static_cast<long>(code), 1000ul), 0);
    execute(ascii(k_prefix + ":"s + id_in(new_scripts()[0])), u"1");
    EXPECT_TRUE(loop_until([&] { return !posted.empty(); }));
    EXPECT_EQ(posted, strings{"1/9"});
}

TEST_F(BridgeTest, TheInertFormsSendNothing) {
    cWebDisplayBrowser& d = *m_screen.get();
    EXPECT_EQ(d.ExecuteJavascript(1ul, 2ul, [](const std::string&) { FAIL(); }), -1);
    EXPECT_EQ(d.ExecuteJavascript(1ul, 2ul, 3l, 4ul), -1);
    EXPECT_EQ(d.CacheScriptToBrowser("x", 1, [](const std::string&) { FAIL(); }), -1);
    EXPECT_TRUE(new_scripts().empty());
}

// --- focus

TEST_F(BridgeTest, FocusIsAnsweredByNothing) {
    EXPECT_TRUE(execute(u"Focus", u"1"));
    EXPECT_TRUE(execute(u"Focus", u"0"));
    EXPECT_TRUE(m_screen.seen.commands.empty());
    EXPECT_TRUE(new_scripts().empty());
}

}  // namespace
