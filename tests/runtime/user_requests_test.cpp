// user_requests_test.cpp - what pages ask the user for: nobody is there to answer, and nothing may
// wait for it.
#include <ostream>
#include <string>

#include "hostile_page.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class UserRequests : public HostilePage {
protected:
    // As a host that does not want its pages to wait for a prompt; ours is one.
    void add_switches() override {
        HostilePage::add_switches();
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("disable-chrome-login-prompt", nullptr);
    }
};

struct request_case {
    const char* name;
    const char* script;  // says "settled" with the outcome when it goes on
    const char* outcome;
};
void PrintTo(const request_case& c, std::ostream* out) { *out << c.name; }

#define PROMISED(call)                   \
    "Promise.resolve().then(() => " call \
    ").then(v => say('granted ' + v), e => say(e.name || 'refused'))"

const request_case k_requests[] = {
    {"Camera", PROMISED("navigator.mediaDevices.getUserMedia({video: true})"), "NotAllowedError"},
    {"Microphone", PROMISED("navigator.mediaDevices.getUserMedia({audio: true})"),
     "NotAllowedError"},
    {"Screen", PROMISED("navigator.mediaDevices.getDisplayMedia()"), "NotAllowedError"},
    {"Position",
     PROMISED("new Promise((y, n) => navigator.geolocation.getCurrentPosition(y, "
              "e => n({name: 'code ' + e.code})))"),
     "code 1"},
    {"Notifications", PROMISED("Notification.requestPermission()"), "granted denied"},
    {"Midi", PROMISED("navigator.requestMIDIAccess({sysex: true})"), "NotAllowedError"},
    {"ClipboardRead", PROMISED("navigator.clipboard.readText()"), "NotAllowedError"},
    {"Alert", "alert('hello'); say('went on')", "went on"},
    {"Confirm", "say(String(confirm('sure?')))", "false"},
    {"Prompt", "say(String(prompt('name?')))", "null"},
    {"Print", "print(); say('went on')", "went on"},
    {"FileDialog",
     "const f = document.createElement('input'); f.type = 'file'; f.click(); say('went on')",
     "went on"},
    {"FullScreen", PROMISED("document.documentElement.requestFullscreen()"), "TypeError"},
    {"PointerLock",
     PROMISED("(document.body.requestPointerLock() || Promise.reject({name: 'no promise'}))"),
     "WrongDocumentError"},
};

class Request : public HostilePage, public testing::WithParamInterface<request_case> {};

TEST_P(Request, IsSettledWithoutAUser) {
    shown_page page({.url = m_peer.html("<!doctype html><body style='background:#0f0;margin:0'>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(std::string("const say = text => window.hostApp.execute('settled', text);") +
             GetParam().script);
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("settled") > 0; }));
    EXPECT_EQ(page.calls.argument_of("settled"), GetParam().outcome);
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
    EXPECT_TRUE(page.wait_for_colour(k_green));
}
INSTANTIATE_TEST_SUITE_P(All, Request, testing::ValuesIn(k_requests), case_name<request_case>);

// What is about to be printed is told so first.
constexpr const char* k_print =
    "window.told = 0; const hear = window => window.addEventListener('beforeprint', () => told++);"
    "hear(window); const frame = document.createElement('iframe'); document.body.append(frame);"
    "hear(frame.contentWindow);"
    "print(); frame.contentWindow.print(); document.execCommand('print');"
    "setTimeout(() => window.hostApp.execute('told', told), 500)";

TEST_F(UserRequests, NothingIsPrintedWhereTheHostRefusesIt) {
    shown_page page({.url = m_peer.html("<body>"), .refuse_printing = true});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(k_print);
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("told") > 0; }));
    EXPECT_EQ(page.calls.argument_of("told"), "0");
    EXPECT_EQ(page.ask("return document.execCommand('selectAll')"), "true");
}

TEST_F(UserRequests, PrintingIsTheRuntimesAffairUnlessTheHostRefusesIt) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(k_print);
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("told") > 0; }));
    EXPECT_NE(page.calls.argument_of("told"), "0");
}

TEST_F(UserRequests, APageThatAsksBeforeItGoesIsNotAsked) {
    shown_page page({.url = m_peer.html("<script>addEventListener('beforeunload', e => {"
                                        "e.preventDefault(); e.returnValue = 'stay'; });"
                                        "onbeforeunload = () => 'stay'</script>")});
    ASSERT_TRUE(page.wait_until_loaded());
    const std::string next = m_peer.html("<body>next");
    page->LoadUrl(next.c_str());
    ASSERT_TRUE(wait_for([&] { return page.events.has_loaded(next); }));
    page->LoadUrl(m_peer.html("<script>onbeforeunload = () => 'stay'</script>").c_str());
    ASSERT_TRUE(wait_for([&] { return page.events.loaded.size() == 3; }));
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
}

TEST_F(UserRequests, APageThatAlertsForEverCloses) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('on', 1); while (true) { alert('again'); confirm('?'); }");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("on") == 1; }));
    run_loop_for(300);
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
}

TEST_F(UserRequests, APasswordIsNotAskedFor) {
    const std::string url = m_peer.url("/locked");
    shown_page page({.url = url});
    ASSERT_TRUE(wait_for([&] { return page.events.has_loaded(url); }))
        << PrintToString(page.events.failed);
    EXPECT_EQ(page.ask("return document.body.innerText"), "locked");
}

}  // namespace
}  // namespace pennywort::runtime_test
