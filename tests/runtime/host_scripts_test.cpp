// host_scripts_test.cpp - scripts that the host runs in a page, and their answers.
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"
#include "loam/observer.h"

namespace pennywort::runtime_test {
namespace {

class HostScripts : public RuntimeTest {};

TEST_F(HostScripts, AScriptThatThrowsIsNeverAnsweredAndForgottenLater) {
    shown_page page({.url = blank_url()});
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

TEST_F(HostScripts, WithoutAPageAScriptIsRefused) {
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

TEST_F(HostScripts, AThousandScriptsInFlightAreAllAnswered) {
    shown_page page({.url = blank_url()});
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

TEST_F(HostScripts, ACallbackMayRunTheNextScript) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    std::string answers;
    std::function<void(std::string)> step = [&](const std::string& text) {
        answers += text;
        if (answers.size() < 5) page->ExecuteJavascript(zString("return 'x'"), 60'000, step);
    };
    page->ExecuteJavascript(zString("return 'x'"), 60'000, step);
    EXPECT_TRUE(wait_for([&] { return answers == "xxxxx"; })) << answers;
}

TEST_F(HostScripts, ScriptsMayComeFromAnyThread) {
    shown_page page({.url = blank_url()});
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

TEST_F(HostScripts, AResultMayComeAsANotification) {
    shown_page page({.url = blank_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    std::string result;
    std::int32_t what = 0;
    const std::int32_t code = zObserverHandler::NewCode();
    const zObserverHandler observer(code, [&](const zRecord& payload, std::uint64_t) {
        result = payload.AsString("script_result", "");
        what = payload.AsInt32(0x77686174, 0);
    });
    EXPECT_EQ(page->ExecuteJavascript(zString("return document.title"), 17, long{code}, 60'000), 0);
    EXPECT_TRUE(wait_for([&] { return result == "blank"; })) << result;
    EXPECT_EQ(what, 17);
}

}  // namespace
}  // namespace pennywort::runtime_test
